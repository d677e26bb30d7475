#ifndef RATSEG_UTIL_SUM_KERNELS_H
#define RATSEG_UTIL_SUM_KERNELS_H

// Arithmetic of the summation kernels, which host and CUDA launchers share. T is float or double.

#include <cstddef>
#include <type_traits>

#include "device/types.h"

namespace namespace_ratseg {

// cuda_sum_kernel__plainloop<K>: a[0] + a[1] + ... + a[K-1], added left to right.
template <int K, class T>
RATSEG_HD T sumPlain(const T* a) {
  T sum = a[0];
  for (int k = 1; k < K; ++k) sum += a[k];
  return sum;
}

// a[2i] + a[2i+1], where elements past the end of a[0 .. n-1] count as 0. Whole says that both
// exist.
template <bool Whole, class T>
RATSEG_HD T sumPair(const T* a, std::size_t n, std::size_t i) {
  const T first = Whole || 2 * i < n ? a[2 * i] : T(0);
  const T second = Whole || 2 * i + 1 < n ? a[2 * i + 1] : T(0);
  return first + second;
}

// Threads of a block that add up together, at most a warp.
template <int N>
inline constexpr int kWarpThreads = N < 32 ? N : 32;

// cuda_sum_kernel__warpFirst<N> and cuda_sum_kernel__warpFirst_shfl<N>: block b adds up its 2N of
// the n elements of a, in an order that depends on N alone. Each thread t holds the sum of a pair;
// the threads of each warp add theirs up in a tree; thread 0 adds the warps' sums in order and
// writes sumArray[b].
//
// Threads is how the threads of a block hold and exchange their values:
//   load(f)          gives each thread t the value f(t)
//   addAbove<K>()    adds to each of the first K threads of every warp the value K threads above
//   first(f)         runs f once, in thread 0, when all warps have come here
//   warpSum(w)       in f: the value of the first thread of warp w
// Whole says that all 2N elements exist.
template <int N, bool Whole, class T, class Threads>
RATSEG_HD void sumBlock(Threads& threads, T* sumArray, const T* a, std::size_t n, std::size_t b) {
  threads.load([=](int t) { return sumPair<Whole>(a, n, b * N + static_cast<std::size_t>(t)); });
  if constexpr (N >= 32) threads.template addAbove<16>();
  if constexpr (N >= 16) threads.template addAbove<8>();
  if constexpr (N >= 8) threads.template addAbove<4>();
  threads.template addAbove<2>();
  threads.template addAbove<1>();
  threads.first([&] {
    T sum = threads.warpSum(0);
    for (int w = 1; w < N / 32; ++w) sum += threads.warpSum(w);
    sumArray[b] = sum;
  });
}

// Calls f with the compile-time constant of value, which must be one that there are kernels for:
// K = 1 to 4 elements of a plain loop, N = 4 to 256 threads of a block.
template <class F>
void withLoopLength(int value, F&& f) {
  switch (value) {
    case 1:
      return f(std::integral_constant<int, 1>());
    case 2:
      return f(std::integral_constant<int, 2>());
    case 3:
      return f(std::integral_constant<int, 3>());
    case 4:
      return f(std::integral_constant<int, 4>());
  }
}
template <class F>
void withBlockSize(int value, F&& f) {
  switch (value) {
    case 4:
      return f(std::integral_constant<int, 4>());
    case 8:
      return f(std::integral_constant<int, 8>());
    case 16:
      return f(std::integral_constant<int, 16>());
    case 32:
      return f(std::integral_constant<int, 32>());
    case 64:
      return f(std::integral_constant<int, 64>());
    case 96:
      return f(std::integral_constant<int, 96>());
    case 128:
      return f(std::integral_constant<int, 128>());
    case 160:
      return f(std::integral_constant<int, 160>());
    case 192:
      return f(std::integral_constant<int, 192>());
    case 224:
      return f(std::integral_constant<int, 224>());
    case 256:
      return f(std::integral_constant<int, 256>());
  }
}

}  // namespace namespace_ratseg

#endif
