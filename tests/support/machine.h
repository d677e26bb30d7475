#ifndef RATSEG_TESTS_SUPPORT_MACHINE_H
#define RATSEG_TESTS_SUPPORT_MACHINE_H

// The machine that a test runs on.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "device/host/host_backend.h"
#include "device/runtime.h"
#include "device/selection.h"

namespace namespace_ratseg {

// A host machine of its own for one scope: nothing of other tests is left on it, and what the test
// leaves behind goes with it.
class HostMachine {
 public:
  explicit HostMachine(const HostConfig& config = {}) : backend(config), scope_(backend) {}
  HostBackend backend;

 private:
  BackendScope scope_;
};

inline HostConfig hostConfig(int devices, bool peer = true, std::size_t memoryMiB = 0) {
  HostConfig config;
  config.devices = devices;
  config.peer = peer;
  config.memoryBytes = memoryMiB << 20;
  return config;
}

// Fixture of the tests that run on every backend: the machine is the one that RATSEG_TEST_DEVICE
// names, and a test for a GPU says SKIPPED where there is none.
class DeviceTest : public testing::Test {
 protected:
  void SetUp() override {
    const char* wanted = std::getenv("RATSEG_TEST_DEVICE");
    if (wanted != nullptr && std::strcmp(wanted, "cuda") == 0) {
      Backend* cuda = cudaBackendIfUsable();
      if (cuda == nullptr) GTEST_SKIP() << "no CUDA GPU on this machine";
      scope_ = std::make_unique<BackendScope>(*cuda);
    } else {
      host_ = std::make_unique<HostMachine>(hostConfig(1));
    }
  }

  bool onHost() const { return host_ != nullptr; }

  static int deviceCount() {
    int count = 0;
    return cudaGetDeviceCount(&count) == cudaSuccess ? count : 0;
  }

 private:
  std::unique_ptr<HostMachine> host_;
  std::unique_ptr<BackendScope> scope_;
};

}  // namespace namespace_ratseg

#endif
