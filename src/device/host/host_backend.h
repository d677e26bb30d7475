#ifndef RATSEG_DEVICE_HOST_HOST_BACKEND_H
#define RATSEG_DEVICE_HOST_HOST_BACKEND_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device/backend.h"
#include "device/host/host_config.h"
#include "device/host/host_thread_state.h"

namespace namespace_ratseg {

// The host as a machine of one or more devices. Memory is the process's own, device pointers may be
// read and written by the host directly, and every call is finished when it returns.
//
// Any thread may call at any time, but for setObserver. The current device and the pending error
// are each thread's own, at first device 0 and none; memory, events, queues and peer access are the
// machine's.
//
// Stricter than it needs to be, so that mistakes show: copies and fills must lie inside one
// allocation, those between devices on the devices named, and nothing can be freed twice.
// Destroying the backend releases all its memory, as the end of a process does on a GPU.
class HostBackend final : public Backend {
 public:
  // One call that moved data, launched a kernel or waited; what an observer sees.
  struct Call {
    std::string name;       // a kernel's name, or "cudaMemcpy", "cudaMemcpyPeer",
                            // "cudaDeviceSynchronize", "cudaStreamWaitEvent"
    int device = 0;         // the current device at the call
    LaunchShape shape;      // of a kernel launch
    std::size_t bytes = 0;  // of a copy
    int awaited = -1;       // of cudaStreamWaitEvent: the event's device
  };
  using Observer = std::function<void(const Call&)>;

  explicit HostBackend(HostConfig config);
  ~HostBackend() override;

  // Calls observer after each admitted launch, copy or wait from now on; empty = nobody. It runs in
  // the thread of the call, so that several threads may be in it at a time. To be set while no
  // other thread calls the machine.
  void setObserver(Observer observer) { observer_ = std::move(observer); }

  // Opens a kernel launch on the current device. False when the shape is one that a GPU would
  // refuse; the error (cudaErrorInvalidConfiguration for a block of more threads than the device
  // takes, an empty grid or block, or one that is too long in a direction; cudaErrorInvalidValue
  // for too much shared memory) is then pending and the launcher must do nothing.
  bool admitLaunch(const char* kernel, const LaunchShape& shape);

  bool isHost() const override { return true; }

  cudaError_t getDeviceCount(int* count) override;
  cudaError_t getDeviceProperties(cudaDeviceProp* prop, int device) override;
  cudaError_t setDevice(int device) override;
  cudaError_t getDevice(int* device) override;

  cudaError_t malloc(void** ptr, std::size_t bytes) override;
  cudaError_t mallocZeroed(void** ptr, std::size_t bytes) override;
  cudaError_t free(void* ptr) override;
  cudaError_t memset(void* ptr, int value, std::size_t bytes) override;
  cudaError_t memset2D(void* ptr, std::size_t pitch, int value, std::size_t width,
                       std::size_t height) override;
  cudaError_t memGetInfo(std::size_t* freeBytes, std::size_t* totalBytes) override;

  cudaError_t memcpy(void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind) override;
  cudaError_t memcpyPeer(void* dst, int dstDevice, const void* src, int srcDevice,
                         std::size_t bytes) override;
  cudaError_t deviceCanAccessPeer(int* can, int device, int peer) override;
  cudaError_t deviceEnablePeerAccess(int peer, unsigned int flags) override;

  cudaError_t deviceSynchronize() override;

  cudaError_t eventCreate(cudaEvent_t* event) override;
  cudaError_t eventRecord(cudaEvent_t event, cudaStream_t stream) override;
  cudaError_t eventSynchronize(cudaEvent_t event) override;
  cudaError_t eventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t stop) override;
  cudaError_t eventDestroy(cudaEvent_t event) override;

  cudaError_t streamCreate(cudaStream_t* stream) override;
  cudaError_t streamDestroy(cudaStream_t stream) override;
  cudaError_t streamWaitEvent(cudaStream_t stream, cudaEvent_t event) override;

  cudaError_t getLastError() override;
  cudaError_t peekAtLastError() override;
  const char* getErrorString(cudaError_t error) override;

 private:
  struct Event;
  struct Stream {
    int device;  // the one it was made on
  };
  struct Allocation {
    std::size_t bytes;
    int device;
  };

  static constexpr int kAnyDevice = -1;

  HostThreadState& ofThread() const { return hostThreadState(id_); }
  int currentDevice() const { return ofThread().device; }
  cudaError_t fail(cudaError_t error);
  // malloc, with memory from allocate.
  cudaError_t take(void** ptr, std::size_t bytes, void* (*allocate)(std::size_t));
  bool validDevice(int device) const { return device >= 0 && device < config_.devices; }
  // True if the bytes lie inside one allocation of any device.
  bool owns(const void* ptr, std::size_t bytes) const;
  bool endsAreOwn(const void* dst, const void* src, std::size_t bytes, cudaMemcpyKind kind) const;
  // With the mutex held; owns, of any device or of the given one:
  bool contains(const void* ptr, std::size_t bytes, int device) const;
  Event* find(cudaEvent_t event) const;
  bool isOfCurrentDevice(cudaStream_t stream) const;
  void observe(const char* name, std::size_t bytes, const LaunchShape& shape = {});

  const std::uint64_t id_;
  HostConfig config_;
  mutable std::mutex mutex_;                       // guards what follows, up to the observer
  std::map<const char*, Allocation> allocations_;  // by first byte
  std::vector<std::size_t> used_;                  // bytes per device
  std::vector<bool> peerEnabled_;                  // [device * devices + peer]
  std::map<cudaEvent_t, std::unique_ptr<Event>> events_;
  std::map<cudaStream_t, std::unique_ptr<Stream>> streams_;
  Observer observer_;
};

}  // namespace namespace_ratseg

#endif
