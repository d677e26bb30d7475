#include "util/sum.h"
#include "device/console.h"

#include <algorithm>
#include <iostream>
#include <type_traits>
#include <utility>

#include "device/ceil_div.h"
#include "device/source_location.h"
#include "util/cudadefs.h"
#include "util/cudautil.h"
#include "util/sum_launch.h"

namespace namespace_ratseg {

namespace {

// The path and some of the lines that checks print: fixed, because what a failed call prints is
// known by them, so they are not the lines that the checks stand in.
constexpr const char* kFile = "src/util/sum";
constexpr unsigned long kLineOfScratch = 148;
constexpr unsigned long kLineOfSecondScratch = 153;
constexpr unsigned long kLineOfOneElement = 186;

constexpr std::size_t kMaxPlain = 4;        // elements that one thread adds up
constexpr std::size_t kMaxBlockWork = 512;  // elements that one block adds up
constexpr std::size_t kScratchPerElement =
    256;  // elements per partial sum that scratch has room for

// Threads of the smallest block that adds up n > kMaxPlain elements, or the largest there is.
int blockSize(std::size_t n) {
  if (n <= 8) return 4;
  if (n <= 16) return 8;
  if (n <= 32) return 16;
  return static_cast<int>(32 * ceilDiv(std::min(n, kMaxBlockWork), 64));
}

// Elements of shared memory: beside a slot per thread there is room for what the last half warp
// reads behind the end when all threads of a warp add in every step.
std::size_t sharedElements(int threads) {
  return static_cast<std::size_t>(threads + std::min(threads / 2, 16));
}

std::size_t sharedElementsShuffle(int threads) {
  return threads <= 32 ? 0 : static_cast<std::size_t>(threads / 32);
}

}  // namespace

template <class T>
cuda_summator<T>::cuda_summator() : sm(CudaUtil::cudaArch()) {}

template <class T>
cuda_summator<T>::~cuda_summator() {
  free();
}

template <class T>
void cuda_summator<T>::sumup(T* sum, const T* a, std::size_t n) {
  if (n == 0) {
    cudaMemset(sum, 0, sizeof(T));
    return;
  }
  if (n_saved == 0 || n_saved < n) {
    freeTempArrays();
    allocTempArrays(n);
  }
  const T* src = a;
  T* scratch = temp1;
  T* nextScratch = temp2;
  for (bool done = false; !done;) {
    const std::size_t blocks = ceilDiv(n, kMaxBlockWork);
    done = blocks == 1;
    T* dst = done ? sum : scratch;
    if (dst == nullptr) {
      freeTempArrays();  // so that the next call asks for memory again
      return;
    }
    launch(dst, src, n, blocks);
    if (debug) printPass(a, sum, src, dst, n, blocks);
    n = blocks;
    src = dst;
    std::swap(scratch, nextScratch);
  }
}

template <class T>
void cuda_summator<T>::sumup(T* sum, T* a, int w, int h, std::size_t pitch) {
  const std::size_t rowBytes = static_cast<std::size_t>(std::max(w, 0)) * sizeof(T);
  if (w < 0 || h < 0 || pitch < rowBytes) {
    console().error() << "ERROR: (cuda_summator.sumup): " << h << " rows of " << w
                      << " elements don't fit into a pitch of " << pitch << " bytes" << std::endl;
    return;
  }
  const auto rows = static_cast<std::size_t>(h);
  if (pitch > rowBytes) cudaMemset2D(a + w, pitch, 0, pitch - rowBytes, rows);
  sumup(sum, a, pitch / sizeof(T) * rows);
}

template <class T>
T cuda_summator<T>::sumup(const T* a, std::size_t n) {
  if (!prepareTempSum()) return T(0);
  sumup(tempSum.get_ptr(), a, n);
  return readTempSum();
}

template <class T>
T cuda_summator<T>::sumup(T* a, int w, int h, std::size_t pitch) {
  if (!prepareTempSum()) return T(0);
  sumup(tempSum.get_ptr(), a, w, h, pitch);
  return readTempSum();
}

template <class T>
bool cuda_summator<T>::prepareTempSum() {
  if (!tempSum.isAllocated()) allocTempSum();
  return tempSum.isAllocated();
}

template <class T>
T cuda_summator<T>::readTempSum() const {
  T sum = 0;
  cudaMemcpy(&sum, tempSum.get_ptr(), sizeof(T), cudaMemcpyDeviceToHost);
  return sum;
}

// One pass: sums of blocks of n elements of src to dst.
template <class T>
void cuda_summator<T>::launch(T* dst, const T* src, std::size_t n, std::size_t blocks) {
  SumKernels& kernels = sumKernels();
  LaunchShape shape;
  if (n <= kMaxPlain) {
    kernels.cuda_sum_kernel__plainloop(static_cast<int>(n), shape, dst, src);
    if (check) {
      cuda_check(kFile, n == 1 ? kLineOfOneElement : SourceLocation::current().line());
    }
    return;
  }
  const int threads = blockSize(n);
  shape.grid.x = static_cast<unsigned>(blocks);
  shape.block.x = static_cast<unsigned>(threads);
  if constexpr (std::is_same_v<T, float>) {
    if (sm >= 30) {
      shape.sharedBytes = sharedElementsShuffle(threads) * sizeof(T);
      kernels.cuda_sum_kernel__warpFirst_shfl(threads, shape, dst, src, n);
      if (check) cuda_check(kFile);
      return;
    }
  }
  shape.sharedBytes = sharedElements(threads) * sizeof(T);
  kernels.cuda_sum_kernel__warpFirst(threads, shape, dst, src, n);
  if (check) cuda_check(kFile);
}

template <class T>
void cuda_summator<T>::printPass(const T* a, const T* sum, const T* src, const T* dst,
                                 std::size_t n, std::size_t blocks) const {
  const auto nameOf = [&](const T* p) {
    if (p == a) return "input array";
    if (p == temp1.ptr) return "temp1";
    if (p == temp2.ptr) return "temp2";
    if (p == tempSum.ptr) return "tempSum";
    return "output sum";
  };
  console().out() << "sum up " << n << " to ";
  if (dst == sum) {
    console().out() << "final output" << std::endl;
  } else {
    console().out() << blocks << std::endl;
  }
  console().out() << "  src=" << nameOf(src) << std::endl;
  if (dst != sum) console().out() << "  dst=" << nameOf(dst) << std::endl;
}

template <class T>
void cuda_summator<T>::allocTempArrays(std::size_t n) {
  n_saved = n;
  const std::size_t partial = ceilDiv(n, kScratchPerElement);
  if (partial == 1) return;
  temp1.alloc(partial);
  if (check) cuda_check(kFile, kLineOfScratch);
  const std::size_t partial2 = ceilDiv(partial, kScratchPerElement);
  if (partial2 == 1) return;
  temp2.alloc(partial2);
  if (check) cuda_check(kFile, kLineOfSecondScratch);
}

template <class T>
void cuda_summator<T>::freeTempArrays() {
  temp1.free();
  temp2.free();
  n_saved = 0;
}

template <class T>
void cuda_summator<T>::allocTempSum() {
  tempSum.alloc(1);
}

template <class T>
void cuda_summator<T>::freeTempSum() {
  tempSum.free();
}

template <class T>
void cuda_summator<T>::free() {
  freeTempArrays();
  freeTempSum();
}

template class cuda_summator<float>;
template class cuda_summator<double>;

}  // namespace namespace_ratseg
