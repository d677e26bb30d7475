#ifndef RATSEG_DEVICE_CUDA_WARP_H
#define RATSEG_DEVICE_CUDA_WARP_H

// Operations of all threads of a warp together. For .cu files only; every lane must call them.

#include <cuda_runtime.h>

#include <cstddef>

namespace namespace_ratseg {

inline constexpr unsigned kWarp = 32;
inline constexpr unsigned kAllLanes = 0xffffffffu;

// The sum over the warp, in its first lane; always in the same order.
template <class T>
__device__ T warpSum(T value) {
  for (int above = kWarp / 2; above > 0; above /= 2) {
    value += __shfl_down_sync(kAllLanes, value, above);
  }
  return value;
}

// The labels of a step shared out to the lanes of a warp (exact_shares_kernels.h).
struct WarpLanes {
  std::size_t lane = threadIdx.x % kWarp, lanes = kWarp;

  // Sums of pairs, so that all lanes have the same bits.
  __device__ double sum(double value) const {
    for (unsigned other = kWarp / 2; other > 0; other /= 2) {
      value += __shfl_xor_sync(kAllLanes, value, static_cast<int>(other));
    }
    return value;
  }
  __device__ void wait() const { __syncwarp(); }
};

}  // namespace namespace_ratseg

#endif
