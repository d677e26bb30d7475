#include "util/cudautil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "support/forwarding_backend.h"
#include "support/machine.h"
#include "util/cudadefs.h"

// Peer access, bands, memory and architecture.

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;

cudaDeviceProp capability(int major, int minor) {
  cudaDeviceProp prop = defaultHostProperties();
  prop.major = major;
  prop.minor = minor;
  return prop;
}

HostConfig machineOf(const std::vector<cudaDeviceProp>& devices) {
  HostConfig config = hostConfig(static_cast<int>(devices.size()));
  config.properties = devices;
  return config;
}

int currentDevice() {
  int device = -1;
  cudaGetDevice(&device);
  return device;
}

TEST(EnablePeerAccess, EnablesEachPairAndEndsOnTheLastDevice) {
  const HostMachine machine(hostConfig(3));
  int dev[] = {2, 0};
  bool* can = nullptr;
  CudaUtil::enablePeerAccess(dev, 2, &can);
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(can[i]) << i;
  delete[] can;
  EXPECT_EQ(currentDevice(), 0);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(2, 0), cudaErrorPeerAccessAlreadyEnabled);
  cudaSetDevice(2);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(0, 0), cudaErrorPeerAccessAlreadyEnabled);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(1, 0), cudaSuccess);
}

TEST(EnablePeerAccess, DiscardsTheErrorOfAccessThatWasEnabledBefore) {
  const HostMachine machine(hostConfig(2));
  int dev[] = {0, 1};
  CudaUtil::enablePeerAccess(dev, 2);
  EXPECT_FALSE(peekCudaError());
  CudaUtil::enablePeerAccess(dev, 2);
  EXPECT_FALSE(peekCudaError());
}

TEST(EnablePeerAccess, WithoutAccessADeviceStillReachesItself) {
  const HostMachine machine(hostConfig(3, false));
  int dev[] = {0, 1, 2};
  bool* can = nullptr;
  CudaUtil::enablePeerAccess(dev, 3, &can);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) EXPECT_EQ(can[j * 3 + i], i == j) << i << " " << j;
  }
  delete[] can;
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
  EXPECT_EQ(currentDevice(), 2);
}

TEST(EnablePeerAccess, ADeviceListedTwiceReachesItselfInBothPlaces) {
  const HostMachine machine(hostConfig(3, false));
  int dev[] = {1, 2, 1};
  bool* can = nullptr;
  CudaUtil::enablePeerAccess(dev, 3, &can);
  EXPECT_TRUE(can[2 * 3 + 0]);
  EXPECT_TRUE(can[0 * 3 + 2]);
  EXPECT_FALSE(can[1 * 3 + 0]);
  EXPECT_FALSE(can[2 * 3 + 1]);
  delete[] can;
}

TEST(EnablePeerAccess, EntryOfRowJColumnISaysWhetherDeviceIReachesJ) {
  // Where only device 2 reaches device 1, not the other way round.
  class OneWay final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t deviceCanAccessPeer(int* can, int device, int peer) override {
      *can = device == 2 && peer == 1;
      return cudaSuccess;
    }
  };
  HostMachine machine(hostConfig(3));
  OneWay oneWay(machine.backend);
  const BackendScope scope(oneWay);
  int dev[] = {2, 1};
  bool* can = nullptr;
  CudaUtil::enablePeerAccess(dev, 2, &can);
  EXPECT_TRUE(can[1 * 2 + 0]);
  EXPECT_FALSE(can[0 * 2 + 1]);
  delete[] can;
}

TEST(EnablePeerAccess, AnUnansweredQuestionCountsAsAccess) {
  class NoAnswer final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t deviceCanAccessPeer(int*, int, int) override { return cudaErrorInvalidValue; }
  };
  HostMachine machine(hostConfig(2, false));
  NoAnswer noAnswer(machine.backend);
  const BackendScope scope(noAnswer);
  int dev[] = {0, 1};
  bool* can = nullptr;
  CudaUtil::enablePeerAccess(dev, 2, &can);
  EXPECT_TRUE(can[1]);
  EXPECT_TRUE(can[2]);
  delete[] can;
  EXPECT_FALSE(peekCudaError());
}

struct Band {
  int ymin = -7;
  float between = 0.5f;
  int ymax = -7;
};

std::vector<std::pair<int, int>> bands(int h, int ndev) {
  std::vector<Band> records(static_cast<std::size_t>(ndev) + 1);
  CudaUtil::assignYRanges(h, ndev, &records[0].ymin, &records[0].ymax, sizeof(Band));
  EXPECT_EQ(records.back().ymin, -7) << "wrote behind the last record";
  EXPECT_EQ(records.back().ymax, -7) << "wrote behind the last record";
  std::vector<std::pair<int, int>> result;
  for (int k = 0; k < ndev; ++k) {
    const Band& band = records[static_cast<std::size_t>(k)];
    EXPECT_EQ(band.between, 0.5f);
    result.emplace_back(band.ymin, band.ymax);
  }
  return result;
}

using Bands = std::vector<std::pair<int, int>>;

TEST(AssignYRanges, CutsRowsIntoBandsOfEqualHeightAndARest) {
  EXPECT_EQ(bands(10, 4), Bands({{0, 3}, {3, 6}, {6, 9}, {9, 10}}));
  EXPECT_EQ(bands(12, 4), Bands({{0, 3}, {3, 6}, {6, 9}, {9, 12}}));
}

TEST(AssignYRanges, TheLastBandIsInvertedWhenTheOthersHoldMoreThanAllRows) {
  EXPECT_EQ(bands(5, 4), Bands({{0, 2}, {2, 4}, {4, 6}, {6, 5}}));
}

TEST(AssignYRanges, OneDeviceTakesAllRows) { EXPECT_EQ(bands(7, 1), Bands({{0, 7}})); }

TEST(AssignYRanges, MoreDevicesThanRowsLeaveBandsBehindTheImage) {
  EXPECT_EQ(bands(1, 3), Bands({{0, 1}, {1, 2}, {2, 1}}));
}

TEST(AssignYRanges, TallImagesDoNotOverflow) {
  const int h = std::numeric_limits<int>::max();
  EXPECT_EQ(bands(h, 2), Bands({{0, 1 << 30}, {1 << 30, h}}));
}

TEST(AssignYRanges, WithoutYmaxWritesYminOnly) {
  int ymin[] = {-1, -1, -1};
  CudaUtil::assignYRanges(9, 3, ymin, nullptr, sizeof(int));
  EXPECT_THAT(ymin, ElementsAre(0, 3, 6));
}

TEST(AssignYRanges, WithoutDevicesWritesNothing) {
  int ymin = -1;
  int ymax = -1;
  CudaUtil::assignYRanges(9, 0, &ymin, &ymax, sizeof(int));
  EXPECT_EQ(ymin, -1);
  EXPECT_EQ(ymax, -1);
}

// A machine of two devices with 10 MiB each.
class MemGetInfoTest : public testing::Test {
 protected:
  MemGetInfoTest() : machine_(hostConfig(2, true, 10)) {}
  HostMachine machine_;
};

TEST_F(MemGetInfoTest, CountsTheCurrentDeviceAsOftenAsThereAreDevices) {
  void* block = nullptr;
  cudaSetDevice(1);
  ASSERT_EQ(cudaMalloc(&block, 4 << 20), cudaSuccess);
  int dev[] = {0, 0, 0};
  std::size_t memFree = 0;
  std::size_t memTotal = 0;
  CudaUtil::memGetInfo(3, dev, &memFree, &memTotal);
  EXPECT_EQ(memFree, 18u);
  EXPECT_EQ(memTotal, 30u);
  EXPECT_EQ(currentDevice(), 1);
}

TEST_F(MemGetInfoTest, RoundsTheSumsDownNotTheirParts) {
  void* block = nullptr;
  ASSERT_EQ(cudaMalloc(&block, (1 << 20) / 4), cudaSuccess);
  int dev[] = {0, 1};
  std::size_t memFree = 0;
  CudaUtil::memGetInfo(2, dev, &memFree, nullptr);
  EXPECT_EQ(memFree, 19u);
}

TEST_F(MemGetInfoTest, NoDevicesHaveNoMemory) {
  std::size_t memFree = 5;
  std::size_t memTotal = 5;
  CudaUtil::memGetInfo(0, nullptr, &memFree, &memTotal);
  EXPECT_EQ(memFree, 0u);
  EXPECT_EQ(memTotal, 0u);
}

TEST_F(MemGetInfoTest, WritesOnlyWhereItIsAskedTo) {
  int dev[] = {0};
  std::size_t memTotal = 0;
  CudaUtil::memGetInfo(1, dev, nullptr, &memTotal);
  EXPECT_EQ(memTotal, 10u);
  CudaUtil::memGetInfo(0, dev, nullptr, nullptr);
}

TEST(CudaArch, IsTheLesserOfDeviceAndCode) {
  const HostMachine machine(machineOf({capability(1, 1), capability(3, 0), capability(7, 5)}));
  cudaSetDevice(0);
  EXPECT_EQ(CudaUtil::cudaArch(), 11);
  cudaSetDevice(1);
  EXPECT_EQ(CudaUtil::cudaArch(), 30);
  cudaSetDevice(2);
  EXPECT_EQ(CudaUtil::cudaArch(), 30);
  EXPECT_EQ(currentDevice(), 2);
}

TEST(CudaArch, LaunchesOneThread) {
  HostMachine machine(hostConfig(1));
  std::vector<std::string> calls;
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    calls.push_back(call.name);
    if (call.name != "get_CUDA_ARCH") return;
    EXPECT_EQ(call.shape.grid.x * call.shape.grid.y * call.shape.grid.z, 1u);
    EXPECT_EQ(call.shape.block.x * call.shape.block.y * call.shape.block.z, 1u);
    EXPECT_EQ(call.shape.sharedBytes, 0u);
  });
  CudaUtil::cudaArch();
  EXPECT_THAT(calls, ElementsAre("get_CUDA_ARCH", "cudaMemcpy"));
}

TEST(CudaArch, IsZeroWithoutDevices) {
  const HostMachine machine(hostConfig(0));
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(CudaUtil::cudaArch(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CudaArch, IsZeroWithoutMemory) {
  const HostMachine machine(hostConfig(1, true, 1));
  void* block = nullptr;
  ASSERT_EQ(cudaMalloc(&block, 1 << 20), cudaSuccess);
  EXPECT_EQ(CudaUtil::cudaArch(), 0);
}

TEST(CudaArch, IsZeroWhenTheLaunchIsRefusedAndHoldsNoMemory) {
  cudaDeviceProp prop = defaultHostProperties();
  prop.maxThreadsPerBlock = 0;
  const HostMachine machine(machineOf({prop}));
  EXPECT_EQ(CudaUtil::cudaArch(), 0);
  std::size_t bytesFree = 0;
  std::size_t bytesTotal = 0;
  cudaMemGetInfo(&bytesFree, &bytesTotal);
  EXPECT_EQ(bytesFree, bytesTotal);
}

TEST(CudaArch, IsZeroWhenThePropertiesCannotBeRead) {
  class PropertiesFail final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t getDeviceProperties(cudaDeviceProp* prop, int) override {
      *prop = capability(7, 5);
      return setDevice(99);
    }
  };
  HostMachine machine(hostConfig(1));
  PropertiesFail failing(machine.backend);
  // The launch needs the host itself; what comes after it does not.
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    if (call.name == "cudaMemcpy") setBackend(failing);
  });
  EXPECT_EQ(CudaUtil::cudaArch(), 0);
  setBackend(machine.backend);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidDevice);
}

TEST(CudaArch, IsZeroUnderAnOlderPendingErrorWhichStays) {
  const HostMachine machine(hostConfig(1));
  cudaSetDevice(9);
  EXPECT_EQ(CudaUtil::cudaArch(), 0);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidDevice);
}

}  // namespace
}  // namespace namespace_ratseg
