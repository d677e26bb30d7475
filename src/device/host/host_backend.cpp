#include "device/host/host_backend.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>

#include "device/ceil_div.h"
#include "device/host/host_launch.h"
#include "device/host/host_memory.h"

namespace namespace_ratseg {

namespace {

// The longest grid and block in each direction, the same on every GPU.
constexpr dim3 kMaxGrid = {0x7fffffff, 65535, 65535};
constexpr dim3 kMaxBlock = {1024, 1024, 64};

bool within(const dim3& shape, const dim3& longest) {
  return shape.x >= 1 && shape.x <= longest.x && shape.y >= 1 && shape.y <= longest.y &&
         shape.z >= 1 && shape.z <= longest.z;
}

std::size_t physicalMemory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long size = sysconf(_SC_PAGE_SIZE);
  return pages > 0 && size > 0 ? static_cast<std::size_t>(pages) * static_cast<std::size_t>(size)
                               : static_cast<std::size_t>(-1);
}

// Copies of so many bytes are shared out to threads.
constexpr std::size_t kLargeCopy = std::size_t{4} << 20;

// Each thread writes a contiguous piece, about the one that it will have of the rows, so that new
// pages are placed near the threads that use them.
void copyInPieces(char* dst, const char* src, std::size_t bytes) {
  constexpr std::size_t kPiece = std::size_t{64} << 10;
  parallelFor(ceilDiv(bytes, kPiece), bytes, [=](std::size_t k) {
    const std::size_t first = k * kPiece;
    std::memcpy(dst + first, src + first, std::min(kPiece, bytes - first));
  });
}

// Like memmove: the blocks may overlap.
void copyBytes(void* dst, const void* src, std::size_t bytes) {
  char* const to = static_cast<char*>(dst);
  const char* const from = static_cast<const char*>(src);
  const std::less_equal<const char*> notBehind;
  const bool apart = notBehind(to + bytes, from) || notBehind(from + bytes, to);
  if (apart && bytes >= kLargeCopy) {
    copyInPieces(to, from, bytes);
  } else {
    std::memmove(dst, src, bytes);
  }
}

// The properties that limit launches, without a device's name, which takes time to write.
const cudaDeviceProp& limitsOf(const HostConfig& config, std::size_t device) {
  static const cudaDeviceProp host = defaultHostProperties();
  return device < config.properties.size() ? config.properties[device] : host;
}

}  // namespace

struct HostBackend::Event {
  int device;  // the one it was made on
  std::chrono::steady_clock::time_point time = {};
  bool recorded = false;
};

HostBackend::HostBackend(HostConfig config)
    : id_(newHostMachine()),
      config_(std::move(config)),
      used_(static_cast<std::size_t>(config_.devices)),
      peerEnabled_(static_cast<std::size_t>(config_.devices) *
                   static_cast<std::size_t>(config_.devices)) {
  if (config_.memoryBytes == 0) config_.memoryBytes = physicalMemory();
}

HostBackend::~HostBackend() {
  forgetHostThreadState(id_);
  for (const auto& [ptr, allocation] : allocations_) {
    releaseHostMemory(const_cast<char*>(ptr), allocation.bytes);
  }
}

cudaError_t HostBackend::fail(cudaError_t error) {
  ofThread().pending = error;
  return error;
}

void HostBackend::observe(const char* name, std::size_t bytes, const LaunchShape& shape) {
  if (observer_) observer_(Call{name, currentDevice(), shape, bytes, -1});
}

bool HostBackend::admitLaunch(const char* kernel, const LaunchShape& shape) {
  const int device = currentDevice();
  if (!validDevice(device)) {
    fail(cudaErrorInvalidDevice);
    return false;
  }
  const cudaDeviceProp& prop = limitsOf(config_, static_cast<std::size_t>(device));
  const unsigned long long threads = 1ull * shape.block.x * shape.block.y * shape.block.z;
  if (!within(shape.grid, kMaxGrid) || !within(shape.block, kMaxBlock) ||
      threads > static_cast<unsigned long long>(prop.maxThreadsPerBlock)) {
    fail(cudaErrorInvalidConfiguration);
    return false;
  }
  if (shape.sharedBytes > prop.sharedMemPerBlockOptin) {
    fail(cudaErrorInvalidValue);
    return false;
  }
  observe(kernel, 0, shape);
  return true;
}

cudaError_t HostBackend::getDeviceCount(int* count) {
  *count = config_.devices;
  return config_.devices > 0 ? cudaSuccess : fail(cudaErrorNoDevice);
}

cudaError_t HostBackend::getDeviceProperties(cudaDeviceProp* prop, int device) {
  if (!validDevice(device)) return fail(cudaErrorInvalidDevice);
  const auto index = static_cast<std::size_t>(device);
  *prop = index < config_.properties.size() ? config_.properties[index] : defaultHostProperties();
  return cudaSuccess;
}

cudaError_t HostBackend::setDevice(int device) {
  if (!validDevice(device)) return fail(cudaErrorInvalidDevice);
  ofThread().device = device;
  return cudaSuccess;
}

cudaError_t HostBackend::getDevice(int* device) {
  if (config_.devices == 0) return fail(cudaErrorNoDevice);
  *device = currentDevice();
  return cudaSuccess;
}

cudaError_t HostBackend::malloc(void** ptr, std::size_t bytes) {
  return take(ptr, bytes, allocateHostMemory);
}

cudaError_t HostBackend::mallocZeroed(void** ptr, std::size_t bytes) {
  return take(ptr, bytes, allocateZeroedHostMemory);
}

cudaError_t HostBackend::take(void** ptr, std::size_t bytes, void* (*allocate)(std::size_t)) {
  if (config_.devices == 0) return fail(cudaErrorNoDevice);
  if (bytes == 0) {
    *ptr = nullptr;
    return cudaSuccess;
  }
  const int device = currentDevice();
  const std::lock_guard lock(mutex_);
  std::size_t& used = used_[static_cast<std::size_t>(device)];
  if (bytes > config_.memoryBytes || used > config_.memoryBytes - bytes) {
    return fail(cudaErrorMemoryAllocation);
  }
  void* memory = allocate(bytes);
  if (memory == nullptr) return fail(cudaErrorMemoryAllocation);
  used += bytes;
  allocations_.emplace(static_cast<const char*>(memory), Allocation{bytes, device});
  *ptr = memory;
  return cudaSuccess;
}

cudaError_t HostBackend::free(void* ptr) {
  if (ptr == nullptr) return cudaSuccess;
  std::size_t bytes = 0;
  {
    const std::lock_guard lock(mutex_);
    const auto it = allocations_.find(static_cast<const char*>(ptr));
    if (it == allocations_.end()) return fail(cudaErrorInvalidDevicePointer);
    bytes = it->second.bytes;
    used_[static_cast<std::size_t>(it->second.device)] -= bytes;
    allocations_.erase(it);
  }
  releaseHostMemory(ptr, bytes);
  return cudaSuccess;
}

bool HostBackend::owns(const void* ptr, std::size_t bytes) const {
  const std::lock_guard lock(mutex_);
  return contains(ptr, bytes, kAnyDevice);
}

bool HostBackend::contains(const void* ptr, std::size_t bytes, int device) const {
  const char* first = static_cast<const char*>(ptr);
  auto it = allocations_.upper_bound(first);
  if (it == allocations_.begin()) return false;
  --it;
  if (device != kAnyDevice && device != it->second.device) return false;
  const auto offset = static_cast<std::size_t>(first - it->first);
  return offset <= it->second.bytes && bytes <= it->second.bytes - offset;
}

cudaError_t HostBackend::memset(void* ptr, int value, std::size_t bytes) {
  if (bytes == 0) return cudaSuccess;
  if (!owns(ptr, bytes)) return fail(cudaErrorInvalidValue);
  std::memset(ptr, value, bytes);
  return cudaSuccess;
}

cudaError_t HostBackend::memset2D(void* ptr, std::size_t pitch, int value, std::size_t width,
                                  std::size_t height) {
  if (width == 0 || height == 0) return cudaSuccess;
  const bool countable = height - 1 <= (SIZE_MAX - width) / std::max<std::size_t>(pitch, 1);
  if (width > pitch || !countable || !owns(ptr, pitch * (height - 1) + width)) {
    return fail(cudaErrorInvalidValue);
  }
  for (std::size_t y = 0; y < height; ++y) {
    std::memset(static_cast<char*>(ptr) + y * pitch, value, width);
  }
  return cudaSuccess;
}

cudaError_t HostBackend::memGetInfo(std::size_t* freeBytes, std::size_t* totalBytes) {
  if (config_.devices == 0) return fail(cudaErrorNoDevice);
  *totalBytes = config_.memoryBytes;
  const std::lock_guard lock(mutex_);
  *freeBytes = config_.memoryBytes - used_[static_cast<std::size_t>(currentDevice())];
  return cudaSuccess;
}

// True if each end of the copy that should be device memory is.
bool HostBackend::endsAreOwn(const void* dst, const void* src, std::size_t bytes,
                             cudaMemcpyKind kind) const {
  const std::lock_guard lock(mutex_);
  return (kind == cudaMemcpyDeviceToHost || contains(dst, bytes, kAnyDevice)) &&
         (kind == cudaMemcpyHostToDevice || contains(src, bytes, kAnyDevice));
}

cudaError_t HostBackend::memcpy(void* dst, const void* src, std::size_t bytes,
                                cudaMemcpyKind kind) {
  if (bytes == 0) return cudaSuccess;
  if (dst == nullptr || src == nullptr || !endsAreOwn(dst, src, bytes, kind)) {
    return fail(cudaErrorInvalidValue);
  }
  copyBytes(dst, src, bytes);
  observe("cudaMemcpy", bytes);
  return cudaSuccess;
}

cudaError_t HostBackend::memcpyPeer(void* dst, int dstDevice, const void* src, int srcDevice,
                                    std::size_t bytes) {
  if (!validDevice(dstDevice) || !validDevice(srcDevice)) return fail(cudaErrorInvalidDevice);
  if (bytes == 0) return cudaSuccess;
  {
    const std::lock_guard lock(mutex_);
    if (!contains(dst, bytes, dstDevice) || !contains(src, bytes, srcDevice)) {
      return fail(cudaErrorInvalidValue);
    }
  }
  copyBytes(dst, src, bytes);
  observe("cudaMemcpyPeer", bytes);
  return cudaSuccess;
}

cudaError_t HostBackend::deviceCanAccessPeer(int* can, int device, int peer) {
  if (!validDevice(device) || !validDevice(peer)) return fail(cudaErrorInvalidDevice);
  *can = device != peer && config_.peer ? 1 : 0;
  return cudaSuccess;
}

cudaError_t HostBackend::deviceEnablePeerAccess(int peer, unsigned int flags) {
  const int device = currentDevice();
  if (!validDevice(peer) || peer == device || !config_.peer) return fail(cudaErrorInvalidDevice);
  if (flags != 0) return fail(cudaErrorInvalidValue);
  const std::lock_guard lock(mutex_);
  const auto index = static_cast<std::size_t>(device) * static_cast<std::size_t>(config_.devices) +
                     static_cast<std::size_t>(peer);
  if (peerEnabled_[index]) return fail(cudaErrorPeerAccessAlreadyEnabled);
  peerEnabled_[index] = true;
  return cudaSuccess;
}

cudaError_t HostBackend::deviceSynchronize() {
  if (config_.devices == 0) return fail(cudaErrorNoDevice);
  observe("cudaDeviceSynchronize", 0);
  return cudaSuccess;
}

HostBackend::Event* HostBackend::find(cudaEvent_t event) const {
  const auto it = events_.find(event);
  return it == events_.end() ? nullptr : it->second.get();
}

cudaError_t HostBackend::eventCreate(cudaEvent_t* event) {
  if (config_.devices == 0) return fail(cudaErrorNoDevice);
  auto made = std::make_unique<Event>(Event{currentDevice()});
  const std::lock_guard lock(mutex_);
  *event = made.get();
  events_.emplace(*event, std::move(made));
  return cudaSuccess;
}

cudaError_t HostBackend::eventRecord(cudaEvent_t event, cudaStream_t stream) {
  const std::lock_guard lock(mutex_);
  Event* e = find(event);
  if (e == nullptr || e->device != currentDevice() || !isOfCurrentDevice(stream))
    return fail(cudaErrorInvalidResourceHandle);
  e->time = std::chrono::steady_clock::now();
  e->recorded = true;
  return cudaSuccess;
}

cudaError_t HostBackend::eventSynchronize(cudaEvent_t event) {
  const std::lock_guard lock(mutex_);
  return find(event) != nullptr ? cudaSuccess : fail(cudaErrorInvalidResourceHandle);
}

cudaError_t HostBackend::eventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t stop) {
  const std::lock_guard lock(mutex_);
  const Event* first = find(start);
  const Event* last = find(stop);
  if (first == nullptr || last == nullptr || !first->recorded || !last->recorded ||
      first->device != last->device) {
    return fail(cudaErrorInvalidResourceHandle);
  }
  *ms = std::chrono::duration<float, std::milli>(last->time - first->time).count();
  return cudaSuccess;
}

cudaError_t HostBackend::eventDestroy(cudaEvent_t event) {
  const std::lock_guard lock(mutex_);
  return events_.erase(event) == 1 ? cudaSuccess : fail(cudaErrorInvalidResourceHandle);
}

// A null stream is every device's default one.
bool HostBackend::isOfCurrentDevice(cudaStream_t stream) const {
  if (stream == nullptr) return true;
  const auto it = streams_.find(stream);
  return it != streams_.end() && it->second->device == currentDevice();
}

cudaError_t HostBackend::streamCreate(cudaStream_t* stream) {
  if (config_.devices == 0) return fail(cudaErrorNoDevice);
  auto made = std::make_unique<Stream>(Stream{currentDevice()});
  const std::lock_guard lock(mutex_);
  *stream = made.get();
  streams_.emplace(*stream, std::move(made));
  return cudaSuccess;
}

cudaError_t HostBackend::streamDestroy(cudaStream_t stream) {
  const std::lock_guard lock(mutex_);
  return streams_.erase(stream) == 1 ? cudaSuccess : fail(cudaErrorInvalidResourceHandle);
}

cudaError_t HostBackend::streamWaitEvent(cudaStream_t stream, cudaEvent_t event) {
  int awaited = -1;
  {
    const std::lock_guard lock(mutex_);
    const Event* e = find(event);
    if (e == nullptr || !isOfCurrentDevice(stream)) return fail(cudaErrorInvalidResourceHandle);
    awaited = e->device;
  }
  if (observer_) observer_(Call{"cudaStreamWaitEvent", currentDevice(), {}, 0, awaited});
  return cudaSuccess;
}

cudaError_t HostBackend::getLastError() { return std::exchange(ofThread().pending, cudaSuccess); }

cudaError_t HostBackend::peekAtLastError() { return ofThread().pending; }

const char* HostBackend::getErrorString(cudaError_t error) {
  switch (error) {
    case cudaSuccess:
      return "no error";
    case cudaErrorMemoryAllocation:
      return "out of memory";
    case cudaErrorInvalidDeviceFunction:
      return "invalid device function";
    case cudaErrorInvalidConfiguration:
      return "invalid configuration argument";
    case cudaErrorInvalidDevice:
      return "invalid device ordinal";
    case cudaErrorInvalidValue:
      return "invalid argument";
    case cudaErrorInvalidDevicePointer:
      return "invalid device pointer";
    case cudaErrorInvalidResourceHandle:
      return "invalid resource handle";
    case cudaErrorInsufficientDriver:
      return "CUDA driver version is insufficient for CUDA runtime version";
    case cudaErrorNoDevice:
      return "no CUDA-capable device is detected";
    case cudaErrorPeerAccessAlreadyEnabled:
      return "peer access is already enabled";
  }
  return "unknown error";
}

}  // namespace namespace_ratseg
