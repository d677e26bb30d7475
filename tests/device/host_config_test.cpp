#include "device/host/host_config.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <string>

#include "device/runtime.h"
#include "support/environment.h"
#include "support/machine.h"

namespace namespace_ratseg {
namespace {

// A machine without any RATSEG_HOST_* set, save those that a test sets.
class HostConfigTest : public testing::Test {
 protected:
  std::string errorOf(const char* name, const char* value) {
    const EnvironmentVariable variable(name, value);
    HostConfig config;
    std::string error;
    EXPECT_FALSE(HostConfig::fromEnvironment(config, error));
    EXPECT_EQ(config.devices, 1);
    EXPECT_TRUE(config.peer);
    EXPECT_EQ(config.memoryBytes, 0u);
    return error;
  }

 private:
  EnvironmentVariable devices_{"RATSEG_HOST_DEVICES", nullptr};
  EnvironmentVariable peer_{"RATSEG_HOST_PEER", nullptr};
  EnvironmentVariable memory_{"RATSEG_HOST_MEMORY", nullptr};
};

TEST_F(HostConfigTest, DefaultIsOneDeviceWithPeersAndAllMemory) {
  const EnvironmentVariable empty("RATSEG_HOST_DEVICES", "");
  HostConfig config;
  std::string error;
  EXPECT_TRUE(HostConfig::fromEnvironment(config, error));
  EXPECT_EQ(config.devices, 1);
  EXPECT_TRUE(config.peer);
  EXPECT_EQ(config.memoryBytes, 0u);
  EXPECT_EQ(error, "");
}

TEST_F(HostConfigTest, ReadsAllThree) {
  const EnvironmentVariable devices("RATSEG_HOST_DEVICES", "4");
  const EnvironmentVariable peer("RATSEG_HOST_PEER", "0");
  const EnvironmentVariable memory("RATSEG_HOST_MEMORY", "100");
  HostConfig config;
  std::string error;
  EXPECT_TRUE(HostConfig::fromEnvironment(config, error));
  EXPECT_EQ(config.devices, 4);
  EXPECT_FALSE(config.peer);
  EXPECT_EQ(config.memoryBytes, std::size_t{100} << 20);
}

TEST_F(HostConfigTest, UnsetVariablesKeepWhatIsThere) {
  HostConfig config;
  config.devices = 3;
  config.peer = false;
  config.memoryBytes = 12345;
  std::string error;
  EXPECT_TRUE(HostConfig::fromEnvironment(config, error));
  EXPECT_EQ(config.devices, 3);
  EXPECT_FALSE(config.peer);
  EXPECT_EQ(config.memoryBytes, 12345u);
}

TEST_F(HostConfigTest, TakesTheEndsOfEachRange) {
  const EnvironmentVariable devices("RATSEG_HOST_DEVICES", "64");
  const EnvironmentVariable peer("RATSEG_HOST_PEER", "1");
  const EnvironmentVariable memory("RATSEG_HOST_MEMORY", "1073741824");
  HostConfig config;
  std::string error;
  EXPECT_TRUE(HostConfig::fromEnvironment(config, error)) << error;
  EXPECT_EQ(config.devices, 64);
  EXPECT_EQ(config.memoryBytes, std::size_t{1} << 50);
}

TEST_F(HostConfigTest, NoDevicesIsAMachineToo) {
  const EnvironmentVariable devices("RATSEG_HOST_DEVICES", "0");
  HostConfig config;
  std::string error;
  EXPECT_TRUE(HostConfig::fromEnvironment(config, error));
  EXPECT_EQ(config.devices, 0);
}

TEST_F(HostConfigTest, NamesVariableRangeAndValueOfAnError) {
  EXPECT_EQ(errorOf("RATSEG_HOST_DEVICES", "65"),
            "ERROR: RATSEG_HOST_DEVICES must be a whole number from 0 to 64, but is \"65\"");
  EXPECT_EQ(errorOf("RATSEG_HOST_PEER", "yes"),
            "ERROR: RATSEG_HOST_PEER must be a whole number from 0 to 1, but is \"yes\"");
  EXPECT_EQ(errorOf("RATSEG_HOST_MEMORY", "0"),
            "ERROR: RATSEG_HOST_MEMORY must be a whole number from 1 to 1073741824, but is \"0\"");
}

TEST_F(HostConfigTest, RefusesWhatIsNoWholeNumberOfTheRange) {
  for (const char* value : {"-1", "1.5", "2x", " 2", "2 ", "0x10", "99999999999999999999"}) {
    EXPECT_NE(errorOf("RATSEG_HOST_DEVICES", value), "") << value;
  }
}

TEST_F(HostConfigTest, BadValuesEndTheProcessThatNeedsThem) {
  const EnvironmentVariable devices("RATSEG_HOST_DEVICES", "many");
  EXPECT_EXIT(
      HostConfig::fromEnvironmentOrExit(), testing::ExitedWithCode(1),
      "^ERROR: RATSEG_HOST_DEVICES must be a whole number from 0 to 64, but is \"many\"\n$");
}

TEST(HostProperties, AreThoseThatEveryGpuHas) {
  const cudaDeviceProp prop = defaultHostProperties();
  EXPECT_EQ(prop.major, 3);
  EXPECT_EQ(prop.minor, 0);
  EXPECT_EQ(prop.maxThreadsPerBlock, 1024);
  EXPECT_EQ(prop.sharedMemPerBlock, 49152u);
  EXPECT_EQ(prop.sharedMemPerBlockOptin, 49152u);
  EXPECT_EQ(prop.multiProcessorCount, hostThreads());
}

TEST(HostProperties, NameTellsTheThreads) {
  const int before = omp_get_max_threads();
  omp_set_num_threads(1);
  EXPECT_STREQ(defaultHostProperties().name, "Host (1 thread)");
  omp_set_num_threads(5);
  EXPECT_EQ(hostThreads(), 5);
  EXPECT_STREQ(defaultHostProperties().name, "Host (5 threads)");
  omp_set_num_threads(before);
}

TEST(HostMemory, IsTheMachinesUnlessItIsLimited) {
  std::size_t bytesFree = 0;
  std::size_t total = 0;
  {
    const HostMachine machine(hostConfig(1));
    cudaMemGetInfo(&bytesFree, &total);
    EXPECT_GT(total, std::size_t{64} << 20);
    EXPECT_EQ(bytesFree, total);
  }
  const HostMachine machine(hostConfig(1, true, 7));
  cudaMemGetInfo(&bytesFree, &total);
  EXPECT_EQ(total, std::size_t{7} << 20);
}

}  // namespace
}  // namespace namespace_ratseg
