#include "device/selection.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "device/cuda/cuda_backend.h"
#include "device/host/host_backend.h"
#include "device/runtime.h"
#include "support/environment.h"

namespace namespace_ratseg {
namespace {

// The current backend and the number of threads are put back after each test.
class SelectionTest : public testing::Test {
 protected:
  SelectionTest() : scope_(backend()) {}
  ~SelectionTest() override { omp_set_num_threads(threads_); }

  static int devicesOf(Backend& b) {
    int count = -1;
    b.getDeviceCount(&count);
    b.getLastError();
    return count;
  }

 private:
  BackendScope scope_;
  int threads_ = omp_get_max_threads();
};

TEST(ParseDeviceChoice, KnowsThreeWords) {
  DeviceChoice choice = DeviceChoice::host;
  EXPECT_TRUE(parseDeviceChoice("auto", choice));
  EXPECT_EQ(choice, DeviceChoice::automatic);
  EXPECT_TRUE(parseDeviceChoice("cuda", choice));
  EXPECT_EQ(choice, DeviceChoice::cuda);
  EXPECT_TRUE(parseDeviceChoice("host", choice));
  EXPECT_EQ(choice, DeviceChoice::host);
}

TEST(ParseDeviceChoice, RefusesOthersAndKeepsTheChoice) {
  DeviceChoice choice = DeviceChoice::cuda;
  for (const char* text : {"", "CUDA", "host ", "gpu"}) {
    EXPECT_FALSE(parseDeviceChoice(text, choice)) << text;
    EXPECT_EQ(choice, DeviceChoice::cuda);
  }
}

TEST_F(SelectionTest, HostIsChosenWithoutANotice) {
  std::ostringstream notice;
  Backend& chosen = chooseBackend(DeviceChoice::host, notice);
  EXPECT_TRUE(chosen.isHost());
  EXPECT_EQ(&backend(), &chosen);
  EXPECT_EQ(devicesOf(chosen), 1);
  EXPECT_EQ(notice.str(), "");
}

// OpenMP's runtime dies of tens of thousands.
TEST_F(SelectionTest, ThreadsThatCannotBeStartedAreNotAskedFor) {
  const int before = omp_get_max_threads();
  for (const auto& [wished, had] : {std::pair(100000, 1024), std::pair(3, 3)}) {
    omp_set_num_threads(wished);
    std::ostringstream notice;
    chooseBackend(DeviceChoice::host, notice);
    EXPECT_EQ(omp_get_max_threads(), had);
  }
  omp_set_num_threads(before);
}

TEST_F(SelectionTest, CudaIsTheGpusOrAMachineWithoutDevices) {
  std::ostringstream notice;
  Backend& chosen = chooseBackend(DeviceChoice::cuda, notice);
  EXPECT_EQ(&backend(), &chosen);
  EXPECT_EQ(notice.str(), "");
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
  if (cudaBackendIfUsable() != nullptr) {
    EXPECT_EQ(&chosen, cudaBackendIfUsable());
  } else {
    EXPECT_EQ(devicesOf(chosen), 0);
  }
}

TEST_F(SelectionTest, AutomaticIsTheGpusOrTheHostWithANotice) {
  omp_set_num_threads(1);
  std::ostringstream one;
  Backend& chosen = chooseBackend(DeviceChoice::automatic, one);
  EXPECT_EQ(&backend(), &chosen);
  omp_set_num_threads(3);
  std::ostringstream three;
  EXPECT_EQ(&chooseBackend(DeviceChoice::automatic, three), &chosen);
  if (cudaBackendIfUsable() != nullptr) {
    EXPECT_EQ(&chosen, cudaBackendIfUsable());
    EXPECT_EQ(one.str() + three.str(), "");
  } else {
    EXPECT_TRUE(chosen.isHost());
    EXPECT_EQ(one.str(), "ratseg: no CUDA GPU found, computing on the host with 1 thread\n");
    EXPECT_EQ(three.str(), "ratseg: no CUDA GPU found, computing on the host with 3 threads\n");
  }
}

TEST_F(SelectionTest, UsableGpusAreNotAHostAndLeaveNoErrorPending) {
  Backend* cuda = cudaBackendIfUsable();
  if (cuda == nullptr) GTEST_SKIP() << "no CUDA GPU on this machine";
  EXPECT_FALSE(cuda->isHost());
  EXPECT_GE(devicesOf(*cuda), 1);
}

TEST_F(SelectionTest, ABuildWithoutAGpuAnswersAsOneWithoutDevices) {
  if constexpr (!kBuiltWithCuda) {
    EXPECT_EQ(cudaBackendIfUsable(), nullptr);
  } else {
    Backend& cuda = cudaBackend();
    int count = -1;
    const cudaError_t error = cuda.getDeviceCount(&count);
    cuda.getLastError();
    EXPECT_EQ(error == cudaSuccess && count > 0, cudaBackendIfUsable() != nullptr);
    if (error != cudaSuccess) {
      EXPECT_TRUE(error == cudaErrorNoDevice || error == cudaErrorInsufficientDriver) << error;
    }
  }
}

// Whether the GPUs are emulated ones, which have the compute capability that they are told.
bool capabilityCanBeSet() {
  if constexpr (kBuiltWithCuda) {
    const EnvironmentVariable variable("RATSEG_EMULATED_CAPABILITY", "61");
    cudaDeviceProp device;
    const bool any = cudaBackend().getDeviceProperties(&device, 0) == cudaSuccess;
    cudaBackend().getLastError();
    return any && device.major == 6 && device.minor == 1 && lowestComputeCapability() > 61;
  }
  return false;
}

TEST_F(SelectionTest, GpusThatRunNoCodeOfTheBuildCountAsNone) {
  if (!capabilityCanBeSet()) GTEST_SKIP() << "no emulated GPU on this machine";
  omp_set_num_threads(3);
  {
    const EnvironmentVariable variable("RATSEG_EMULATED_CAPABILITY", "74");
    EXPECT_EQ(cudaBackendIfUsable(), nullptr);
    const std::string missing = "ratseg: no CUDA GPU of compute capability 7.5 or higher found";
    std::ostringstream cuda, automatic, host;
    EXPECT_EQ(devicesOf(chooseBackend(DeviceChoice::cuda, cuda)), 0);
    EXPECT_EQ(cuda.str(), missing + "\n");
    EXPECT_TRUE(chooseBackend(DeviceChoice::automatic, automatic).isHost());
    EXPECT_EQ(automatic.str(), missing + ", computing on the host with 3 threads\n");
    EXPECT_TRUE(chooseBackend(DeviceChoice::host, host).isHost());
    EXPECT_EQ(host.str(), "");
  }
  const EnvironmentVariable variable("RATSEG_EMULATED_CAPABILITY", "75");
  EXPECT_NE(cudaBackendIfUsable(), nullptr);
}

TEST_F(SelectionTest, SetBackendMakesItCurrent) {
  HostConfig config;
  config.devices = 5;
  HostBackend five(config);
  setBackend(five);
  EXPECT_EQ(&backend(), &five);
  EXPECT_EQ(devicesOf(backend()), 5);
}

TEST_F(SelectionTest, ScopesNest) {
  HostBackend outer{HostConfig{}};
  HostBackend inner{HostConfig{}};
  Backend& before = backend();
  {
    const BackendScope a(outer);
    EXPECT_EQ(&backend(), &outer);
    {
      const BackendScope b(inner);
      EXPECT_EQ(&backend(), &inner);
    }
    EXPECT_EQ(&backend(), &outer);
  }
  EXPECT_EQ(&backend(), &before);
}

// What a fresh process does at its first runtime call.
int devicesAtFirstUse() {
  int count = 0;
  cudaGetDeviceCount(&count);
  return count;
}

// What a process that has not asked for a device yet makes of RATSEG_DEVICE; 9 with an error.
int choiceFromEnvironment() {
  DeviceChoice choice = DeviceChoice::host;
  std::string error;
  const bool ok = deviceChoiceFromEnvironment(choice, error);
  std::cerr << error;
  return ok == error.empty() && ok ? static_cast<int>(choice) : 9;
}

TEST(FirstUseDeathTest, DeviceChoiceFromEnvironmentIsTheVariables) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  {
    const EnvironmentVariable variable("RATSEG_DEVICE", nullptr);
    EXPECT_EXIT(std::exit(choiceFromEnvironment()),
                testing::ExitedWithCode(static_cast<int>(DeviceChoice::automatic)), "^$");
  }
  {
    const EnvironmentVariable variable("RATSEG_DEVICE", "cuda");
    EXPECT_EXIT(std::exit(choiceFromEnvironment()),
                testing::ExitedWithCode(static_cast<int>(DeviceChoice::cuda)), "^$");
  }
  const EnvironmentVariable variable("RATSEG_DEVICE", "tpu");
  EXPECT_EXIT(std::exit(choiceFromEnvironment()), testing::ExitedWithCode(9),
              "^ERROR: RATSEG_DEVICE must be auto, cuda or host, but is \"tpu\"$");
}

TEST(FirstUseDeathTest, ABadDeviceChoiceEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const EnvironmentVariable variable("RATSEG_DEVICE", "tpu");
  EXPECT_EXIT(devicesAtFirstUse(), testing::ExitedWithCode(1),
              "^ERROR: RATSEG_DEVICE must be auto, cuda or host, but is \"tpu\"\n$");
}

TEST(FirstUseDeathTest, TheEnvironmentDescribesTheHost) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const EnvironmentVariable variable("RATSEG_DEVICE", "host");
  const EnvironmentVariable devices("RATSEG_HOST_DEVICES", "6");
  EXPECT_EXIT(std::exit(devicesAtFirstUse()), testing::ExitedWithCode(6), "^$");
}

TEST(FirstUseDeathTest, ChoosingAMachineWithoutDevicesLeavesNoErrorPending) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const EnvironmentVariable devices("RATSEG_HOST_DEVICES", "0");
  EXPECT_EXIT(
      {
        std::ostringstream notice;
        Backend& chosen = chooseBackend(DeviceChoice::automatic, notice);
        std::exit(chosen.peekAtLastError());
      },
      testing::ExitedWithCode(cudaSuccess), "");
}

// Whether threads that are the first to ask, all at a time, get the same backend.
bool threadsGetTheSameBackend() {
  std::vector<Backend*> got(8);
  std::vector<std::thread> threads;
  for (Backend*& b : got) threads.emplace_back([&b] { b = &backend(); });
  for (std::thread& thread : threads) thread.join();
  return got == std::vector<Backend*>(8, &backend());
}

TEST(FirstUseDeathTest, IsOneChoiceForAllThreads) {
  if (cudaBackendIfUsable() != nullptr) GTEST_SKIP() << "there is a CUDA GPU on this machine";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const EnvironmentVariable variable("RATSEG_DEVICE", nullptr);
  const EnvironmentVariable threads("OMP_NUM_THREADS", "2");
  EXPECT_EXIT(std::exit(threadsGetTheSameBackend() ? 0 : 1), testing::ExitedWithCode(0),
              "^ratseg: no CUDA GPU found, computing on the host with 2 threads\n$");
}

TEST(FirstUseDeathTest, ABadHostDescriptionEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const EnvironmentVariable variable("RATSEG_DEVICE", "host");
  const EnvironmentVariable memory("RATSEG_HOST_MEMORY", "lots");
  EXPECT_EXIT(devicesAtFirstUse(), testing::ExitedWithCode(1),
              "^ERROR: RATSEG_HOST_MEMORY must be a whole number from 1 to 1073741824, but is "
              "\"lots\"\n$");
}

TEST(FirstUseDeathTest, FallingBackToTheHostIsSaidOnStandardError) {
  if (cudaBackendIfUsable() != nullptr) GTEST_SKIP() << "there is a CUDA GPU on this machine";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const EnvironmentVariable variable("RATSEG_DEVICE", nullptr);
  const EnvironmentVariable threads("OMP_NUM_THREADS", "2");
  EXPECT_EXIT(std::exit(devicesAtFirstUse()), testing::ExitedWithCode(1),
              "^ratseg: no CUDA GPU found, computing on the host with 2 threads\n$");
}

}  // namespace
}  // namespace namespace_ratseg
