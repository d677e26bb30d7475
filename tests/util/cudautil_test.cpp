#include "util/cudautil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "support/forwarding_backend.h"
#include "support/machine.h"
#include "util/cudadefs.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;

cudaDeviceProp properties(const char* name, int major, int minor = 0, int clockRate = 0,
                          int multiProcessorCount = 0, int l2CacheSize = 0) {
  cudaDeviceProp prop = defaultHostProperties();
  std::snprintf(prop.name, sizeof prop.name, "%s", name);
  prop.major = major;
  prop.minor = minor;
  prop.clockRate = clockRate;
  prop.multiProcessorCount = multiProcessorCount;
  prop.l2CacheSize = l2CacheSize;
  return prop;
}

HostConfig machineOf(const std::vector<cudaDeviceProp>& devices) {
  HostConfig config = hostConfig(static_cast<int>(devices.size()));
  config.properties = devices;
  return config;
}

// The devices of a machine in ranked order.
std::vector<int> ranked(const std::vector<cudaDeviceProp>& devices) {
  const HostMachine machine(machineOf(devices));
  int* dev = nullptr;
  int count = 0;
  CudaUtil::getDevices(&dev, &count, nullptr, true);
  const std::vector<int> result(dev, dev + count);
  delete[] dev;
  return result;
}

int currentDevice() {
  int device = -1;
  cudaGetDevice(&device);
  return device;
}

struct Output {
  std::string out;
  std::string err;
};

// What run writes.
template <class F>
Output outputOf(F run) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  run();
  Output output;
  output.out = testing::internal::GetCapturedStdout();
  output.err = testing::internal::GetCapturedStderr();
  return output;
}

// A machine that cannot tell its device count, but says 3.
class CountFails final : public ForwardingBackend {
 public:
  CountFails(Backend& next, cudaError_t error) : ForwardingBackend(next), error_(error) {}
  cudaError_t getDeviceCount(int* count) override {
    *count = 3;
    return error_;
  }
  cudaError_t peekAtLastError() override { return error_; }
  cudaError_t getLastError() override { return error_; }

 private:
  cudaError_t error_;
};

TEST(NumDevices, CountsTheDevices) {
  const HostMachine machine(hostConfig(3));
  EXPECT_EQ(CudaUtil::numDevices(), 3);
  EXPECT_TRUE(CudaUtil::hasCuda());
}

TEST(NumDevices, IsZeroWithoutDevicesAndLeavesTheErrorPending) {
  const HostMachine machine(hostConfig(0));
  EXPECT_EQ(CudaUtil::numDevices(), 0);
  EXPECT_FALSE(CudaUtil::hasCuda());
  EXPECT_EQ(cudaGetLastError(), cudaErrorNoDevice);
}

TEST(NumDevices, IsZeroWithoutASufficientDriver) {
  HostMachine machine(hostConfig(1));
  CountFails noDriver(machine.backend, cudaErrorInsufficientDriver);
  const BackendScope scope(noDriver);
  EXPECT_EQ(CudaUtil::numDevices(), 0);
}

TEST(NumDevices, IsWhatWasCountedUnderAnyOtherError) {
  HostMachine machine(hostConfig(1));
  CountFails odd(machine.backend, cudaErrorInvalidValue);
  const BackendScope scope(odd);
  EXPECT_EQ(CudaUtil::numDevices(), 3);
  EXPECT_TRUE(CudaUtil::hasCuda());
}

TEST(DeviceRanking, HigherMajorWinsWhateverTheRest) {
  EXPECT_THAT(ranked({properties("a", 3, 9, 9000, 99, 9999), properties("b", 4)}),
              ElementsAre(1, 0));
}

TEST(DeviceRanking, ComparesMinorThenClockThenMultiprocessorsThenCache) {
  EXPECT_THAT(ranked({properties("a", 3, 0, 9000, 99, 9999), properties("b", 3, 1)}),
              ElementsAre(1, 0));
  EXPECT_THAT(ranked({properties("a", 3, 0, 1000, 99, 9999), properties("b", 3, 0, 1001)}),
              ElementsAre(1, 0));
  EXPECT_THAT(ranked({properties("a", 3, 0, 1000, 10, 9999), properties("b", 3, 0, 1000, 11)}),
              ElementsAre(1, 0));
  EXPECT_THAT(ranked({properties("a", 3, 0, 1000, 10, 1), properties("b", 3, 0, 1000, 10, 2)}),
              ElementsAre(1, 0));
}

TEST(DeviceRanking, EqualDevicesKeepTheirOrder) {
  EXPECT_THAT(ranked({properties("a", 3), properties("b", 5), properties("c", 3),
                      properties("d", 5), properties("e", 3)}),
              ElementsAre(1, 3, 0, 2, 4));
}

TEST(GetDevices, ListsTheDevicesOnOneLineBestFirst) {
  const HostMachine machine(machineOf({properties("Small One", 3), properties("Big One", 5)}));
  int* dev = nullptr;
  int count = 0;
  const Output text = outputOf([&] { CudaUtil::getDevices(&dev, &count); });
  EXPECT_EQ(text.out, "CUDA Devices: [1] Big One, [0] Small One\n");
  EXPECT_EQ(text.err, "");
  delete[] dev;
}

TEST(GetDevices, SilentListsNothing) {
  const HostMachine machine(hostConfig(2));
  int* dev = nullptr;
  int count = 0;
  const Output text = outputOf([&] { CudaUtil::getDevices(&dev, &count, nullptr, true); });
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(text.err, "");
  EXPECT_EQ(count, 2);
  delete[] dev;
}

TEST(GetDevices, HandsOutPropertiesInTheOrderOfTheDevices) {
  const HostMachine machine(machineOf({properties("a", 3), properties("b", 5)}));
  int* dev = nullptr;
  int count = 0;
  cudaDeviceProp* prop = nullptr;
  CudaUtil::getDevices(&dev, &count, &prop, true);
  ASSERT_EQ(count, 2);
  EXPECT_STREQ(prop[0].name, "b");
  EXPECT_STREQ(prop[1].name, "a");
  delete[] dev;
  delete[] prop;
}

TEST(GetDevices, KeepsTheCurrentDeviceAndIsCheckedAtItsEnd) {
  const HostMachine machine(hostConfig(3));
  cudaSetDevice(1);
  const int calls = lastcalls_pos;
  int* dev = nullptr;
  int count = 0;
  CudaUtil::getDevices(&dev, &count, nullptr, true);
  EXPECT_EQ(currentDevice(), 1);
  EXPECT_EQ(lastcalls_pos, (calls + 1) % 30);
  EXPECT_EQ(lastcalls[calls], std::make_pair(std::string("src/util/cudautil"), 174ul));
  delete[] dev;
}

TEST(GetDevices, NullArgumentsAreReported) {
  const HostMachine machine(hostConfig(1));
  int* dev = nullptr;
  int count = 17;
  const char* line = "ERROR (CudaUtil::getDevices()): NULL arguments\n";
  EXPECT_EQ(outputOf([&] { CudaUtil::getDevices(nullptr, &count); }).err, line);
  EXPECT_EQ(count, 17);
  const Output text = outputOf([&] { CudaUtil::getDevices(&dev, nullptr); });
  EXPECT_EQ(text.err, line);
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(dev, nullptr);
}

TEST(GetDevices, WithoutDevicesSaysSoAndLeavesTheOutputsEmpty) {
  const HostMachine machine(hostConfig(0));
  int value = 0;
  int* dev = &value;
  int count = 17;
  cudaDeviceProp record;
  cudaDeviceProp* prop = &record;
  const Output text = outputOf([&] { CudaUtil::getDevices(&dev, &count, &prop); });
  EXPECT_EQ(text.err, "No CUDA Devices\n");
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(dev, nullptr);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(prop, nullptr);
}

TEST(GetDevices, ACountOfZeroWithoutAnErrorMeansNoDevicesToo) {
  class CountsNone final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t getDeviceCount(int* count) override {
      *count = 0;
      return cudaSuccess;
    }
  };
  HostMachine machine(hostConfig(1));
  CountsNone none(machine.backend);
  const BackendScope scope(none);
  int* dev = nullptr;
  int count = 17;
  const Output text = outputOf([&] { CudaUtil::getDevices(&dev, &count); });
  EXPECT_EQ(text.err, "No CUDA Devices\n");
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(count, 0);
}

TEST(GetDevices, AnyOtherErrorOfCountingEndsTheProcess) {
  HostMachine machine(hostConfig(1));
  EXPECT_EXIT(
      {
        dup2(2, 1);
        CountFails noDriver(machine.backend, cudaErrorInsufficientDriver);
        setBackend(noDriver);
        int* dev = nullptr;
        int count = 0;
        CudaUtil::getDevices(&dev, &count);
      },
      ExitedWithCode(1),
      testing::StartsWith("\nsrc/util/cudautil, line 99: CUDA driver version is insufficient for "
                          "CUDA runtime version (35)\n"));
}

TEST(GetDevices, AnErrorWhileListingEndsTheProcess) {
  class PropertiesFail final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t getDeviceProperties(cudaDeviceProp* prop, int) override {
      return ForwardingBackend::getDeviceProperties(prop, 99);
    }
  };
  HostMachine machine(hostConfig(1));
  EXPECT_EXIT(
      {
        dup2(2, 1);
        PropertiesFail failing(machine.backend);
        setBackend(failing);
        int* dev = nullptr;
        int count = 0;
        CudaUtil::getDevices(&dev, &count, nullptr, true);
      },
      ExitedWithCode(1),
      testing::StartsWith("\nsrc/util/cudautil, line 174: invalid device ordinal (10)\n"));
}

TEST(ListDevices, PrintsTheSortedLine) {
  const HostMachine machine(machineOf({properties("a", 3), properties("b", 5)}));
  EXPECT_EQ(outputOf(CudaUtil::listDevices).out, "CUDA Devices: [1] b, [0] a\n");
}

TEST(ListDevices, WithoutDevicesReportsThat) {
  const HostMachine machine(hostConfig(0));
  EXPECT_EQ(outputOf(CudaUtil::listDevices).err, "No CUDA Devices\n");
}

// The best num devices of four with the ranks 2, 0, 3, 1.
std::vector<int> best(int num) {
  const HostMachine machine(
      machineOf({properties("a", 4), properties("b", 6), properties("c", 3), properties("d", 5)}));
  int* dev = nullptr;
  const int count = CudaUtil::getBestDevices(&dev, num, nullptr, true);
  const std::vector<int> result(dev, dev + count);
  delete[] dev;
  return result;
}

TEST(GetBestDevices, HandsOutTheFirstOfTheRanking) {
  EXPECT_THAT(best(1), ElementsAre(1));
  EXPECT_THAT(best(3), ElementsAre(1, 3, 0));
}

TEST(GetBestDevices, HandsOutAllWhenThereAreFewer) {
  EXPECT_THAT(best(4), ElementsAre(1, 3, 0, 2));
  EXPECT_THAT(best(100), ElementsAre(1, 3, 0, 2));
}

TEST(GetBestDevices, ZeroOrLessMeansAll) {
  EXPECT_THAT(best(0), ElementsAre(1, 3, 0, 2));
  EXPECT_THAT(best(-1), ElementsAre(1, 3, 0, 2));
}

TEST(GetBestDevices, WithoutDevicesLeavesTheListUntouched) {
  const HostMachine machine(hostConfig(0));
  int value = 0;
  int* dev = &value;
  int count = -1;
  const Output text = outputOf([&] { count = CudaUtil::getBestDevices(&dev, 2); });
  EXPECT_EQ(count, 0);
  EXPECT_EQ(dev, &value);
  EXPECT_EQ(text.err, "No CUDA Devices\n");
}

TEST(GetBestDevices, PropertiesAreThoseOfAllDevices) {
  const HostMachine machine(machineOf({properties("a", 3), properties("b", 5)}));
  int* dev = nullptr;
  cudaDeviceProp* prop = nullptr;
  const Output text =
      outputOf([&] { EXPECT_EQ(CudaUtil::getBestDevices(&dev, 1, &prop, false), 1); });
  EXPECT_EQ(text.out, "CUDA Devices: [1] b, [0] a\n");
  EXPECT_STREQ(prop[0].name, "b");
  EXPECT_STREQ(prop[1].name, "a");
  delete[] dev;
  delete[] prop;
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

TEST(EnablePeerAccess, EntryOfRowJColumnISaysWhetherDeviceIReachesJ) {
  // Where only device 0 reaches device 1, not the other way round.
  class OneWay final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t deviceCanAccessPeer(int* can, int device, int peer) override {
      *can = device == 0 && peer == 1;
      return cudaSuccess;
    }
  };
  HostMachine machine(hostConfig(2));
  OneWay oneWay(machine.backend);
  const BackendScope scope(oneWay);
  int dev[] = {0, 1};
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
  const HostMachine machine(
      machineOf({properties("old", 1, 1), properties("same", 3, 0), properties("new", 7, 5)}));
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
  const Output text = outputOf([] { EXPECT_EQ(CudaUtil::cudaArch(), 0); });
  EXPECT_EQ(text.out + text.err, "");
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

TEST(CudaArch, IsZeroUnderAnOlderPendingErrorWhichStays) {
  const HostMachine machine(hostConfig(1));
  cudaSetDevice(9);
  EXPECT_EQ(CudaUtil::cudaArch(), 0);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidDevice);
}

}  // namespace
}  // namespace namespace_ratseg
