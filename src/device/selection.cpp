#include "device/selection.h"

#include <cstdlib>
#include <iostream>

#include "device/cuda/cuda_backend.h"
#include "device/host/host_backend.h"

namespace namespace_ratseg {

namespace {

Backend* current = nullptr;

Backend& hostMachine() {
  static HostBackend host(HostConfig::fromEnvironmentOrExit());
  return host;
}

Backend& emptyMachine() {
  static HostBackend none([] {
    HostConfig config;
    config.devices = 0;
    return config;
  }());
  return none;
}

}  // namespace

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
  const char* value = std::getenv("RATSEG_DEVICE");
  if (value == nullptr || *value == '\0') {
    choice = DeviceChoice::automatic;
    return true;
  }
  if (parseDeviceChoice(value, choice)) return true;
  error = "ERROR: RATSEG_DEVICE must be auto, cuda or host, but is \"" + std::string(value) + "\"";
  return false;
}

Backend* cudaBackendIfUsable() {
  if constexpr (kBuiltWithCuda) {
    int count = 0;
    Backend& cuda = cudaBackend();
    const bool usable = cuda.getDeviceCount(&count) == cudaSuccess && count > 0;
    cuda.getLastError();
    if (usable) return &cuda;
  }
  return nullptr;
}

Backend& chooseBackend(DeviceChoice choice, std::ostream& notice) {
  limitHostThreads();
  Backend* chosen = choice == DeviceChoice::host ? nullptr : cudaBackendIfUsable();
  if (chosen == nullptr) {
    chosen = choice == DeviceChoice::cuda ? &emptyMachine() : &hostMachine();
  }
  int count = 0;
  if (choice == DeviceChoice::automatic && chosen->isHost() &&
      chosen->getDeviceCount(&count) == cudaSuccess) {
    notice << "ratseg: no CUDA GPU found, computing on the host with " << hostThreads()
           << (hostThreads() == 1 ? " thread" : " threads") << std::endl;
  }
  chosen->getLastError();
  current = chosen;
  return *chosen;
}

Backend& backend() {
  if (current == nullptr) {
    DeviceChoice choice = DeviceChoice::automatic;
    std::string error;
    if (!deviceChoiceFromEnvironment(choice, error)) {
      std::cerr << error << std::endl;
      std::exit(1);
    }
    chooseBackend(choice, std::cerr);
  }
  return *current;
}

void setBackend(Backend& b) { current = &b; }

BackendScope::BackendScope(Backend& b) : previous_(current) { current = &b; }
BackendScope::~BackendScope() { current = previous_; }

}  // namespace namespace_ratseg
