#include "device/runtime.h"

#include "device/backend.h"
#include "device/selection.h"

namespace namespace_ratseg {

cudaError_t cudaGetDeviceCount(int* count) { return backend().getDeviceCount(count); }
cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device) {
  return backend().getDeviceProperties(prop, device);
}
cudaError_t cudaSetDevice(int device) { return backend().setDevice(device); }
cudaError_t cudaGetDevice(int* device) { return backend().getDevice(device); }

cudaError_t cudaMalloc(void** ptr, std::size_t bytes) { return backend().malloc(ptr, bytes); }
cudaError_t mallocZeroed(void** ptr, std::size_t bytes) {
  return backend().mallocZeroed(ptr, bytes);
}
cudaError_t cudaFree(void* ptr) { return backend().free(ptr); }
cudaError_t cudaMemset(void* ptr, int value, std::size_t bytes) {
  return backend().memset(ptr, value, bytes);
}
cudaError_t cudaMemset2D(void* ptr, std::size_t pitch, int value, std::size_t width,
                         std::size_t height) {
  return backend().memset2D(ptr, pitch, value, width, height);
}
cudaError_t cudaMemGetInfo(std::size_t* freeBytes, std::size_t* totalBytes) {
  return backend().memGetInfo(freeBytes, totalBytes);
}

cudaError_t cudaMemcpy(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind) {
  return backend().memcpy(dst, src, bytes, kind);
}
cudaError_t cudaMemcpyPeer(void* dst, int dstDevice, const void* src, int srcDevice,
                           std::size_t bytes) {
  return backend().memcpyPeer(dst, dstDevice, src, srcDevice, bytes);
}
cudaError_t cudaDeviceCanAccessPeer(int* can, int device, int peer) {
  return backend().deviceCanAccessPeer(can, device, peer);
}
cudaError_t cudaDeviceEnablePeerAccess(int peer, unsigned int flags) {
  return backend().deviceEnablePeerAccess(peer, flags);
}

cudaError_t cudaDeviceSynchronize() { return backend().deviceSynchronize(); }

cudaError_t cudaEventCreate(cudaEvent_t* event) { return backend().eventCreate(event); }
cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream) {
  return backend().eventRecord(event, stream);
}
cudaError_t cudaEventSynchronize(cudaEvent_t event) { return backend().eventSynchronize(event); }
cudaError_t cudaEventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t stop) {
  return backend().eventElapsedTime(ms, start, stop);
}
cudaError_t cudaEventDestroy(cudaEvent_t event) { return backend().eventDestroy(event); }

cudaError_t cudaStreamCreate(cudaStream_t* stream) { return backend().streamCreate(stream); }
cudaError_t cudaStreamDestroy(cudaStream_t stream) { return backend().streamDestroy(stream); }
cudaError_t cudaStreamWaitEvent(cudaStream_t stream, cudaEvent_t event, unsigned int /*flags*/) {
  return backend().streamWaitEvent(stream, event);
}

cudaError_t cudaGetLastError() { return backend().getLastError(); }
cudaError_t cudaPeekAtLastError() { return backend().peekAtLastError(); }
const char* cudaGetErrorString(cudaError_t error) { return backend().getErrorString(error); }

}  // namespace namespace_ratseg
