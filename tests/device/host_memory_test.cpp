#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

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

// Small blocks come from the program's own store, large ones from the system.
TEST_F(HostMemoryTest, ZeroedBlocksHoldZerosAfterOthersWereWrittenAndFreed) {
  const HostMachine large(hostConfig(1, true, 64));
  for (const std::size_t bytes : {std::size_t{1000}, std::size_t{9} << 20}) {
    for (int turn = 0; turn < 3; ++turn) {
      char* block = nullptr;
      ASSERT_EQ(mallocZeroed(reinterpret_cast<void**>(&block), bytes), cudaSuccess);
      EXPECT_EQ(std::count(block, block + bytes, '\0'), static_cast<std::ptrdiff_t>(bytes));
      cudaMemset(block, 7, bytes);
      EXPECT_EQ(cudaFree(block), cudaSuccess);
      block = allocate(bytes);
      cudaMemset(block, 9, bytes);
      EXPECT_EQ(cudaFree(block), cudaSuccess);
    }
  }
  EXPECT_EQ(freeBytes(), std::size_t{64} << 20);
}

TEST_F(HostMemoryTest, LargeBlocksTakeNoRoomBeforeTheyAreWritten) {
  const HostMachine large(hostConfig(1, true, 64));
  const std::size_t bytes = std::size_t{32} << 20;
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const auto pagesInUse = [&](char* block) {
    std::vector<unsigned char> used(bytes / page);
    EXPECT_EQ(mincore(block, bytes, used.data()), 0);
    return std::count_if(used.begin(), used.end(), [](unsigned char u) { return (u & 1) != 0; });
  };
  char* block = nullptr;
  ASSERT_EQ(mallocZeroed(reinterpret_cast<void**>(&block), bytes), cudaSuccess);
  EXPECT_EQ(pagesInUse(block), 0);
  cudaMemset(block, 1, bytes);
  EXPECT_EQ(pagesInUse(block), static_cast<std::ptrdiff_t>(bytes / page));
  EXPECT_EQ(cudaFree(block), cudaSuccess);
}

TEST_F(HostMemoryTest, LargeBlocksAreCopiedToTheByte) {
  const HostMachine large(hostConfig(2, true, 64));
  const std::size_t bytes = (std::size_t{5} << 20) + 3;
  std::string text(bytes, ' ');
  for (std::size_t k = 0; k < bytes; ++k) text[k] = static_cast<char>(k * 2654435761u >> 13);
  char* block = allocate(bytes + 70000);
  EXPECT_EQ(cudaMemcpy(block, text.data(), bytes, cudaMemcpyHostToDevice), cudaSuccess);
  EXPECT_EQ(std::string(block, bytes), text);
  // Overlapping ones too, either way.
  EXPECT_EQ(cudaMemcpy(block + 70000, block, bytes, cudaMemcpyDeviceToDevice), cudaSuccess);
  EXPECT_EQ(std::string(block + 70000, bytes), text);
  EXPECT_EQ(cudaMemcpy(block + 1, block + 70000, bytes, cudaMemcpyDeviceToDevice), cudaSuccess);
  EXPECT_EQ(std::string(block + 1, bytes), text);
  cudaSetDevice(1);
  char* other = allocate(bytes);
  EXPECT_EQ(cudaMemcpyPeer(other, 1, block + 1, 0, bytes), cudaSuccess);
  std::string back(bytes, ' ');
  EXPECT_EQ(cudaMemcpy(back.data(), other, bytes, cudaMemcpyDeviceToHost), cudaSuccess);
  EXPECT_EQ(back, text);
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
