#ifndef RATSEG_DEVICE_BACKEND_H
#define RATSEG_DEVICE_BACKEND_H

#include <cstddef>

#include "device/types.h"

namespace namespace_ratseg {

// One kind of device machine: the CUDA GPUs, or the host playing devices. Each function is the
// runtime call of the same name (runtime.h) without its prefix. The rules are the CUDA runtime's:
// - a failing call returns its error and also leaves it pending; getLastError returns the pending
//   error and clears it, peekAtLastError returns it and keeps it;
// - memory, events and launches belong to the current device (setDevice);
// - the current device and the pending error are the calling thread's own: each thread starts with
//   device 0 and no error. Any function may be called by several threads at a time;
// - no function throws.
class Backend {
 public:
  virtual ~Backend() = default;

  // True for the host. Code that launches kernels picks its launchers by this.
  virtual bool isHost() const = 0;

  virtual cudaError_t getDeviceCount(int* count) = 0;
  virtual cudaError_t getDeviceProperties(cudaDeviceProp* prop, int device) = 0;
  virtual cudaError_t setDevice(int device) = 0;
  virtual cudaError_t getDevice(int* device) = 0;

  virtual cudaError_t malloc(void** ptr, std::size_t bytes) = 0;
  // Allocates memory that holds zeros. By default malloc and memset; a machine that gets zeroed
  // memory from its system is faster.
  virtual cudaError_t mallocZeroed(void** ptr, std::size_t bytes) {
    const cudaError_t error = malloc(ptr, bytes);
    return error == cudaSuccess ? memset(*ptr, 0, bytes) : error;
  }
  virtual cudaError_t free(void* ptr) = 0;
  virtual cudaError_t memset(void* ptr, int value, std::size_t bytes) = 0;
  virtual cudaError_t memset2D(void* ptr, std::size_t pitch, int value, std::size_t width,
                               std::size_t height) = 0;
  virtual cudaError_t memGetInfo(std::size_t* freeBytes, std::size_t* totalBytes) = 0;

  virtual cudaError_t memcpy(void* dst, const void* src, std::size_t bytes,
                             cudaMemcpyKind kind) = 0;
  virtual cudaError_t memcpyPeer(void* dst, int dstDevice, const void* src, int srcDevice,
                                 std::size_t bytes) = 0;
  virtual cudaError_t deviceCanAccessPeer(int* can, int device, int peer) = 0;
  virtual cudaError_t deviceEnablePeerAccess(int peer, unsigned int flags) = 0;

  virtual cudaError_t deviceSynchronize() = 0;

  virtual cudaError_t eventCreate(cudaEvent_t* event) = 0;
  virtual cudaError_t eventRecord(cudaEvent_t event, cudaStream_t stream) = 0;
  virtual cudaError_t eventSynchronize(cudaEvent_t event) = 0;
  virtual cudaError_t eventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t stop) = 0;
  virtual cudaError_t eventDestroy(cudaEvent_t event) = 0;

  // A created stream and the device's default stream do not wait for each other.
  virtual cudaError_t streamCreate(cudaStream_t* stream) = 0;
  virtual cudaError_t streamDestroy(cudaStream_t stream) = 0;
  virtual cudaError_t streamWaitEvent(cudaStream_t stream, cudaEvent_t event) = 0;

  virtual cudaError_t getLastError() = 0;
  virtual cudaError_t peekAtLastError() = 0;
  virtual const char* getErrorString(cudaError_t error) = 0;
};

}  // namespace namespace_ratseg

#endif
