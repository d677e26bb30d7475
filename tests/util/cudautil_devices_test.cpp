#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/forwarding_backend.h"
#include "support/machine.h"
#include "util/cudadefs.h"
#include "util/cudautil.h"

// Counting, ranking and handing out devices.

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

// A machine that neither tells its device count nor an error.
class CountsNothing final : public ForwardingBackend {
 public:
  using ForwardingBackend::ForwardingBackend;
  cudaError_t getDeviceCount(int*) override { return cudaSuccess; }
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

TEST(NumDevices, IsZeroWhereNothingWasCounted) {
  HostMachine machine(hostConfig(1));
  CountsNothing nothing(machine.backend);
  const BackendScope scope(nothing);
  EXPECT_EQ(CudaUtil::numDevices(), 0);
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

TEST(GetDevices, SelectsEachDeviceBeforeAskingForItsProperties) {
  class Asked final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t setDevice(int device) override {
      calls.push_back("select " + std::to_string(device));
      return ForwardingBackend::setDevice(device);
    }
    cudaError_t getDeviceProperties(cudaDeviceProp* prop, int device) override {
      calls.push_back("ask " + std::to_string(device));
      return ForwardingBackend::getDeviceProperties(prop, device);
    }
    std::vector<std::string> calls;
  };
  HostMachine machine(hostConfig(3));
  cudaSetDevice(1);
  Asked asked(machine.backend);
  const BackendScope scope(asked);
  int* dev = nullptr;
  int count = 0;
  CudaUtil::getDevices(&dev, &count, nullptr, true);
  EXPECT_THAT(asked.calls, ElementsAre("select 0", "ask 0", "select 1", "ask 1", "select 2",
                                       "ask 2", "select 1"));
  delete[] dev;
}

TEST(GetDevices, SelectsTheFirstDeviceInTheEndWhereTheCurrentOneIsUnknown) {
  class Unknown final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t getDevice(int*) override { return cudaErrorInvalidValue; }
    cudaError_t setDevice(int device) override {
      selected = device;
      return ForwardingBackend::setDevice(device);
    }
    int selected = -1;
  };
  HostMachine machine(hostConfig(3));
  Unknown unknown(machine.backend);
  const BackendScope scope(unknown);
  int* dev = nullptr;
  int count = 0;
  CudaUtil::getDevices(&dev, &count, nullptr, true);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(unknown.selected, 0);
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
  EXPECT_EQ(cudaGetLastError(), cudaErrorNoDevice) << "the error is not cleared";
}

TEST(GetDevices, ACountUnderTheErrorOfNoDevicesIsIgnored) {
  HostMachine machine(hostConfig(1));
  CountFails none(machine.backend, cudaErrorNoDevice);
  const BackendScope scope(none);
  int* dev = nullptr;
  int count = 17;
  const Output text = outputOf([&] { CudaUtil::getDevices(&dev, &count); });
  EXPECT_EQ(text.err, "No CUDA Devices\n");
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(dev, nullptr);
  EXPECT_EQ(count, 0);
}

TEST(GetDevices, ACountOfZeroWithoutAnErrorMeansNoDevicesToo) {
  HostMachine machine(hostConfig(1));
  CountsNothing nothing(machine.backend);
  const BackendScope scope(nothing);
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

TEST(GetBestDevices, OneDeviceIsTheBest) {
  const HostMachine machine(hostConfig(1));
  for (const int num : {0, 1, 2}) {
    int* dev = nullptr;
    ASSERT_EQ(CudaUtil::getBestDevices(&dev, num, nullptr, true), 1) << num;
    EXPECT_EQ(dev[0], 0);
    delete[] dev;
  }
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

}  // namespace
}  // namespace namespace_ratseg
