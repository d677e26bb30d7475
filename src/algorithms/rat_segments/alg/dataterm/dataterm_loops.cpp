#include "algorithms/rat_segments/alg/dataterm/dataterm_loops.h"

namespace namespace_ratseg {

namespace isa_baseline {
extern const DatatermLoops datatermLoops;
}
namespace isa_avx2 {
extern const DatatermLoops datatermLoops;
}
namespace isa_avx512 {
extern const DatatermLoops datatermLoops;
}

const DatatermLoops& datatermLoops(HostIsa isa) {
#if RATSEG_X86
  if (isa == HostIsa::avx2) return isa_avx2::datatermLoops;
  if (isa == HostIsa::avx512) return isa_avx512::datatermLoops;
#endif
  (void)isa;
  return isa_baseline::datatermLoops;
}

}  // namespace namespace_ratseg
