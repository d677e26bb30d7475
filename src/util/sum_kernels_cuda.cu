#include "device/cuda/cuda_launch.h"
#include "util/sum_kernels.h"
#include "util/sum_launch.h"

namespace namespace_ratseg {

namespace {

// Of one warp of a block of N threads: the threads that are there.
template <int N>
constexpr unsigned kWarpMask = N < 32 ? (1u << N) - 1 : 0xffffffffu;

// Threads that exchange their values through N elements of shared memory. In each step only threads
// below the offset write, and only what no other thread reads in that step.
template <int N, class T>
class SharedThreads {
 public:
  __device__ explicit SharedThreads(T* slot) : slot_(slot) {}

  template <class F>
  __device__ void load(F f) {
    slot_[threadIdx.x] = f(static_cast<int>(threadIdx.x));
    __syncwarp(kWarpMask<N>);
  }
  template <int K>
  __device__ void addAbove() {
    if (threadIdx.x % 32 < K) slot_[threadIdx.x] += slot_[threadIdx.x + K];
    __syncwarp(kWarpMask<N>);
  }
  template <class F>
  __device__ void first(F f) {
    __syncthreads();
    if (threadIdx.x == 0) f();
  }
  __device__ T warpSum(int w) const { return slot_[32 * w]; }

 private:
  T* slot_;
};

// Threads that exchange their values by shuffles, and those of several warps through one element of
// shared memory per warp.
template <int N>
class ShuffleThreads {
 public:
  __device__ explicit ShuffleThreads(float* slot) : slot_(slot) {}

  template <class F>
  __device__ void load(F f) {
    value_ = f(static_cast<int>(threadIdx.x));
  }
  template <int K>
  __device__ void addAbove() {
    value_ += __shfl_down_sync(kWarpMask<N>, value_, K, kWarpThreads<N>);
  }
  template <class F>
  __device__ void first(F f) {
    if (N > 32) {
      if (threadIdx.x % 32 == 0) slot_[threadIdx.x / 32] = value_;
      __syncthreads();
    }
    if (threadIdx.x == 0) f();
  }
  __device__ float warpSum(int w) const { return N > 32 ? slot_[w] : value_; }

 private:
  float* slot_;
  float value_ = 0;
};

namespace kernel {

template <int K, class T>
__global__ void cuda_sum_kernel__plainloop(T* sumArray, const T* a) {
  sumArray[0] = sumPlain<K>(a);
}

template <int N, class T>
__global__ void cuda_sum_kernel__warpFirst(T* sumArray, const T* a, std::size_t n) {
  SharedThreads<N, T> threads(dynamicShared<T>());
  sumBlock<N, false>(threads, sumArray, a, n, static_cast<std::size_t>(blockIdx.x));
}

template <int N>
__global__ void cuda_sum_kernel__warpFirst_shfl(float* sumArray, const float* a, std::size_t n) {
  ShuffleThreads<N> threads(dynamicShared<float>());
  sumBlock<N, false>(threads, sumArray, a, n, static_cast<std::size_t>(blockIdx.x));
}

}  // namespace kernel

template <class T>
void plainloop(int K, const LaunchShape& shape, T* sumArray, const T* a) {
  withLoopLength(
      K, [=](auto k) { launch(kernel::cuda_sum_kernel__plainloop<k(), T>, shape, sumArray, a); });
}

template <class T>
void warpFirst(int N, const LaunchShape& shape, T* sumArray, const T* a, std::size_t n) {
  withBlockSize(N, [=](auto size) {
    launch(kernel::cuda_sum_kernel__warpFirst<size(), T>, shape, sumArray, a, n);
  });
}

class CudaSumKernels final : public SumKernels {
 public:
  void cuda_sum_kernel__plainloop(int K, const LaunchShape& shape, float* sumArray,
                                  const float* a) override {
    plainloop(K, shape, sumArray, a);
  }
  void cuda_sum_kernel__plainloop(int K, const LaunchShape& shape, double* sumArray,
                                  const double* a) override {
    plainloop(K, shape, sumArray, a);
  }
  void cuda_sum_kernel__warpFirst(int N, const LaunchShape& shape, float* sumArray, const float* a,
                                  std::size_t n) override {
    warpFirst(N, shape, sumArray, a, n);
  }
  void cuda_sum_kernel__warpFirst(int N, const LaunchShape& shape, double* sumArray,
                                  const double* a, std::size_t n) override {
    warpFirst(N, shape, sumArray, a, n);
  }
  void cuda_sum_kernel__warpFirst_shfl(int N, const LaunchShape& shape, float* sumArray,
                                       const float* a, std::size_t n) override {
    withBlockSize(N, [=](auto size) {
      launch(kernel::cuda_sum_kernel__warpFirst_shfl<size()>, shape, sumArray, a, n);
    });
  }
};

}  // namespace

SumKernels& SumKernels::cuda() {
  static CudaSumKernels kernels;
  return kernels;
}

}  // namespace namespace_ratseg
