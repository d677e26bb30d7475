#ifndef RATSEG_TESTS_EMULATED_GPU_TESTS_KERNELS_H
#define RATSEG_TESTS_EMULATED_GPU_TESTS_KERNELS_H

// What the tests of the emulated GPU share: launches, arrays, and ways to say that a program dies.

#include <cuda_runtime.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <set>
#include <utility>
#include <vector>

namespace emulated_gpu {

// Before anything asks for the settings.
inline const bool twoGpus = setenv("RATSEG_EMULATED_GPUS", "2", 1) == 0;

constexpr unsigned kAllLanes = 0xffffffffu;
constexpr int kTries = 40;  // in which an order that is left open must come both ways

struct Shape {
  dim3 grid, block;
  std::size_t sharedBytes = 0;
  cudaStream_t stream = nullptr;
};

template <class... P, class... A>
cudaError_t launch(void (*kernel)(P...), const Shape& shape, A&&... args) {
  cudaLaunchConfig_t config = {};
  config.gridDim = shape.grid;
  config.blockDim = shape.block;
  config.dynamicSmemBytes = shape.sharedBytes;
  config.stream = shape.stream;
  return cudaLaunchKernelEx(&config, kernel, std::forward<A>(args)...);
}

// An array on the current device.
template <class T>
class Array {
 public:
  explicit Array(std::size_t n) : n_(n) {
    void* p = nullptr;
    EXPECT_EQ(cudaMalloc(&p, n * sizeof(T)), cudaSuccess);
    p_ = static_cast<T*>(p);
  }
  Array(std::size_t n, T value) : Array(n) {
    const std::vector<T> all(n, value);
    EXPECT_EQ(cudaMemcpy(p_, all.data(), n * sizeof(T), cudaMemcpyHostToDevice), cudaSuccess);
  }
  ~Array() { cudaFree(p_); }
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;

  T* get() const { return p_; }
  std::vector<T> toHost() const {
    std::vector<T> all(n_);
    EXPECT_EQ(cudaMemcpy(all.data(), p_, n_ * sizeof(T), cudaMemcpyDeviceToHost), cudaSuccess);
    return all;
  }
  T first() const { return toHost()[0]; }

 private:
  std::size_t n_;
  T* p_ = nullptr;
};

// Starts on device 0 and without a pending error.
class EmulatedTest : public ::testing::Test {
 protected:
  void SetUp() override {
    cudaSetDevice(0);
    cudaGetLastError();
  }
  void TearDown() override { EXPECT_EQ(cudaGetLastError(), cudaSuccess); }
};

// Kernels of one thread whose order shows in what they leave.
inline void setTo(int* a, int value) { *a = value; }
inline void timesTen(int* a, int more) { *a = *a * 10 + more; }

// What a kernel does comes to light when the host waits.
inline void finish(cudaError_t launched) {
  EXPECT_EQ(launched, cudaSuccess);
  cudaDeviceSynchronize();
}

// The different values of tries.
template <class F>
auto valuesOf(F oneTry) {
  std::set<decltype(oneTry())> values;
  for (int k = 0; k < kTries; ++k) values.insert(oneTry());
  return values;
}

// Expects a call to fail with this error, and to leave it pending.
#define EXPECT_REFUSED(call, error)          \
  do {                                       \
    EXPECT_EQ(call, error);                  \
    EXPECT_EQ(cudaPeekAtLastError(), error); \
    cudaGetLastError();                      \
  } while (false)

#define EXPECT_FAULT(statement, text) EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT), text)
#define EXPECT_NO_ACCESS(statement) EXPECT_EXIT(statement, testing::KilledBySignal(SIGSEGV), "")

}  // namespace emulated_gpu

#endif
