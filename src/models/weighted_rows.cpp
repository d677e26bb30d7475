#include "models/weighted_rows.h"

namespace namespace_ratseg {

namespace isa_baseline {
void weightedRowsOf(const float* const*, const float*, std::size_t, float*, std::size_t);
}
namespace isa_avx2 {
void weightedRowsOf(const float* const*, const float*, std::size_t, float*, std::size_t);
}
namespace isa_avx512 {
void weightedRowsOf(const float* const*, const float*, std::size_t, float*, std::size_t);
}

WeightedRows weightedRows(HostIsa isa) {
#if RATSEG_X86
  if (isa == HostIsa::avx2) return isa_avx2::weightedRowsOf;
  if (isa == HostIsa::avx512) return isa_avx512::weightedRowsOf;
#endif
  (void)isa;
  return isa_baseline::weightedRowsOf;
}

}  // namespace namespace_ratseg
