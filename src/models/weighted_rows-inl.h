// The inner loop of all filters, compiled once per instruction set (host_vectors.h).

#include <cstddef>

#include "device/host/host_vectors.h"

namespace namespace_ratseg::RATSEG_ISA {

void weightedRowsOf(const float* const* rows, const float* weights, std::size_t count, float* out,
                    std::size_t n) {
  constexpr std::size_t kAtOnce = 8;
  std::size_t x = 0;
  for (; x + kAtOnce * kLanes <= n; x += kAtOnce * kLanes) {
    vec sums[kAtOnce] = {};
    for (std::size_t j = 0; j < count; ++j) {
      const float* row = rows[j] + x;
      const float weight = weights[j];
      for (std::size_t k = 0; k < kAtOnce; ++k) sums[k] += weight * load(row + k * kLanes);
    }
    for (std::size_t k = 0; k < kAtOnce; ++k) store(out + x + k * kLanes, sums[k]);
  }
  for (; x < n; ++x) {
    float sum = 0;
    for (std::size_t j = 0; j < count; ++j) sum += weights[j] * rows[j][x];
    out[x] = sum;
  }
}

}  // namespace namespace_ratseg::RATSEG_ISA
