#ifndef RATSEG_TESTS_EMULATED_GPU_CUDA_RUNTIME_H
#define RATSEG_TESTS_EMULATED_GPU_CUDA_RUNTIME_H

// What the CUDA files of this project use of the CUDA language and runtime, for builds in which an
// emulated GPU takes a GPU's place (README.md beside this file). Names, signatures and error rules
// are CUDA's; what is missing here the project does not use.

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <source_location>
#include <tuple>
#include <type_traits>
#include <utility>

#include "threads.h"

#define __host__
#define __device__
#define __global__
#define __shared__ thread_local
#define __launch_bounds__(...)

struct float2 {
  float x, y;
} __attribute__((aligned(8)));
struct float4 {
  float x, y, z, w;
} __attribute__((aligned(16)));
inline float2 make_float2(float x, float y) { return {x, y}; }
inline float4 make_float4(float x, float y, float z, float w) { return {x, y, z, w}; }

struct dim3 {
  unsigned x, y, z;
  constexpr dim3(unsigned x_ = 1, unsigned y_ = 1, unsigned z_ = 1) : x(x_), y(y_), z(z_) {}
};

// ---- The runtime

enum cudaError_t : int {
  cudaSuccess = 0,
  cudaErrorInvalidValue = 1,
  cudaErrorMemoryAllocation = 2,
  cudaErrorInvalidConfiguration = 9,
  cudaErrorInvalidDevicePointer = 17,
  cudaErrorInvalidMemcpyDirection = 21,
  cudaErrorInsufficientDriver = 35,
  cudaErrorInvalidDeviceFunction = 98,
  cudaErrorNoDevice = 100,
  cudaErrorInvalidDevice = 101,
  cudaErrorPeerAccessUnsupported = 217,
  cudaErrorInvalidResourceHandle = 400,
  cudaErrorNotReady = 600,
  cudaErrorPeerAccessAlreadyEnabled = 704,
  cudaErrorStreamCaptureUnsupported = 900,
  cudaErrorStreamCaptureInvalidated = 901,
  cudaErrorStreamCaptureUnjoined = 904,
  cudaErrorStreamCaptureIsolation = 905,
  cudaErrorCapturedEvent = 907,
};

enum cudaMemcpyKind : int {
  cudaMemcpyHostToHost = 0,
  cudaMemcpyHostToDevice = 1,
  cudaMemcpyDeviceToHost = 2,
  cudaMemcpyDeviceToDevice = 3
};
enum cudaDeviceAttr { cudaDevAttrClockRate = 13 };
enum cudaFuncAttribute { cudaFuncAttributeMaxDynamicSharedMemorySize = 8 };
enum cudaStreamCaptureMode { cudaStreamCaptureModeThreadLocal = 1 };
inline constexpr unsigned cudaStreamNonBlocking = 1;

struct cudaDeviceProp {
  char name[256];
  int major, minor, multiProcessorCount, l2CacheSize, maxThreadsPerBlock;
  std::size_t sharedMemPerBlock, sharedMemPerBlockOptin;
};

namespace emulated_gpu {
class Stream;
class Event;
class Graph;
class GraphExec;
}  // namespace emulated_gpu
using cudaStream_t = emulated_gpu::Stream*;
using cudaEvent_t = emulated_gpu::Event*;
using cudaGraph_t = emulated_gpu::Graph*;
using cudaGraphExec_t = emulated_gpu::GraphExec*;

cudaError_t cudaGetDeviceCount(int* count);
cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device);
cudaError_t cudaDeviceGetAttribute(int* value, cudaDeviceAttr which, int device);
cudaError_t cudaSetDevice(int device);
cudaError_t cudaGetDevice(int* device);
cudaError_t cudaMalloc(void** ptr, std::size_t bytes);
cudaError_t cudaFree(void* ptr);
cudaError_t cudaMemset(void* ptr, int value, std::size_t bytes);
cudaError_t cudaMemset2D(void* ptr, std::size_t pitch, int value, std::size_t width,
                         std::size_t height);
cudaError_t cudaMemGetInfo(std::size_t* freeBytes, std::size_t* totalBytes);
cudaError_t cudaMemcpy(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind);
cudaError_t cudaMemcpyPeer(void* dst, int dstDevice, const void* src, int srcDevice,
                           std::size_t bytes);
cudaError_t cudaDeviceCanAccessPeer(int* can, int device, int peer);
cudaError_t cudaDeviceEnablePeerAccess(int peer, unsigned flags);
cudaError_t cudaDeviceSynchronize();
cudaError_t cudaEventCreate(cudaEvent_t* event);
cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream = nullptr);
cudaError_t cudaEventSynchronize(cudaEvent_t event);
cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t stop);
cudaError_t cudaEventDestroy(cudaEvent_t event);
cudaError_t cudaStreamCreateWithFlags(cudaStream_t* stream, unsigned flags);
cudaError_t cudaStreamDestroy(cudaStream_t stream);
cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned flags = 0);
cudaError_t cudaStreamBeginCapture(cudaStream_t stream, cudaStreamCaptureMode mode);
cudaError_t cudaStreamEndCapture(cudaStream_t stream, cudaGraph_t* graph);
cudaError_t cudaGraphInstantiate(cudaGraphExec_t* exec, cudaGraph_t graph,
                                 unsigned long long flags = 0);
cudaError_t cudaGraphLaunch(cudaGraphExec_t exec, cudaStream_t stream);
cudaError_t cudaGraphDestroy(cudaGraph_t graph);
cudaError_t cudaGraphExecDestroy(cudaGraphExec_t exec);
cudaError_t cudaGetLastError();
cudaError_t cudaPeekAtLastError();
const char* cudaGetErrorString(cudaError_t error);

struct cudaLaunchConfig_t {
  dim3 gridDim, blockDim;
  std::size_t dynamicSmemBytes;
  cudaStream_t stream;
};

namespace emulated_gpu {
cudaError_t launch(const void* kernel, const cudaLaunchConfig_t& config,
                   std::function<void()> thread);
cudaError_t setMostDynamicShared(const void* kernel, int bytes);
// It is a fault when an aligned word of these bytes is the address of host memory.
void refuseHostAddresses(const void* argument, std::size_t bytes);

template <class T>
void checkArgument(T value) {
  static_assert(std::is_trivially_copyable_v<T>, "a kernel gets its arguments as bytes");
  if constexpr (sizeof(T) >= sizeof(void*)) {
    __builtin_clear_padding(&value);
    refuseHostAddresses(&value, sizeof value);
  }
}
}  // namespace emulated_gpu

template <class... P, class... A>
cudaError_t cudaLaunchKernelEx(const cudaLaunchConfig_t* config, void (*kernel)(P...),
                               A&&... args) {
  static_assert((!std::is_reference_v<P> && ...), "a kernel cannot take references");
  static_assert((sizeof(P) + ... + 0) <= 4096, "a kernel's arguments have 4 KiB");
  const std::tuple<std::remove_const_t<P>...> values(std::forward<A>(args)...);
  std::apply([](const auto&... value) { (emulated_gpu::checkArgument(value), ...); }, values);
  return emulated_gpu::launch(reinterpret_cast<const void*>(kernel), *config,
                              [kernel, values] { std::apply(kernel, values); });
}

template <class... P>
cudaError_t cudaFuncSetAttribute(void (*kernel)(P...), cudaFuncAttribute, int value) {
  return emulated_gpu::setMostDynamicShared(reinterpret_cast<const void*>(kernel), value);
}

// ---- What a kernel's thread sees

inline thread_local emulated_gpu::Index threadIdx, blockIdx, blockDim, gridDim;

inline void __syncthreads(std::source_location here = std::source_location::current()) {
  emulated_gpu::waitForBlock(here);
}
inline void __syncwarp(unsigned mask = 0xffffffffu) {
  emulated_gpu::exchangeInWarp(mask, nullptr, 0);
}
inline void __threadfence() {}

namespace emulated_gpu {

// The width of a shuffle over that distance.
inline unsigned shuffleWidth(int width, unsigned delta) {
  if (width < 1 || width > 32 || (width & (width - 1)) != 0 || delta > 31) {
    fault("a shuffle's width is no power of two up to 32, or its distance beyond 31");
  }
  return static_cast<unsigned>(width);
}

// The value of a lane of the mask.
template <class T>
T shuffle(unsigned mask, T value, unsigned from) {
  static_assert(std::is_arithmetic_v<T> && (sizeof(T) == 4 || sizeof(T) == 8));
  const auto* lanes =
      static_cast<const std::uint64_t*>(emulated_gpu::exchangeInWarp(mask, &value, sizeof value));
  if (!(mask >> from & 1u)) fault("a shuffle reads a lane outside its mask");
  std::memcpy(&value, lanes + from, sizeof value);
  return value;
}

}  // namespace emulated_gpu

template <class T>
T __shfl_down_sync(unsigned mask, T value, unsigned delta, int width = 32) {
  const unsigned w = emulated_gpu::shuffleWidth(width, delta);
  const unsigned lane = emulated_gpu::lane();
  return emulated_gpu::shuffle(mask, value, lane % w + delta < w ? lane + delta : lane);
}
template <class T>
T __shfl_up_sync(unsigned mask, T value, unsigned delta, int width = 32) {
  const unsigned w = emulated_gpu::shuffleWidth(width, delta);
  const unsigned lane = emulated_gpu::lane();
  return emulated_gpu::shuffle(mask, value, lane % w >= delta ? lane - delta : lane);
}
template <class T>
T __shfl_xor_sync(unsigned mask, T value, int other) {
  if (other < 0 || other > 31) emulated_gpu::fault("a shuffle's distance is beyond 31");
  return emulated_gpu::shuffle(mask, value, emulated_gpu::lane() ^ static_cast<unsigned>(other));
}

// A block's kernels do not run at the same time as another's, and threads give way to each other
// only where they wait, so that atomics need no more than this.
inline unsigned atomicInc(unsigned* address, unsigned most) {
  const unsigned old = *address;
  *address = old >= most ? 0 : old + 1;
  return old;
}
template <class T>
T atomicAdd(T* address, T value) {
  const T old = *address;
  *address = old + value;
  return old;
}

template <class T>
T __ldg(const T* p) {
  if (reinterpret_cast<std::uintptr_t>(p) % alignof(T) != 0) emulated_gpu::fault("misaligned read");
  return *p;
}
template <class T>
T __ldcg(const T* p) {
  return __ldg(p);
}

namespace emulated_gpu {

// Off by up to two units in the last place, as the quick forms of GPUs may be; always the same for
// the same value.
inline float quick(float exact) {
  if (!std::isnormal(exact)) return exact;
  const auto bits = std::bit_cast<std::uint32_t>(exact);
  return std::bit_cast<float>(bits + (bits * 2654435761u >> 16) % 5 - 2);
}

}  // namespace emulated_gpu

inline float rsqrtf(float x) {
  return emulated_gpu::quick(static_cast<float>(1.0 / std::sqrt(static_cast<double>(x))));
}
inline float __fdividef(float a, float b) {
  const bool large = std::isfinite(b) && std::fabs(b) > 0x1p126f;
  return large ? 0.0f * a : emulated_gpu::quick(a / b);
}

#endif
