#include "device/host/host_backend.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device/host/host_launch.h"
#include "device/runtime.h"
#include "support/machine.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;

// Three devices that reach each other, 1 MiB each.
class HostBackendTest : public testing::Test {
 protected:
  HostBackendTest() : machine_(hostConfig(3, true, 1)) {
    machine_.backend.setObserver([this](const HostBackend::Call& call) { calls_.push_back(call); });
  }

  static char* allocate(std::size_t bytes) {
    char* block = nullptr;
    EXPECT_EQ(cudaMalloc(&block, bytes), cudaSuccess);
    return block;
  }

  HostMachine machine_;
  std::vector<HostBackend::Call> calls_;
};

// --- devices ---

TEST_F(HostBackendTest, IsAHostOfItsDevices) {
  int count = 0;
  EXPECT_TRUE(machine_.backend.isHost());
  EXPECT_EQ(cudaGetDeviceCount(&count), cudaSuccess);
  EXPECT_EQ(count, 3);
}

TEST_F(HostBackendTest, DevicesAreNumberedFromZero) {
  int device = -1;
  EXPECT_EQ(cudaGetDevice(&device), cudaSuccess);
  EXPECT_EQ(device, 0);
  EXPECT_EQ(cudaSetDevice(2), cudaSuccess);
  EXPECT_EQ(cudaGetDevice(&device), cudaSuccess);
  EXPECT_EQ(device, 2);
  EXPECT_EQ(cudaSetDevice(3), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaSetDevice(-1), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaGetDevice(&device), cudaSuccess);
  EXPECT_EQ(device, 2);
}

TEST_F(HostBackendTest, PropertiesOfMissingDevicesAreRefused) {
  cudaDeviceProp prop;
  EXPECT_EQ(cudaGetDeviceProperties(&prop, 2), cudaSuccess);
  EXPECT_EQ(cudaGetDeviceProperties(&prop, 3), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaGetDeviceProperties(&prop, -1), cudaErrorInvalidDevice);
}

TEST(HostBackendProperties, AreThoseOfTheConfigurationThenTheHosts) {
  HostConfig config = hostConfig(2);
  config.properties.push_back(defaultHostProperties());
  config.properties[0].major = 7;
  const HostMachine machine(config);
  cudaDeviceProp prop;
  cudaGetDeviceProperties(&prop, 0);
  EXPECT_EQ(prop.major, 7);
  cudaGetDeviceProperties(&prop, 1);
  EXPECT_EQ(prop.major, 3);
}

TEST(HostBackendWithoutDevices, EveryCallThatNeedsADeviceFails) {
  const HostMachine machine(hostConfig(0));
  int number = -1;
  std::size_t bytes = 0;
  void* block = nullptr;
  cudaEvent_t event = nullptr;
  EXPECT_EQ(cudaGetDeviceCount(&number), cudaErrorNoDevice);
  EXPECT_EQ(number, 0);
  EXPECT_EQ(cudaGetDevice(&number), cudaErrorNoDevice);
  EXPECT_EQ(cudaSetDevice(0), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaMalloc(&block, 16), cudaErrorNoDevice);
  EXPECT_EQ(cudaMemGetInfo(&bytes, &bytes), cudaErrorNoDevice);
  EXPECT_EQ(cudaDeviceSynchronize(), cudaErrorNoDevice);
  EXPECT_EQ(cudaEventCreate(&event), cudaErrorNoDevice);
  EXPECT_FALSE(admitHostLaunch("kernel", LaunchShape{}));
  EXPECT_EQ(cudaPeekAtLastError(), cudaErrorInvalidDevice);
}

// --- peers ---

TEST_F(HostBackendTest, PeerCopiesGoBetweenDevices) {
  char* a = allocate(4);
  cudaSetDevice(1);
  char* b = allocate(4);
  cudaMemset(a, 3, 4);
  EXPECT_EQ(cudaMemcpyPeer(b, 1, a, 0, 4), cudaSuccess);
  EXPECT_EQ(std::string(b, 4), std::string(4, '\3'));
  EXPECT_EQ(cudaMemcpyPeer(b, 1, a, 0, 5), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemcpyPeer(b, 1, &a, 0, 4), cudaErrorInvalidValue);
  EXPECT_EQ(cudaMemcpyPeer(b, 0, a, 0, 4), cudaErrorInvalidValue) << "b is on device 1";
  EXPECT_EQ(cudaMemcpyPeer(b, 1, a, 1, 4), cudaErrorInvalidValue) << "a is on device 0";
  EXPECT_EQ(cudaMemcpyPeer(b, 3, a, 0, 4), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaMemcpyPeer(b, 1, a, -1, 4), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaMemcpyPeer(b, 1, a, 0, 0), cudaSuccess);
}

TEST_F(HostBackendTest, DevicesReachEachOtherButNotThemselves) {
  int can = -1;
  EXPECT_EQ(cudaDeviceCanAccessPeer(&can, 0, 2), cudaSuccess);
  EXPECT_EQ(can, 1);
  EXPECT_EQ(cudaDeviceCanAccessPeer(&can, 1, 1), cudaSuccess);
  EXPECT_EQ(can, 0);
  EXPECT_EQ(cudaDeviceCanAccessPeer(&can, 0, 3), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaDeviceCanAccessPeer(&can, -1, 0), cudaErrorInvalidDevice);
}

TEST_F(HostBackendTest, PeerAccessIsEnabledOncePerDirection) {
  EXPECT_EQ(cudaDeviceEnablePeerAccess(1, 0), cudaSuccess);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(1, 0), cudaErrorPeerAccessAlreadyEnabled);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(2, 0), cudaSuccess);
  cudaSetDevice(1);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(0, 0), cudaSuccess);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(2, 0), cudaSuccess);
}

TEST_F(HostBackendTest, BadPeersAndFlagsAreRefused) {
  EXPECT_EQ(cudaDeviceEnablePeerAccess(0, 0), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(3, 0), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(-1, 0), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(1, 1), cudaErrorInvalidValue);
}

TEST(HostBackendWithoutPeers, DevicesDoNotReachEachOther) {
  const HostMachine machine(hostConfig(2, false));
  int can = -1;
  EXPECT_EQ(cudaDeviceCanAccessPeer(&can, 0, 1), cudaSuccess);
  EXPECT_EQ(can, 0);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(1, 0), cudaErrorInvalidDevice);
}

// --- launches ---

LaunchShape shapeOf(dim3 grid, dim3 block, std::size_t sharedBytes = 0) {
  return LaunchShape{grid, block, sharedBytes};
}

TEST_F(HostBackendTest, AdmitsABlockOfUpTo1024Threads) {
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({5}, {1024})));
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({5}, {32, 32})));
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
  EXPECT_FALSE(admitHostLaunch("kernel", shapeOf({5}, {1025})));
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidConfiguration);
  EXPECT_FALSE(admitHostLaunch("kernel", shapeOf({5}, {32, 33})));
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidConfiguration);
}

TEST_F(HostBackendTest, RefusesEmptyGridsAndBlocks) {
  EXPECT_FALSE(admitHostLaunch("kernel", shapeOf({0}, {32})));
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidConfiguration);
  EXPECT_FALSE(admitHostLaunch("kernel", shapeOf({1}, {32, 0})));
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidConfiguration);
}

TEST_F(HostBackendTest, GridsAndBlocksAreLimitedInEachDirection) {
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({0x7fffffff}, {1})));
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({1, 65535, 1}, {1})));
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({1, 1, 65535}, {1})));
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({1}, {1, 1024, 1})));
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({1}, {1, 1, 64})));
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
  for (const LaunchShape& tooLong :
       {shapeOf({0x80000000}, {1}), shapeOf({1, 65536, 1}, {1}), shapeOf({1, 1, 65536}, {1}),
        shapeOf({1}, {1025, 1, 1}), shapeOf({1}, {1, 1025, 1}), shapeOf({1}, {1, 1, 65})}) {
    EXPECT_FALSE(admitHostLaunch("kernel", tooLong));
    EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidConfiguration);
  }
}

// Limits in x and y that only a device of larger blocks could show.
TEST(HostBackendLimits, BlocksOfMoreThreadsAreNotLonger) {
  HostConfig config = hostConfig(1);
  config.properties = {defaultHostProperties()};
  config.properties[0].maxThreadsPerBlock = 4096;
  const HostMachine machine(config);
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({1}, {1024, 2, 2})));
  EXPECT_FALSE(admitHostLaunch("kernel", shapeOf({1}, {1025, 1, 1})));
  EXPECT_FALSE(admitHostLaunch("kernel", shapeOf({1}, {1, 1025, 1})));
}

TEST_F(HostBackendTest, RefusesMoreSharedMemoryThanABlockMayHave) {
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({1}, {32}, 48 << 10)));
  EXPECT_FALSE(admitHostLaunch("kernel", shapeOf({1}, {32}, (48 << 10) + 1)));
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidValue);
}

TEST_F(HostBackendTest, LimitsAreThoseOfTheCurrentDevice) {
  HostConfig config = hostConfig(2);
  config.properties.assign(2, defaultHostProperties());
  config.properties[1].maxThreadsPerBlock = 64;
  config.properties[1].sharedMemPerBlockOptin = 100 << 10;
  const HostMachine machine(config);
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({1}, {65})));
  cudaSetDevice(1);
  EXPECT_FALSE(admitHostLaunch("kernel", shapeOf({1}, {65})));
  EXPECT_TRUE(admitHostLaunch("kernel", shapeOf({1}, {64}, 100 << 10)));
}

// --- observer ---

TEST_F(HostBackendTest, ObserverSeesAdmittedLaunches) {
  cudaSetDevice(2);
  admitHostLaunch("refused", shapeOf({1}, {2000}));
  admitHostLaunch("admitted", shapeOf({4, 5, 6}, {7, 8, 9}, 10));
  ASSERT_EQ(calls_.size(), 1u);
  EXPECT_EQ(calls_[0].name, "admitted");
  EXPECT_EQ(calls_[0].device, 2);
  EXPECT_EQ(calls_[0].shape.grid.y, 5u);
  EXPECT_EQ(calls_[0].shape.block.z, 9u);
  EXPECT_EQ(calls_[0].shape.sharedBytes, 10u);
}

TEST_F(HostBackendTest, ObserverSeesCopiesAndWaitsThatHappened) {
  char* a = allocate(8);
  char host[8] = {};
  cudaMemcpy(a, host, 8, cudaMemcpyHostToDevice);
  cudaMemcpy(a, host, 9, cudaMemcpyHostToDevice);
  cudaSetDevice(1);
  cudaMemcpyPeer(a, 0, a, 0, 3);
  cudaDeviceSynchronize();
  std::vector<std::string> names;
  for (const HostBackend::Call& call : calls_) names.push_back(call.name);
  EXPECT_THAT(names, ElementsAre("cudaMemcpy", "cudaMemcpyPeer", "cudaDeviceSynchronize"));
  EXPECT_EQ(calls_[0].bytes, 8u);
  EXPECT_EQ(calls_[0].device, 0);
  EXPECT_EQ(calls_[1].bytes, 3u);
  EXPECT_EQ(calls_[1].device, 1);
}

TEST_F(HostBackendTest, NobodyObservesAfterTheObserverIsTakenAway) {
  machine_.backend.setObserver({});
  cudaDeviceSynchronize();
  EXPECT_TRUE(calls_.empty());
}

// --- events ---

class HostEventTest : public HostBackendTest {
 protected:
  HostEventTest() {
    cudaEventCreate(&start_);
    cudaEventCreate(&stop_);
  }
  cudaEvent_t start_ = nullptr;
  cudaEvent_t stop_ = nullptr;
  float ms_ = -1;
};

TEST_F(HostEventTest, TimeRunsForward) {
  EXPECT_EQ(cudaEventRecord(start_), cudaSuccess);
  EXPECT_EQ(cudaEventSynchronize(start_), cudaSuccess);
  EXPECT_EQ(cudaEventRecord(stop_), cudaSuccess);
  EXPECT_EQ(cudaEventElapsedTime(&ms_, start_, stop_), cudaSuccess);
  EXPECT_GE(ms_, 0);
  float back = 1;
  EXPECT_EQ(cudaEventElapsedTime(&back, stop_, start_), cudaSuccess);
  EXPECT_EQ(back, -ms_);
}

TEST_F(HostEventTest, AStreamTakesEventsOfItsDeviceOnly) {
  cudaStream_t stream = nullptr;
  ASSERT_EQ(cudaStreamCreate(&stream), cudaSuccess);
  EXPECT_NE(stream, nullptr);
  EXPECT_EQ(cudaEventRecord(start_, stream), cudaSuccess);
  EXPECT_EQ(cudaStreamWaitEvent(stream, start_), cudaSuccess);
  cudaSetDevice(1);
  cudaEvent_t other = nullptr;
  cudaEventCreate(&other);
  EXPECT_EQ(cudaEventRecord(other, stream), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaStreamWaitEvent(stream, start_), cudaErrorInvalidResourceHandle);
  cudaSetDevice(0);
  EXPECT_EQ(cudaStreamDestroy(stream), cudaSuccess);
  EXPECT_EQ(cudaStreamDestroy(stream), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaStreamWaitEvent(stream, start_), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventRecord(start_, &stream), cudaErrorInvalidResourceHandle);
  cudaGetLastError();
}

TEST_F(HostEventTest, UnknownEventsAreRefused) {
  int none = 0;
  EXPECT_EQ(cudaEventRecord(&none), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventRecord(nullptr), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventSynchronize(&none), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventDestroy(&none), cudaErrorInvalidResourceHandle);
  cudaEventRecord(start_);
  EXPECT_EQ(cudaEventElapsedTime(&ms_, start_, &none), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventElapsedTime(&ms_, &none, start_), cudaErrorInvalidResourceHandle);
}

TEST_F(HostEventTest, NoTimeLiesBetweenEventsThatWereNotRecorded) {
  cudaEventRecord(start_);
  EXPECT_EQ(cudaEventElapsedTime(&ms_, start_, stop_), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventElapsedTime(&ms_, stop_, start_), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(ms_, -1);
}

TEST_F(HostEventTest, EventsAreDestroyedOnce) {
  EXPECT_EQ(cudaEventDestroy(start_), cudaSuccess);
  EXPECT_EQ(cudaEventDestroy(start_), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventRecord(start_), cudaErrorInvalidResourceHandle);
}

TEST_F(HostEventTest, EventsAreRecordedOnTheirOwnDevice) {
  cudaSetDevice(1);
  EXPECT_EQ(cudaEventRecord(start_), cudaErrorInvalidResourceHandle);
  cudaEvent_t other = nullptr;
  cudaEventCreate(&other);
  EXPECT_EQ(cudaEventRecord(other), cudaSuccess);
  cudaSetDevice(0);
  EXPECT_EQ(cudaEventRecord(start_), cudaSuccess);
  EXPECT_EQ(cudaEventElapsedTime(&ms_, start_, other), cudaErrorInvalidResourceHandle);
}

TEST_F(HostEventTest, ADeviceMayWaitForAnEventOfAnother) {
  cudaEventRecord(start_);
  cudaSetDevice(2);
  EXPECT_EQ(cudaStreamWaitEvent(0, start_), cudaSuccess);
  EXPECT_EQ(cudaStreamWaitEvent(0, stop_), cudaSuccess) << "not recorded: nothing to wait for";
  ASSERT_EQ(calls_.size(), 2u);
  EXPECT_EQ(calls_[0].name, "cudaStreamWaitEvent");
  EXPECT_EQ(calls_[0].device, 2);
  EXPECT_EQ(calls_[0].awaited, 0);
  int none = 0;
  EXPECT_EQ(cudaStreamWaitEvent(0, &none), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(calls_.size(), 2u);
}

// --- errors ---

TEST_F(HostBackendTest, TheLastErrorIsTheOneThatIsPending) {
  cudaSetDevice(9);
  cudaMemset(nullptr, 0, 1);
  EXPECT_EQ(cudaPeekAtLastError(), cudaErrorInvalidValue);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidValue);
  EXPECT_EQ(cudaPeekAtLastError(), cudaSuccess);
}

TEST_F(HostBackendTest, ErrorsWithoutANameHaveATextToo) {
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidDevicePointer), "invalid device pointer");
  EXPECT_STREQ(cudaGetErrorString(static_cast<cudaError_t>(kNativeErrorBase + 1)), "unknown error");
}

TEST(CudaErrorNumber, IsTheCodeOrTheRuntimesOwn) {
  EXPECT_EQ(cudaErrorNumber(cudaSuccess), 0);
  EXPECT_EQ(cudaErrorNumber(cudaErrorMemoryAllocation), 2);
  EXPECT_EQ(cudaErrorNumber(cudaErrorInvalidDeviceFunction), 8);
  EXPECT_EQ(cudaErrorNumber(cudaErrorInsufficientDriver), 35);
  EXPECT_EQ(cudaErrorNumber(cudaErrorNoDevice), 38);
  EXPECT_EQ(cudaErrorNumber(static_cast<cudaError_t>(kNativeErrorBase + 700)), 700);
}

}  // namespace
}  // namespace namespace_ratseg
