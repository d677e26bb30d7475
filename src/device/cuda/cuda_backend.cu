#include <cuda_runtime.h>

#include <algorithm>
#include <cstdio>

#include "device/cuda/cuda_backend.h"

namespace namespace_ratseg {

namespace {

// Native errors by name, since the numbers of several changed in version 10.1.
cudaError_t translate(::cudaError_t error) {
  switch (error) {
    case ::cudaSuccess:
      return cudaSuccess;
    case ::cudaErrorMemoryAllocation:
      return cudaErrorMemoryAllocation;
    case ::cudaErrorInvalidDeviceFunction:
      return cudaErrorInvalidDeviceFunction;
    case ::cudaErrorInvalidConfiguration:
      return cudaErrorInvalidConfiguration;
    case ::cudaErrorInvalidDevice:
      return cudaErrorInvalidDevice;
    case ::cudaErrorInvalidValue:
      return cudaErrorInvalidValue;
    case ::cudaErrorInvalidDevicePointer:
      return cudaErrorInvalidDevicePointer;
    case ::cudaErrorInvalidResourceHandle:
      return cudaErrorInvalidResourceHandle;
    case ::cudaErrorInsufficientDriver:
      return cudaErrorInsufficientDriver;
    case ::cudaErrorNoDevice:
      return cudaErrorNoDevice;
    case ::cudaErrorPeerAccessAlreadyEnabled:
      return cudaErrorPeerAccessAlreadyEnabled;
    default:
      return static_cast<cudaError_t>(kNativeErrorBase + static_cast<int>(error));
  }
}

::cudaError_t native(cudaError_t error) {
  switch (error) {
    case cudaSuccess:
      return ::cudaSuccess;
    case cudaErrorMemoryAllocation:
      return ::cudaErrorMemoryAllocation;
    case cudaErrorInvalidDeviceFunction:
      return ::cudaErrorInvalidDeviceFunction;
    case cudaErrorInvalidConfiguration:
      return ::cudaErrorInvalidConfiguration;
    case cudaErrorInvalidDevice:
      return ::cudaErrorInvalidDevice;
    case cudaErrorInvalidValue:
      return ::cudaErrorInvalidValue;
    case cudaErrorInvalidDevicePointer:
      return ::cudaErrorInvalidDevicePointer;
    case cudaErrorInvalidResourceHandle:
      return ::cudaErrorInvalidResourceHandle;
    case cudaErrorInsufficientDriver:
      return ::cudaErrorInsufficientDriver;
    case cudaErrorNoDevice:
      return ::cudaErrorNoDevice;
    case cudaErrorPeerAccessAlreadyEnabled:
      return ::cudaErrorPeerAccessAlreadyEnabled;
    default:
      return static_cast<::cudaError_t>(static_cast<int>(error) - kNativeErrorBase);
  }
}

int attribute(cudaDeviceAttr which, int device) {
  int value = 0;
  ::cudaDeviceGetAttribute(&value, which, device);
  return value;
}

class CudaBackend final : public Backend {
 public:
  bool isHost() const override { return false; }

  cudaError_t getDeviceCount(int* count) override { return translate(::cudaGetDeviceCount(count)); }

  cudaError_t getDeviceProperties(cudaDeviceProp* prop, int device) override {
    ::cudaDeviceProp theirs;
    const ::cudaError_t error = ::cudaGetDeviceProperties(&theirs, device);
    if (error != ::cudaSuccess) return translate(error);
    *prop = cudaDeviceProp{};
    std::snprintf(prop->name, sizeof prop->name, "%s", theirs.name);
    prop->major = theirs.major;
    prop->minor = theirs.minor;
    // The clock rate left the properties record in version 13; the attribute is in all of them.
    prop->clockRate = attribute(cudaDevAttrClockRate, device);
    prop->multiProcessorCount = theirs.multiProcessorCount;
    prop->l2CacheSize = theirs.l2CacheSize;
    prop->maxThreadsPerBlock = theirs.maxThreadsPerBlock;
    prop->sharedMemPerBlock = theirs.sharedMemPerBlock;
    prop->sharedMemPerBlockOptin =
        std::max(theirs.sharedMemPerBlock, theirs.sharedMemPerBlockOptin);
    return cudaSuccess;
  }

  cudaError_t setDevice(int device) override { return translate(::cudaSetDevice(device)); }
  cudaError_t getDevice(int* device) override { return translate(::cudaGetDevice(device)); }

  cudaError_t malloc(void** ptr, std::size_t bytes) override {
    return translate(::cudaMalloc(ptr, bytes));
  }
  cudaError_t free(void* ptr) override { return translate(::cudaFree(ptr)); }
  cudaError_t memset(void* ptr, int value, std::size_t bytes) override {
    return translate(::cudaMemset(ptr, value, bytes));
  }
  cudaError_t memset2D(void* ptr, std::size_t pitch, int value, std::size_t width,
                       std::size_t height) override {
    return translate(::cudaMemset2D(ptr, pitch, value, width, height));
  }
  cudaError_t memGetInfo(std::size_t* freeBytes, std::size_t* totalBytes) override {
    return translate(::cudaMemGetInfo(freeBytes, totalBytes));
  }

  cudaError_t memcpy(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind) override {
    return translate(::cudaMemcpy(dst, src, bytes, static_cast<::cudaMemcpyKind>(kind)));
  }
  cudaError_t memcpyPeer(void* dst, int dstDevice, const void* src, int srcDevice,
                         std::size_t bytes) override {
    return translate(::cudaMemcpyPeer(dst, dstDevice, src, srcDevice, bytes));
  }
  cudaError_t deviceCanAccessPeer(int* can, int device, int peer) override {
    return translate(::cudaDeviceCanAccessPeer(can, device, peer));
  }
  cudaError_t deviceEnablePeerAccess(int peer, unsigned int flags) override {
    return translate(::cudaDeviceEnablePeerAccess(peer, flags));
  }

  cudaError_t deviceSynchronize() override { return translate(::cudaDeviceSynchronize()); }

  cudaError_t eventCreate(cudaEvent_t* event) override {
    return translate(::cudaEventCreate(reinterpret_cast<::cudaEvent_t*>(event)));
  }
  cudaError_t eventRecord(cudaEvent_t event, cudaStream_t stream) override {
    return translate(
        ::cudaEventRecord(static_cast<::cudaEvent_t>(event), static_cast<::cudaStream_t>(stream)));
  }
  cudaError_t eventSynchronize(cudaEvent_t event) override {
    return translate(::cudaEventSynchronize(static_cast<::cudaEvent_t>(event)));
  }
  cudaError_t eventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t stop) override {
    return translate(::cudaEventElapsedTime(ms, static_cast<::cudaEvent_t>(start),
                                            static_cast<::cudaEvent_t>(stop)));
  }
  cudaError_t eventDestroy(cudaEvent_t event) override {
    return translate(::cudaEventDestroy(static_cast<::cudaEvent_t>(event)));
  }
  cudaError_t streamCreate(cudaStream_t* stream) override {
    return translate(::cudaStreamCreateWithFlags(reinterpret_cast<::cudaStream_t*>(stream),
                                                 cudaStreamNonBlocking));
  }
  cudaError_t streamDestroy(cudaStream_t stream) override {
    return translate(::cudaStreamDestroy(static_cast<::cudaStream_t>(stream)));
  }
  cudaError_t streamWaitEvent(cudaStream_t stream, cudaEvent_t event) override {
    return translate(::cudaStreamWaitEvent(static_cast<::cudaStream_t>(stream),
                                           static_cast<::cudaEvent_t>(event), 0));
  }

  cudaError_t getLastError() override { return translate(::cudaGetLastError()); }
  cudaError_t peekAtLastError() override { return translate(::cudaPeekAtLastError()); }
  const char* getErrorString(cudaError_t error) override {
    return ::cudaGetErrorString(native(error));
  }
};

}  // namespace

Backend& cudaBackend() {
  // Never destroyed: threads may still compute while the process ends.
  static CudaBackend& cuda = *new CudaBackend;
  return cuda;
}

int lowestComputeCapability() {
  constexpr int kArchitectures[] = {__CUDA_ARCH_LIST__};  // 100 for each 1.0, the lowest first
  return kArchitectures[0] / 10;
}

}  // namespace namespace_ratseg
