#include "device/host/host_launch.h"
#include "util/sum_kernels.h"
#include "util/sum_launch.h"

namespace namespace_ratseg {

namespace {

// The threads of one block, run one after the other in each step.
template <int N, class T>
class HostThreads {
 public:
  template <class F>
  void load(F f) {
    for (int t = 0; t < N; ++t) value_[t] = f(t);
  }
  template <int K>
  void addAbove() {
    for (int first = 0; first < N; first += kWarpThreads<N>) {
      for (int t = first; t < first + K; ++t) value_[t] += value_[t + K];
    }
  }
  template <class F>
  void first(F f) {
    f();
  }
  T warpSum(int w) const { return value_[32 * w]; }

 private:
  T value_[N];
};

template <class T>
void plainloop(int K, const LaunchShape& shape, T* sumArray, const T* a) {
  if (!admitHostLaunch("cuda_sum_kernel__plainloop", shape)) return;
  withLoopLength(K, [=](auto k) { sumArray[0] = sumPlain<k()>(a); });
}

template <class T>
void warpFirst(const char* kernel, int N, const LaunchShape& shape, T* sumArray, const T* a,
               std::size_t n) {
  if (!admitHostLaunch(kernel, shape)) return;
  withBlockSize(N, [=, &shape](auto size) {
    parallelFor(shape.grid.x, n, [=](std::size_t b) {
      HostThreads<size(), T> threads;
      if (2 * size() * (b + 1) <= n) {
        sumBlock<size(), true>(threads, sumArray, a, n, b);
      } else {
        sumBlock<size(), false>(threads, sumArray, a, n, b);
      }
    });
  });
}

class HostSumKernels final : public SumKernels {
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
    warpFirst("cuda_sum_kernel__warpFirst", N, shape, sumArray, a, n);
  }
  void cuda_sum_kernel__warpFirst(int N, const LaunchShape& shape, double* sumArray,
                                  const double* a, std::size_t n) override {
    warpFirst("cuda_sum_kernel__warpFirst", N, shape, sumArray, a, n);
  }
  void cuda_sum_kernel__warpFirst_shfl(int N, const LaunchShape& shape, float* sumArray,
                                       const float* a, std::size_t n) override {
    warpFirst("cuda_sum_kernel__warpFirst_shfl", N, shape, sumArray, a, n);
  }
};

}  // namespace

SumKernels& SumKernels::host() {
  static HostSumKernels kernels;
  return kernels;
}

}  // namespace namespace_ratseg
