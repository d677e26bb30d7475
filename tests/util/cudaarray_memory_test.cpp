#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "support/forwarding_backend.h"
#include "support/machine.h"
#include "util/cudaarray.h"

// Arrays on a machine of the test's own: memory, several devices, order of additions.

namespace namespace_ratseg {
namespace {

template <class T>
void expectEmpty(const cudaarray<T>& a) {
  EXPECT_EQ(a.num, 0u);
  EXPECT_EQ(a.ptr, nullptr);
  EXPECT_FALSE(a.isAllocated());
}

int currentDevice() {
  int device = -1;
  cudaGetDevice(&device);
  return device;
}

// Bytes allocated on a device of a host machine.
std::size_t usedOn(int device) {
  const int current = currentDevice();
  cudaSetDevice(device);
  std::size_t bytesFree = 0;
  std::size_t bytesTotal = 0;
  cudaMemGetInfo(&bytesFree, &bytesTotal);
  cudaSetDevice(current);
  return bytesTotal - bytesFree;
}

TEST(CudaArraySum, AddsInIndexOrderInTheElementsPrecision) {
  const HostMachine machine(hostConfig(1));
  cudaarray<float> a(3);
  const float bigFirst[] = {1e8f, 1.0f, -1e8f};
  a.copyFromHost(bigFirst);
  EXPECT_EQ(a.sum(), 0.0f);
  const float bigsTogether[] = {1e8f, -1e8f, 1.0f};
  a.copyFromHost(bigsTogether);
  EXPECT_EQ(a.sum(), 1.0f);
  cudaarray<double> b(3);
  const double doubles[] = {1e8, 1.0, -1e8};
  b.copyFromHost(doubles);
  EXPECT_EQ(b.sum(), 1.0);
}

TEST(CudaArrayMemory, FreeAndDestructorGiveTheMemoryBack) {
  const HostMachine machine(hostConfig(1));
  {
    cudaarray<double> a(100);
    const cudaarray<double> b(a);
    EXPECT_EQ(usedOn(0), 1600u);
    a.free();
    EXPECT_EQ(usedOn(0), 800u);
  }
  EXPECT_EQ(usedOn(0), 0u);
}

TEST(CudaArrayMemory, ReallocatingNeverHoldsTwoBlocksOnOneDevice) {
  const HostMachine machine(hostConfig(1));
  cudaarray<float> a(100);
  a.alloc(100);
  EXPECT_EQ(usedOn(0), 400u);
  a.alloc(200);
  EXPECT_EQ(usedOn(0), 800u);
  a.alloc(0);
  EXPECT_EQ(usedOn(0), 0u);
}

TEST(CudaArrayMemory, AssignmentFreesTheOldBlock) {
  const HostMachine machine(hostConfig(1));
  const cudaarray<float> a(10);
  cudaarray<float> b(1000);
  b = a;
  EXPECT_EQ(usedOn(0), 80u);
}

TEST(CudaArrayMemory, FailedAllocationLeavesAnEmptyArrayAndTheErrorPending) {
  const HostMachine machine(hostConfig(2, true, 1));
  cudaSetDevice(1);
  cudaarray<float> a(10);
  EXPECT_EQ(a.dev, 1);
  EXPECT_EQ(a.alloc(1 << 20), 0u);
  expectEmpty(a);
  EXPECT_EQ(a.dev, 0);
  EXPECT_EQ(cudaGetLastError(), cudaErrorMemoryAllocation);
  EXPECT_EQ(currentDevice(), 1);
  EXPECT_EQ(usedOn(1), 0u);
}

TEST(CudaArrayMemory, MoreElementsThanAddressesAreTooMany) {
  const HostMachine machine(hostConfig(1));
  cudaarray<double> a;
  EXPECT_EQ(a.alloc(std::numeric_limits<std::size_t>::max() / 8 + 2), 0u);
  expectEmpty(a);
  EXPECT_EQ(cudaGetLastError(), cudaErrorMemoryAllocation);
}

TEST(CudaArrayMemory, AnOlderPendingErrorFailsTheAllocationWithoutHoldingMemory) {
  const HostMachine machine(hostConfig(1));
  cudaSetDevice(5);
  cudaarray<float> a;
  EXPECT_EQ(a.alloc(10), 0u);
  expectEmpty(a);
  EXPECT_EQ(usedOn(0), 0u);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidDevice);
}

TEST(CudaArrayMemory, CopyWithoutRoomIsEmptyWithTheErrorPending) {
  const HostMachine machine(hostConfig(1, true, 1));
  const cudaarray<float> a(200000);
  const cudaarray<float> copy(a);
  expectEmpty(copy);
  EXPECT_EQ(cudaGetLastError(), cudaErrorMemoryAllocation);
}

class CudaArrayDevicesTest : public testing::Test {
 protected:
  CudaArrayDevicesTest() : machine_(hostConfig(2)) {}
  HostMachine machine_;
};

TEST_F(CudaArrayDevicesTest, AllocatesOnTheCurrentDevice) {
  cudaSetDevice(1);
  const cudaarray<float> a(10);
  EXPECT_EQ(a.dev, 1);
  EXPECT_EQ(usedOn(1), 40u);
  EXPECT_EQ(usedOn(0), 0u);
}

TEST_F(CudaArrayDevicesTest, SameSizeOnAnotherDeviceLeavesTheOldBlockAlone) {
  cudaarray<float> a(10);
  float* const old = a.ptr;
  cudaSetDevice(1);
  EXPECT_EQ(a.alloc(10), 10u);
  EXPECT_EQ(a.dev, 1);
  EXPECT_EQ(usedOn(0), 40u);
  EXPECT_EQ(usedOn(1), 40u);
  EXPECT_EQ(cudaFree(old), cudaSuccess);
}

// A failing allocation need not write the pointer.
TEST_F(CudaArrayDevicesTest, TheBlockThatIsLeftAloneStaysWhereTheNewOneFails) {
  class Failing final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t malloc(void**, std::size_t) override { return cudaErrorMemoryAllocation; }
    cudaError_t peekAtLastError() override { return cudaErrorMemoryAllocation; }
  };
  cudaarray<float> a(10);
  float* const old = a.ptr;
  cudaSetDevice(1);
  {
    Failing failing(machine_.backend);
    const BackendScope scope(failing);
    EXPECT_EQ(a.alloc(10), 0u);
  }
  expectEmpty(a);
  EXPECT_EQ(usedOn(0), 40u);
  EXPECT_EQ(cudaFree(old), cudaSuccess);
}

TEST_F(CudaArrayDevicesTest, AnotherSizeOnAnotherDeviceFreesTheOldBlock) {
  cudaarray<float> a(10);
  cudaSetDevice(1);
  EXPECT_EQ(a.alloc(11), 11u);
  EXPECT_EQ(a.dev, 1);
  EXPECT_EQ(usedOn(0), 0u);
  EXPECT_EQ(usedOn(1), 44u);
}

TEST_F(CudaArrayDevicesTest, FreeKeepsTheDeviceNumber) {
  cudaSetDevice(1);
  cudaarray<float> a(10);
  cudaSetDevice(0);
  a.free();
  EXPECT_EQ(a.dev, 1);
  EXPECT_EQ(usedOn(1), 0u);
}

TEST_F(CudaArrayDevicesTest, EveryOperationRunsOnTheArraysDeviceAndRestoresTheCurrentOne) {
  cudaSetDevice(1);
  cudaarray<float> a(2);
  cudaSetDevice(0);
  std::vector<int> devices;
  machine_.backend.setObserver(
      [&](const HostBackend::Call& call) { devices.push_back(call.device); });
  float host[] = {1, 2};
  a.copyFromHost(host);
  EXPECT_EQ(currentDevice(), 0);
  a.copyToHost(host);
  EXPECT_EQ(currentDevice(), 0);
  EXPECT_EQ(a.get(1), 2.0f);
  EXPECT_EQ(currentDevice(), 0);
  EXPECT_EQ(a.sum(), 3.0f);
  EXPECT_EQ(currentDevice(), 0);
  const cudaarray<float> copy(a);
  EXPECT_EQ(currentDevice(), 0);
  EXPECT_EQ(devices, std::vector<int>({1, 1, 1, 1, 1}));
  a.setzero();
  EXPECT_EQ(currentDevice(), 0);
  a.free();
  EXPECT_EQ(currentDevice(), 0);
}

// Notes which device was current when memory was filled or released.
class FillAndFreeRecorder final : public ForwardingBackend {
 public:
  using ForwardingBackend::ForwardingBackend;
  cudaError_t memset(void* ptr, int value, std::size_t bytes) override {
    devices.push_back(currentDevice());
    return ForwardingBackend::memset(ptr, value, bytes);
  }
  cudaError_t free(void* ptr) override {
    devices.push_back(currentDevice());
    return ForwardingBackend::free(ptr);
  }
  std::vector<int> devices;
};

TEST_F(CudaArrayDevicesTest, MemoryIsFilledAndReleasedOnTheArraysDevice) {
  FillAndFreeRecorder recorder(machine_.backend);
  const BackendScope scope(recorder);
  cudaSetDevice(1);
  cudaarray<float> a(2);
  cudaSetDevice(0);
  a.setzero();
  a.free();
  EXPECT_EQ(recorder.devices, std::vector<int>({1, 1, 1}));
}

// The device that a scope goes back to is preset to the first.
TEST_F(CudaArrayDevicesTest, WhereTheCurrentDeviceIsUnknownTheFirstOneIsSelectedInTheEnd) {
  class Unknown final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t getDevice(int*) override { return cudaErrorInvalidValue; }
  };
  cudaSetDevice(1);
  cudaarray<float> a(2);
  {
    Unknown unknown(machine_.backend);
    const BackendScope scope(unknown);
    a.setzero();
  }
  EXPECT_EQ(currentDevice(), 0);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

TEST_F(CudaArrayDevicesTest, CopiesStayOnTheDeviceOfTheOriginal) {
  cudaSetDevice(1);
  const cudaarray<float> a(10);
  cudaSetDevice(0);
  const cudaarray<float> copy(a);
  EXPECT_EQ(copy.dev, 1);
  cudaarray<float> assigned(5);
  assigned = a;
  EXPECT_EQ(assigned.dev, 1);
  EXPECT_EQ(usedOn(0), 0u);
  EXPECT_EQ(usedOn(1), 120u);
}

TEST_F(CudaArrayDevicesTest, WrappingRecordsTheCurrentDevice) {
  cudaSetDevice(1);
  float* block = nullptr;
  ASSERT_EQ(cudaMalloc(&block, 12), cudaSuccess);
  const cudaarray<float> a(block, 3);
  EXPECT_EQ(a.dev, 1);
}

}  // namespace
}  // namespace namespace_ratseg
