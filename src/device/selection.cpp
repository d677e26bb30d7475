#include "device/selection.h"
#include "device/console.h"

#include <algorithm>
#include <atomic>
#include <iostream>
#include <mutex>
#include <utility>

#include "device/cuda/cuda_backend.h"
#include "device/environment.h"
#include "device/host/host_backend.h"

namespace namespace_ratseg {

namespace {

std::atomic<Backend*> current = nullptr;

// Both machines are never destroyed: threads may still compute on them while the process ends.
Backend& hostMachine() {
  static HostBackend& host = *new HostBackend(environment().host.orEnd());
  return host;
}

Backend& emptyMachine() {
  static HostBackend& none = *new HostBackend([] {
    HostConfig config;
    config.devices = 0;
    return config;
  }());
  return none;
}

// The maximum compute capability of the GPUs, times 10; 0 without a GPU.
int maxComputeCapability(Backend& cuda) {
  int count = 0, maxCapability = 0;
  if (cuda.getDeviceCount(&count) != cudaSuccess) count = 0;
  for (int i = 0; i < count; ++i) {
    cudaDeviceProp device;
    if (cuda.getDeviceProperties(&device, i) == cudaSuccess) {
      maxCapability = std::max(maxCapability, 10 * device.major + device.minor);
    }
  }
  cuda.getLastError();
  return maxCapability;
}

// " of compute capability 7.5 or higher" if all GPUs are too old for this build's code; otherwise
// empty.
std::string capabilityMissed() {
  if constexpr (kBuiltWithCuda) {
    const int lowest = lowestComputeCapability();
    const int maxCapability = maxComputeCapability(cudaBackend());
    if (0 < maxCapability && maxCapability < lowest) {
      return " of compute capability " + std::to_string(lowest / 10) + "." +
             std::to_string(lowest % 10) + " or higher";
    }
  }
  return "";
}

// The first of several threads chooses, and the others wait for it.
Backend& chooseByEnvironment() {
  const DeviceChoice choice = environment().device.orEnd();
  static std::mutex choosing;
  const std::lock_guard lock(choosing);
  Backend* chosen = current;
  return chosen != nullptr ? *chosen : chooseBackend(choice, console().error());
}

thread_local Backend* ofThread = nullptr;

}  // namespace

Backend& hostBackend() { return hostMachine(); }

bool parseDeviceChoice(const std::string& text, DeviceChoice& choice) {
  if (text == "auto") {
    choice = DeviceChoice::automatic;
  } else if (text == "cuda") {
    choice = DeviceChoice::cuda;
  } else if (text == "host") {
    choice = DeviceChoice::host;
  } else {
    return false;
  }
  return true;
}

bool deviceChoiceFromEnvironment(DeviceChoice& choice, std::string& error) {
  const Setting<DeviceChoice>& wanted = environment().device;
  if (!wanted.error.empty()) {
    error = wanted.error;
    return false;
  }
  choice = wanted.value;
  return true;
}

Backend* cudaBackendIfUsable() {
  if constexpr (kBuiltWithCuda) {
    if (maxComputeCapability(cudaBackend()) >= lowestComputeCapability()) {
      return &cudaBackend();
    }
  }
  return nullptr;
}

Backend& chooseBackend(DeviceChoice choice, std::ostream& notice) {
  limitHostThreads();
  Backend* chosen = choice == DeviceChoice::host ? &hostMachine() : cudaBackendIfUsable();
  if (chosen == nullptr) {
    const std::string missed = capabilityMissed();
    chosen = choice == DeviceChoice::cuda ? &emptyMachine() : &hostMachine();
    int count = 0;
    if (chosen->getDeviceCount(&count) == cudaSuccess) {
      notice << "ratseg: no CUDA GPU" << missed << " found, computing on the host with "
             << hostThreads() << (hostThreads() == 1 ? " thread" : " threads") << std::endl;
    } else if (!missed.empty()) {
      notice << "ratseg: no CUDA GPU" << missed << " found" << std::endl;
    }
  }
  chosen->getLastError();
  current = chosen;
  return *chosen;
}

Backend& backend() {
  if (ofThread != nullptr) return *ofThread;
  Backend* b = current.load(std::memory_order_acquire);
  return b != nullptr ? *b : chooseByEnvironment();
}

void setBackend(Backend& b) { current = &b; }

BackendScope::BackendScope(Backend& b) : previous_(current.exchange(&b)) {}
BackendScope::~BackendScope() { current = previous_; }

ThreadBackendScope::ThreadBackendScope(Backend& b) : previous_(std::exchange(ofThread, &b)) {}
ThreadBackendScope::~ThreadBackendScope() { ofThread = previous_; }

}  // namespace namespace_ratseg
