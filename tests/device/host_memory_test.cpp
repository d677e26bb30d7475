#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "device/host/host_backend.h"
#include "device/runtime.h"
#include "support/machine.h"

// Memory of the host's devices.

namespace namespace_ratseg {
namespace {

constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();

// Three devices of 1 MiB each.
class HostMemoryTest : public testing::Test {
 protected:
  static char* allocate(std::size_t bytes) {
    char* block = nullptr;
    EXPECT_EQ(cudaMalloc(&block, bytes), cudaSuccess);
    return block;
  }

  HostMachine machine_{hostConfig(3, true, 1)};
};

std::size_t freeBytes() {
  std::size_t bytesFree = 0;
  std::size_t bytesTotal = 0;
  cudaMemGetInfo(&bytesFree, &bytesTotal);
  return bytesFree;
}

TEST_F(HostMemoryTest, BlocksAreAlignedAsOnADevice) {
  for (const std::size_t bytes : {1, 255, 257}) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(allocate(bytes)) % 256, 0u);
  }
}

TEST_F(HostMemoryTest, NoBytesAreNoBlock) {
  void* block = this;
  EXPECT_EQ(cudaMalloc(&block, 0), cudaSuccess);
  EXPECT_EQ(block, nullptr);
}

TEST_F(HostMemoryTest, MemoryIsLimitedPerDevice) {
  char* block = allocate(600 << 10);
  void* more = nullptr;
  EXPECT_EQ(cudaMalloc(&more, 600 << 10), cudaErrorMemoryAllocation);
  EXPECT_EQ(more, nullptr);
  EXPECT_EQ(cudaGetLastError(), cudaErrorMemoryAllocation);
  EXPECT_EQ(freeBytes(), 424u << 10);
  cudaSetDevice(1);
  EXPECT_EQ(freeBytes(), 1u << 20);
  allocate(1 << 20);
  EXPECT_EQ(freeBytes(), 0u);
  cudaSetDevice(0);
  EXPECT_EQ(cudaFree(block), cudaSuccess);
  EXPECT_EQ(freeBytes(), 1u << 20);
}

TEST_F(HostMemoryTest, AllocationsThatNoMachineHasFail) {
  void* block = nullptr;
  EXPECT_EQ(cudaMalloc(&block, kMax), cudaErrorMemoryAllocation);
  HostConfig boundless = hostConfig(1);
  boundless.memoryBytes = kMax;
  const HostMachine machine(boundless);
  EXPECT_EQ(cudaMalloc(&block, kMax), cudaErrorMemoryAllocation);
}

TEST_F(HostMemoryTest, FreeingWorksFromEveryDevice) {
  char* block = allocate(1000);
  cudaSetDevice(1);
  EXPECT_EQ(cudaFree(block), cudaSuccess);
  EXPECT_EQ(freeBytes(), 1u << 20);
  cudaSetDevice(0);
  EXPECT_EQ(freeBytes(), 1u << 20);
}

TEST_F(HostMemoryTest, OnlyBlocksCanBeFreedAndOnlyOnce) {
  char* block = allocate(1000);
  EXPECT_EQ(cudaFree(block + 1), cudaErrorInvalidDevicePointer);
  EXPECT_EQ(cudaFree(this), cudaErrorInvalidDevicePointer);
  EXPECT_EQ(cudaFree(block), cudaSuccess);
  EXPECT_EQ(cudaFree(block), cudaErrorInvalidDevicePointer);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidDevicePointer);
  EXPECT_EQ(cudaFree(nullptr), cudaSuccess);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

TEST_F(HostMemoryTest, FillsStayInsideOneBlock) {
  char* block = allocate(100);
  EXPECT_EQ(cudaMemset(block + 90, 1, 10), cudaSuccess);
  EXPECT_EQ(cudaMemset(block + 90, 1, 11), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemset(block, 1, kMax), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemset(nullptr, 1, 1), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemset(nullptr, 1, 0), cudaSuccess);
  char host = 5;
  EXPECT_EQ(cudaMemset(&host, 1, 1), cudaErrorInvalidValue);
  EXPECT_EQ(host, 5);
}

TEST_F(HostMemoryTest, RowFillsStayInsideOneBlock) {
  char* block = allocate(100);
  EXPECT_EQ(cudaMemset2D(block, 10, 1, 10, 10), cudaSuccess);
  EXPECT_EQ(cudaMemset2D(block + 5, 10, 1, 5, 10), cudaSuccess);
  EXPECT_EQ(cudaMemset2D(block + 5, 10, 1, 6, 10), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemset2D(block, 10, 1, 11, 2), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemset2D(block, 10, 1, 10, 11), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemset2D(block, kMax / 2 + 1, 1, 1, 3), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemset2D(block, 2, 1, 1, kMax), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemset2D(nullptr, 10, 1, 0, 5), cudaSuccess);
  EXPECT_EQ(cudaMemset2D(nullptr, 10, 1, 5, 0), cudaSuccess);
}

TEST_F(HostMemoryTest, RowFillsLeaveTheBytesBetweenRows) {
  char* block = allocate(11);
  cudaMemset(block, 7, 11);
  EXPECT_EQ(cudaMemset2D(block, 4, 1, 2, 3), cudaSuccess);
  EXPECT_EQ(std::string(block, 11), std::string("\1\1\7\7\1\1\7\7\1\1\7"));
}

TEST_F(HostMemoryTest, CopiesStayInsideOneBlockOnTheirDeviceSides) {
  char* block = allocate(8);
  char* other = allocate(8);
  char host[16] = {};
  EXPECT_EQ(cudaMemcpy(block, host, 8, cudaMemcpyHostToDevice), cudaSuccess);
  EXPECT_EQ(cudaMemcpy(block, host, 9, cudaMemcpyHostToDevice), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemcpy(host, block, 9, cudaMemcpyDeviceToHost), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemcpy(host, host + 8, 8, cudaMemcpyDeviceToHost), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemcpy(host, host + 8, 8, cudaMemcpyHostToDevice), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemcpy(block, host, 8, cudaMemcpyDeviceToDevice), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemcpy(block, other, 8, cudaMemcpyDeviceToDevice), cudaSuccess);
  EXPECT_EQ(cudaMemcpy(nullptr, nullptr, 0, cudaMemcpyDeviceToDevice), cudaSuccess);
}

TEST_F(HostMemoryTest, CopiesFromAndToNowhereAreRefused) {
  char* block = allocate(8);
  EXPECT_EQ(cudaMemcpy(block, nullptr, 8, cudaMemcpyHostToDevice), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemcpy(nullptr, block, 8, cudaMemcpyDeviceToHost), cudaErrorInvalidValue);
}

TEST_F(HostMemoryTest, DestroyingAMachineFreesItsMemory) {
  // Found by the leak checker of sanitizer builds if it did not.
  HostBackend other(hostConfig(1));
  void* block = nullptr;
  ASSERT_EQ(other.malloc(&block, 100), cudaSuccess);
  ASSERT_NE(block, nullptr);
}

}  // namespace
}  // namespace namespace_ratseg
