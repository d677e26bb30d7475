#ifndef RATSEG_DEVICE_RUNTIME_H
#define RATSEG_DEVICE_RUNTIME_H

// The device runtime: the calls that the rest of the program makes, under their usual names. Each
// goes to the current backend (selection.h). Arguments, results and error rules are those of the
// CUDA runtime's calls of the same names; see backend.h for the rules and types.h for the codes.
// Files compiled by nvcc do not include this one.

#include <cstddef>

#include "device/types.h"

namespace namespace_ratseg {

cudaError_t cudaGetDeviceCount(int* count);
cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device);
cudaError_t cudaSetDevice(int device);
cudaError_t cudaGetDevice(int* device);

cudaError_t cudaMalloc(void** ptr, std::size_t bytes);
template <class T>
cudaError_t cudaMalloc(T** ptr, std::size_t bytes) {
  return cudaMalloc(reinterpret_cast<void**>(ptr), bytes);
}
// cudaMalloc of memory that holds zeros: cudaMalloc and cudaMemset on a GPU, less on the host.
cudaError_t mallocZeroed(void** ptr, std::size_t bytes);
cudaError_t cudaFree(void* ptr);
cudaError_t cudaMemset(void* ptr, int value, std::size_t bytes);
cudaError_t cudaMemset2D(void* ptr, std::size_t pitch, int value, std::size_t width,
                         std::size_t height);
cudaError_t cudaMemGetInfo(std::size_t* freeBytes, std::size_t* totalBytes);

cudaError_t cudaMemcpy(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind);
cudaError_t cudaMemcpyPeer(void* dst, int dstDevice, const void* src, int srcDevice,
                           std::size_t bytes);
cudaError_t cudaDeviceCanAccessPeer(int* can, int device, int peer);
cudaError_t cudaDeviceEnablePeerAccess(int peer, unsigned int flags);

cudaError_t cudaDeviceSynchronize();

cudaError_t cudaEventCreate(cudaEvent_t* event);
cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream = nullptr);
cudaError_t cudaEventSynchronize(cudaEvent_t event);
cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t stop);
cudaError_t cudaEventDestroy(cudaEvent_t event);

// Creates a further queue of the current device, independent of its default queue.
cudaError_t cudaStreamCreate(cudaStream_t* stream);
cudaError_t cudaStreamDestroy(cudaStream_t stream);

// Work queued on the stream from now on starts after the event, which may be another device's. The
// host does not wait.
cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned int flags = 0);

cudaError_t cudaGetLastError();
cudaError_t cudaPeekAtLastError();
const char* cudaGetErrorString(cudaError_t error);

// The number to show to a person: the code as types.h numbers it, or the CUDA runtime's own number
// where types.h has no name for it.
inline int cudaErrorNumber(cudaError_t error) {
  return error >= kNativeErrorBase ? error - kNativeErrorBase : error;
}

}  // namespace namespace_ratseg

#endif
