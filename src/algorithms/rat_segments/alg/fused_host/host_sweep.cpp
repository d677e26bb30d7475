#include "algorithms/rat_segments/alg/fused_host/host_sweep.h"

#include <cstring>

namespace namespace_ratseg {

namespace isa_baseline {
extern const HostSweep sweep;
}
namespace isa_avx2 {
extern const HostSweep sweep;
}
namespace isa_avx512 {
extern const HostSweep sweep;
}

const HostSweep& hostSweep(HostIsa isa) {
#if RATSEG_X86
  if (isa == HostIsa::avx2) return isa_avx2::sweep;
  if (isa == HostIsa::avx512) return isa_avx512::sweep;
#endif
  (void)isa;
  return isa_baseline::sweep;
}

void splitRow(float2* row, std::size_t w, float* scratch) {
  float* parts = &row->x;
  for (std::size_t x = 0; x < w; ++x) scratch[x] = row[x].y;
  for (std::size_t x = 0; x < w; ++x) parts[x] = parts[2 * x];
  std::memcpy(parts + w, scratch, w * sizeof(float));
}

void joinRow(float2* row, std::size_t w, float* scratch) {
  float* parts = &row->x;
  std::memcpy(scratch, parts + w, w * sizeof(float));
  for (std::size_t x = w; x-- > 0;) parts[2 * x] = parts[x];
  for (std::size_t x = 0; x < w; ++x) parts[2 * x + 1] = scratch[x];
}

}  // namespace namespace_ratseg
