#ifndef RATSEG_DEVICE_TYPES_H
#define RATSEG_DEVICE_TYPES_H

// Types and error codes of the device runtime. Plain C++: every file may include this one, those
// compiled by nvcc too. Everything sits in namespace_ratseg, so that a program can use ratseg and
// the CUDA headers side by side.

#include <cstddef>

// Marks a pure function that host and GPU launchers share.
#ifdef __CUDACC__
#define RATSEG_HD __host__ __device__
#else
#define RATSEG_HD
#endif

namespace namespace_ratseg {

struct alignas(8) float2 {
  float x, y;
};

struct alignas(16) float4 {
  float x, y, z, w;
};

struct dim3 {
  unsigned int x = 1, y = 1, z = 1;
};

// Error codes, numbered as the 6.0 runtime interface numbers them on every backend. Errors of the
// CUDA runtime that have no name here are carried as kNativeErrorBase + their own number.
enum cudaError_t : int {
  cudaSuccess = 0,
  cudaErrorMemoryAllocation = 2,
  cudaErrorInvalidDeviceFunction = 8,
  cudaErrorInvalidConfiguration = 9,
  cudaErrorInvalidDevice = 10,
  cudaErrorInvalidValue = 11,
  cudaErrorInvalidDevicePointer = 17,
  cudaErrorInvalidResourceHandle = 33,
  cudaErrorInsufficientDriver = 35,
  cudaErrorNoDevice = 38,
  cudaErrorPeerAccessAlreadyEnabled = 50,
};
inline constexpr int kNativeErrorBase = 100000;

enum cudaMemcpyKind {
  cudaMemcpyHostToDevice = 1,
  cudaMemcpyDeviceToHost = 2,
  cudaMemcpyDeviceToDevice = 3
};

// Properties of a device. The first six fields rank devices (CudaUtil::getDevices); the others
// bound launches.
struct cudaDeviceProp {
  char name[256] = {};
  int major = 0;
  int minor = 0;
  int clockRate = 0;  // kHz
  int multiProcessorCount = 0;
  int l2CacheSize = 0;                     // bytes
  int maxThreadsPerBlock = 0;              // threads in one block
  std::size_t sharedMemPerBlock = 0;       // bytes a launch may ask for as it stands
  std::size_t sharedMemPerBlockOptin = 0;  // bytes a kernel may be allowed (>= sharedMemPerBlock)
};

// An event of the backend that made it.
using cudaEvent_t = void*;

// A queue of work of the backend that made it. Null is the device's default queue, for everything
// that names no other.
using cudaStream_t = void*;

// The shape of a kernel launch: blocks, threads in a block, dynamic shared memory in bytes, and the
// queue of the current device that it goes to.
struct LaunchShape {
  dim3 grid;
  dim3 block;
  std::size_t sharedBytes = 0;
  cudaStream_t stream = nullptr;
};

}  // namespace namespace_ratseg

#endif
