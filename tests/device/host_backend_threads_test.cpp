// What is each thread's own on a host machine, and what is the machine's.

#include <gtest/gtest.h>

#include <optional>
#include <thread>
#include <vector>

#include "device/host/host_backend.h"
#include "device/runtime.h"
#include "support/machine.h"

namespace namespace_ratseg {
namespace {

char* allocate(std::size_t bytes) {
  char* block = nullptr;
  EXPECT_EQ(cudaMalloc(&block, bytes), cudaSuccess);
  return block;
}

// Three devices that reach each other, 1 MiB each.
class HostBackendThreads : public testing::Test {
 protected:
  HostBackendThreads() : machine_(hostConfig(3, true, 1)) {}
  HostMachine machine_;
};

// Calls body in another thread, to its end.
template <class Body>
void inAnotherThread(Body&& body) {
  std::thread(body).join();
}

TEST_F(HostBackendThreads, EachThreadHasACurrentDeviceOfItsOwn) {
  cudaSetDevice(2);
  inAnotherThread([] {
    int device = -1;
    cudaGetDevice(&device);
    EXPECT_EQ(device, 0) << "a thread starts with the first device";
    cudaSetDevice(1);
    cudaGetDevice(&device);
    EXPECT_EQ(device, 1);
  });
  int device = -1;
  cudaGetDevice(&device);
  EXPECT_EQ(device, 2);
}

TEST_F(HostBackendThreads, EachThreadHasAnErrorOfItsOwn) {
  cudaSetDevice(7);
  inAnotherThread([] {
    int nothing[1] = {};
    EXPECT_EQ(cudaPeekAtLastError(), cudaSuccess);
    EXPECT_EQ(cudaFree(nothing), cudaErrorInvalidDevicePointer);
    EXPECT_EQ(cudaPeekAtLastError(), cudaErrorInvalidDevicePointer);
  });
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

TEST_F(HostBackendThreads, ThreadsAllocateAndLaunchOnTheirOwnDevice) {
  std::vector<int> launchedOn;
  machine_.backend.setObserver(
      [&](const HostBackend::Call& call) { launchedOn.push_back(call.device); });
  inAnotherThread([this] {
    cudaSetDevice(1);
    allocate(1000);
    machine_.backend.admitLaunch("kernel", {{1, 1, 1}, {1, 1, 1}, 0});
  });
  std::size_t available = 0, total = 0;
  cudaMemGetInfo(&available, &total);
  EXPECT_EQ(available, total);
  cudaSetDevice(1);
  cudaMemGetInfo(&available, &total);
  EXPECT_EQ(total - available, 1000u);
  EXPECT_EQ(launchedOn, std::vector<int>{1});
}

TEST_F(HostBackendThreads, MemoryEventsAndQueuesAreOfAllThreads) {
  char* block = nullptr;
  cudaEvent_t event = nullptr;
  cudaStream_t stream = nullptr;
  inAnotherThread([&] {
    block = allocate(8);
    cudaEventCreate(&event);
    cudaStreamCreate(&stream);
  });
  EXPECT_EQ(cudaMemset(block, 1, 8), cudaSuccess);
  EXPECT_EQ(cudaEventRecord(event, stream), cudaSuccess);
  EXPECT_EQ(cudaStreamDestroy(stream), cudaSuccess);
  EXPECT_EQ(cudaEventDestroy(event), cudaSuccess);
  EXPECT_EQ(cudaFree(block), cudaSuccess);
}

TEST_F(HostBackendThreads, AThreadMayUseSeveralMachinesInTurn) {
  HostBackend other(hostConfig(5));
  other.setDevice(4);
  cudaSetDevice(1);
  other.setDevice(9);
  int device = -1;
  EXPECT_EQ(other.getDevice(&device), cudaSuccess);
  EXPECT_EQ(device, 4);
  EXPECT_EQ(cudaGetDevice(&device), cudaSuccess);
  EXPECT_EQ(device, 1);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
  EXPECT_EQ(other.getLastError(), cudaErrorInvalidDevice);
}

// At the same address, too.
TEST_F(HostBackendThreads, ANewMachineHasNothingOfTheOneBefore) {
  std::optional<HostBackend> machine(hostConfig(3));
  machine->setDevice(2);
  machine->setDevice(3);
  machine.emplace(hostConfig(3));
  int device = -1;
  EXPECT_EQ(machine->peekAtLastError(), cudaSuccess);
  EXPECT_EQ(machine->getDevice(&device), cudaSuccess);
  EXPECT_EQ(device, 0);
}

TEST_F(HostBackendThreads, ThreadsMayAllocateAndFreeAtATime) {
  std::vector<std::thread> threads;
  for (int k = 0; k < 3; ++k) {
    threads.emplace_back([k] {
      cudaSetDevice(k);
      for (std::size_t i = 1; i < 200; ++i) {
        char* block = allocate(3 * i);
        cudaEvent_t event = nullptr;
        EXPECT_EQ(cudaEventCreate(&event), cudaSuccess);
        EXPECT_EQ(cudaMemset(block, k, 3 * i), cudaSuccess);
        EXPECT_EQ(cudaEventRecord(event), cudaSuccess);
        EXPECT_EQ(block[3 * i - 1], k);
        EXPECT_EQ(cudaEventDestroy(event), cudaSuccess);
        EXPECT_EQ(cudaFree(block), cudaSuccess);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int k = 0; k < 3; ++k) {
    std::size_t available = 0, total = 0;
    cudaSetDevice(k);
    cudaMemGetInfo(&available, &total);
    EXPECT_EQ(available, total) << "device " << k;
  }
}

}  // namespace
}  // namespace namespace_ratseg
