#ifndef RATSEG_UTIL_SUM_LAUNCH_H
#define RATSEG_UTIL_SUM_LAUNCH_H

#include <cstddef>

#include "device/launchers.h"
#include "device/types.h"

namespace namespace_ratseg {

// Launches the summation kernels on the current device of one backend; what they compute stands
// beside their arithmetic in sum_kernels.h. Pointers are device pointers. A launch that the device
// refuses leaves its error pending.
class SumKernels {
 public:
  // sumArray[0] = sum of a[0 .. K-1], K = 1 to 4; shape is one thread.
  virtual void cuda_sum_kernel__plainloop(int K, const LaunchShape& shape, float* sumArray,
                                          const float* a) = 0;
  virtual void cuda_sum_kernel__plainloop(int K, const LaunchShape& shape, double* sumArray,
                                          const double* a) = 0;

  // sumArray[b] = sum of elements 2N * b to 2N * (b + 1) - 1 of a[0 .. n-1]; shape is blocks of N
  // threads, N = 4, 8, 16 or a multiple of 32 up to 256.
  // Needs N elements of dynamic shared memory.
  virtual void cuda_sum_kernel__warpFirst(int N, const LaunchShape& shape, float* sumArray,
                                          const float* a, std::size_t n) = 0;
  virtual void cuda_sum_kernel__warpFirst(int N, const LaunchShape& shape, double* sumArray,
                                          const double* a, std::size_t n) = 0;
  // The same by warp shuffles: needs one element of shared memory per warp, none for one warp, and
  // compute capability 3.0.
  virtual void cuda_sum_kernel__warpFirst_shfl(int N, const LaunchShape& shape, float* sumArray,
                                               const float* a, std::size_t n) = 0;

  // The launchers of each backend; cuda() exists only in builds with that backend.
  static SumKernels& host();
  static SumKernels& cuda();

 protected:
  ~SumKernels() = default;  // never destroyed: threads may launch while the process ends
};

// The launchers of the current backend.
inline SumKernels& sumKernels() { return currentLaunchers<SumKernels>(); }

}  // namespace namespace_ratseg

#endif
