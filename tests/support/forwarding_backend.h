#ifndef RATSEG_TESTS_SUPPORT_FORWARDING_BACKEND_H
#define RATSEG_TESTS_SUPPORT_FORWARDING_BACKEND_H

#include "device/backend.h"

namespace namespace_ratseg {

// Passes every call on to another backend, for tests that override some of them. Kernels cannot be
// launched on it.
class ForwardingBackend : public Backend {
 public:
  explicit ForwardingBackend(Backend& next) : next_(next) {}

  bool isHost() const override { return next_.isHost(); }

  cudaError_t getDeviceCount(int* count) override { return next_.getDeviceCount(count); }
  cudaError_t getDeviceProperties(cudaDeviceProp* prop, int device) override {
    return next_.getDeviceProperties(prop, device);
  }
  cudaError_t setDevice(int device) override { return next_.setDevice(device); }
  cudaError_t getDevice(int* device) override { return next_.getDevice(device); }

  cudaError_t malloc(void** ptr, std::size_t bytes) override { return next_.malloc(ptr, bytes); }
  cudaError_t free(void* ptr) override { return next_.free(ptr); }
  cudaError_t memset(void* ptr, int value, std::size_t bytes) override {
    return next_.memset(ptr, value, bytes);
  }
  cudaError_t memset2D(void* ptr, std::size_t pitch, int value, std::size_t width,
                       std::size_t height) override {
    return next_.memset2D(ptr, pitch, value, width, height);
  }
  cudaError_t memGetInfo(std::size_t* freeBytes, std::size_t* totalBytes) override {
    return next_.memGetInfo(freeBytes, totalBytes);
  }

  cudaError_t memcpy(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind) override {
    return next_.memcpy(dst, src, bytes, kind);
  }
  cudaError_t memcpyPeer(void* dst, int dstDevice, const void* src, int srcDevice,
                         std::size_t bytes) override {
    return next_.memcpyPeer(dst, dstDevice, src, srcDevice, bytes);
  }
  cudaError_t deviceCanAccessPeer(int* can, int device, int peer) override {
    return next_.deviceCanAccessPeer(can, device, peer);
  }
  cudaError_t deviceEnablePeerAccess(int peer, unsigned int flags) override {
    return next_.deviceEnablePeerAccess(peer, flags);
  }

  cudaError_t deviceSynchronize() override { return next_.deviceSynchronize(); }

  cudaError_t eventCreate(cudaEvent_t* event) override { return next_.eventCreate(event); }
  cudaError_t eventRecord(cudaEvent_t event, cudaStream_t stream) override {
    return next_.eventRecord(event, stream);
  }
  cudaError_t eventSynchronize(cudaEvent_t event) override { return next_.eventSynchronize(event); }
  cudaError_t eventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t stop) override {
    return next_.eventElapsedTime(ms, start, stop);
  }
  cudaError_t eventDestroy(cudaEvent_t event) override { return next_.eventDestroy(event); }

  cudaError_t streamCreate(cudaStream_t* stream) override { return next_.streamCreate(stream); }
  cudaError_t streamDestroy(cudaStream_t stream) override { return next_.streamDestroy(stream); }
  cudaError_t streamWaitEvent(cudaStream_t stream, cudaEvent_t event) override {
    return next_.streamWaitEvent(stream, event);
  }

  cudaError_t getLastError() override { return next_.getLastError(); }
  cudaError_t peekAtLastError() override { return next_.peekAtLastError(); }
  const char* getErrorString(cudaError_t error) override { return next_.getErrorString(error); }

 private:
  Backend& next_;
};

// A backend on which one error is pending from the start, whatever its device.
class PendingErrorBackend final : public ForwardingBackend {
 public:
  PendingErrorBackend(Backend& next, cudaError_t error)
      : ForwardingBackend(next), pending_(error) {}

  cudaError_t getLastError() override {
    const cudaError_t error = pending_;
    pending_ = cudaSuccess;
    return error;
  }
  cudaError_t peekAtLastError() override { return pending_; }

 private:
  cudaError_t pending_;
};

}  // namespace namespace_ratseg

#endif
