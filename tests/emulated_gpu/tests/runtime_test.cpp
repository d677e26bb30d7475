// The rest of the emulated runtime: devices, limits of launches, copies, errors.

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "kernels.h"

namespace emulated_gpu {
namespace {

void doNothing() {}
void doNothingElse() {}

class RuntimeTest : public EmulatedTest {};

// ---- Devices

TEST_F(RuntimeTest, CountsAndDescribesItsDevices) {
  int count = 0;
  ASSERT_EQ(cudaGetDeviceCount(&count), cudaSuccess);
  EXPECT_EQ(count, 2);
  cudaDeviceProp prop;
  ASSERT_EQ(cudaGetDeviceProperties(&prop, 1), cudaSuccess);
  EXPECT_STREQ(prop.name, "Emulated GPU");
  EXPECT_EQ(prop.multiProcessorCount, 4);
  EXPECT_EQ(prop.sharedMemPerBlock, 48u << 10);
  EXPECT_EQ(prop.sharedMemPerBlockOptin, 227u << 10);
  EXPECT_REFUSED(cudaGetDeviceProperties(&prop, 2), cudaErrorInvalidDevice);
  EXPECT_REFUSED(cudaSetDevice(2), cudaErrorInvalidDevice);
  EXPECT_REFUSED(cudaSetDevice(-1), cudaErrorInvalidDevice);
  int value = 0;
  EXPECT_REFUSED(cudaDeviceGetAttribute(&value, cudaDevAttrClockRate, 2), cudaErrorInvalidDevice);
}

// What the settings do, in a program of its own each.
class SettingsTest : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

void endWith(bool good) { std::_Exit(good ? 0 : 1); }
#define EXPECT_GOOD(statement) EXPECT_EXIT(statement, testing::ExitedWithCode(0), "")

void withoutGpu() {
  setenv("RATSEG_EMULATED_GPUS", "0", 1);
  int count = -1;
  void* p = nullptr;
  cudaEvent_t event = nullptr;
  cudaStream_t stream = nullptr;
  endWith(cudaGetDeviceCount(&count) == cudaErrorNoDevice && count == 0 &&
          cudaMalloc(&p, 1) == cudaErrorNoDevice && cudaEventCreate(&event) == cudaErrorNoDevice &&
          cudaStreamCreateWithFlags(&stream, cudaStreamNonBlocking) == cudaErrorNoDevice &&
          launch(doNothing, {1, 1}) == cudaErrorNoDevice &&
          cudaFuncSetAttribute(doNothing, cudaFuncAttributeMaxDynamicSharedMemorySize, 1) ==
              cudaErrorNoDevice &&
          cudaDeviceSynchronize() == cudaErrorNoDevice);
}

TEST_F(SettingsTest, ThereMayBeNoGpu) { EXPECT_GOOD(withoutGpu()); }

void withInSight(const char* list, int expected) {
  setenv("CUDA_VISIBLE_DEVICES", list, 1);
  int count = -1;
  cudaGetDeviceCount(&count);
  endWith(count == expected);
}

TEST_F(SettingsTest, GpusMayBeOutOfSight) {
  EXPECT_GOOD(withInSight("", 0));
  EXPECT_GOOD(withInSight("0", 1));
  EXPECT_GOOD(withInSight("1,0", 2));
  EXPECT_GOOD(withInSight("1,2,0", 1));
  EXPECT_GOOD(withInSight("-1", 0));
  EXPECT_GOOD(withInSight("none", 0));
}

void withoutPeerAccess() {
  setenv("RATSEG_EMULATED_PEER", "0", 1);
  int can = 1;
  endWith(cudaDeviceCanAccessPeer(&can, 0, 1) == cudaSuccess && can == 0 &&
          cudaDeviceEnablePeerAccess(1, 0) == cudaErrorPeerAccessUnsupported);
}

TEST_F(SettingsTest, GpusMayNotReachEachOther) { EXPECT_GOOD(withoutPeerAccess()); }

void withLittleMemory() {
  setenv("RATSEG_EMULATED_MEMORY", "1", 1);
  std::size_t free = 0, total = 0;
  void* p = nullptr;
  endWith(cudaMemGetInfo(&free, &total) == cudaSuccess && total == 1u << 20 && free == total &&
          cudaMalloc(&p, total + 1) == cudaErrorMemoryAllocation &&
          cudaMalloc(&p, total) == cudaSuccess && cudaMalloc(&p, 1) == cudaErrorMemoryAllocation);
}

TEST_F(SettingsTest, MemoryMayBeScarce) { EXPECT_GOOD(withLittleMemory()); }

// ---- Launches

TEST_F(RuntimeTest, LaunchesBeyondTheLimitsAreRefused) {
  const unsigned most = std::numeric_limits<unsigned>::max();
  const Shape wrong[] = {{0, 1},
                         {1, 0},
                         {{1, 0}, 1},
                         {{1, 1, 0}, 1},
                         {1, {1, 0}},
                         {1, {1, 1, 0}},
                         {1, 1025},
                         {1, {32, 33}},
                         {1, {1, 1, 65}},
                         {1, {2, 1, 1024}},
                         {{1, 65536}, 1},
                         {{1, 1, 65536}, 1},
                         {0x80000000u, 1},
                         {1, {most, most, 2}},
                         {1, {1u << 31, 1u << 31, 4}}};
  for (const Shape& s : wrong) EXPECT_REFUSED(launch(doNothing, s), cudaErrorInvalidConfiguration);
  for (const Shape& s : {Shape{1, 1024}, Shape{1, {32, 32}}, Shape{1, {4, 4, 64}}}) {
    EXPECT_EQ(launch(doNothing, s), cudaSuccess);
  }
  EXPECT_EQ(launch(doNothing, {{1, 65535}, 1}), cudaSuccess);
  cudaDeviceSynchronize();
}

TEST_F(RuntimeTest, MuchSharedMemoryMustBeAllowedPerKernelAndDevice) {
  const Shape usual = {1, 1, 48 << 10}, much = {1, 1, 100 << 10}, more = {1, 1, (100 << 10) + 1};
  const auto which = cudaFuncAttributeMaxDynamicSharedMemorySize;
  EXPECT_EQ(launch(doNothing, usual), cudaSuccess);
  EXPECT_REFUSED(launch(doNothing, much), cudaErrorInvalidValue);
  EXPECT_EQ(cudaFuncSetAttribute(doNothing, which, 100 << 10), cudaSuccess);
  EXPECT_EQ(launch(doNothing, much), cudaSuccess);
  EXPECT_REFUSED(launch(doNothing, more), cudaErrorInvalidValue);
  EXPECT_REFUSED(launch(doNothingElse, much), cudaErrorInvalidValue);
  cudaSetDevice(1);
  EXPECT_REFUSED(launch(doNothing, much), cudaErrorInvalidValue);
  EXPECT_EQ(cudaFuncSetAttribute(doNothing, which, 227 << 10), cudaSuccess);
  EXPECT_REFUSED(cudaFuncSetAttribute(doNothing, which, (227 << 10) + 1), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaFuncSetAttribute(doNothing, which, -1), cudaErrorInvalidValue);
  EXPECT_EQ(launch(doNothing, {1, 1, 227 << 10}), cudaSuccess);
  cudaDeviceSynchronize();
}

// ---- Copies

TEST_F(RuntimeTest, CopiesCheckTheirBounds) {
  const Array<char> a(100, 'a'), b(100, 'b');
  std::vector<char> host(200, 'h');
  EXPECT_REFUSED(cudaMemcpy(a.get(), host.data(), 101, cudaMemcpyHostToDevice),
                 cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpy(a.get() + 1, host.data(), 100, cudaMemcpyHostToDevice),
                 cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpy(host.data(), a.get() + 50, 51, cudaMemcpyDeviceToHost),
                 cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpy(a.get(), b.get() + 1, 100, cudaMemcpyDeviceToDevice),
                 cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpyPeer(a.get(), 0, b.get(), 0, 101), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemset(a.get() + 1, 0, 100), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemset2D(a.get(), 20, 0, 11, 6), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemset2D(a.get(), 4, 0, 5, 2), cudaErrorInvalidValue);
  EXPECT_EQ(a.toHost(), std::vector<char>(100, 'a'));
  EXPECT_EQ(cudaMemcpy(host.data(), a.get() + 50, 50, cudaMemcpyDeviceToHost), cudaSuccess);
  EXPECT_EQ(host[49], 'a');
  EXPECT_EQ(host[50], 'h');
}

TEST_F(RuntimeTest, CopiesCheckTheirDirection) {
  const Array<char> a(8, 'a'), b(8, 'b');
  char host[8] = {}, more[8] = {};
  EXPECT_REFUSED(cudaMemcpy(host, a.get(), 8, cudaMemcpyHostToDevice), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpy(a.get(), b.get(), 8, cudaMemcpyHostToDevice), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpy(a.get(), host, 8, cudaMemcpyDeviceToHost), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpy(a.get(), host, 8, cudaMemcpyDeviceToDevice), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpy(host, a.get(), 8, cudaMemcpyHostToHost), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpy(host, a.get(), 8, static_cast<cudaMemcpyKind>(7)),
                 cudaErrorInvalidMemcpyDirection);
  EXPECT_EQ(cudaMemcpy(more, host, 8, cudaMemcpyHostToHost), cudaSuccess);
  EXPECT_EQ(cudaMemcpy(host, host, 0, cudaMemcpyDeviceToHost), cudaSuccess);
}

TEST_F(RuntimeTest, CopiesBetweenDevicesCheckWhoseMemoryItIs) {
  const Array<char> a(8, 'a');
  cudaSetDevice(1);
  const Array<char> b(8, 'b');
  EXPECT_REFUSED(cudaMemcpyPeer(b.get(), 0, a.get(), 0, 8), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpyPeer(b.get(), 1, a.get(), 1, 8), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaMemcpyPeer(b.get(), 2, a.get(), 0, 8), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaMemcpyPeer(b.get(), 1, a.get(), 0, 7), cudaSuccess);
  EXPECT_EQ(std::string(b.toHost().data(), 8), "aaaaaaab");
}

TEST_F(RuntimeTest, FillsRows) {
  const Array<char> a(12, '.');
  EXPECT_EQ(cudaMemset2D(a.get() + 1, 4, 'x', 2, 3), cudaSuccess);
  EXPECT_EQ(std::string(a.toHost().data(), 12), ".xx..xx..xx.");
}

// ---- Errors

TEST_F(RuntimeTest, AnErrorIsPendingUntilItIsAskedFor) {
  EXPECT_EQ(cudaSetDevice(9), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaDeviceSynchronize(), cudaSuccess);
  EXPECT_EQ(cudaPeekAtLastError(), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

TEST_F(RuntimeTest, EveryErrorHasATextOfItsOwn) {
  const cudaError_t errors[] = {cudaSuccess,
                                cudaErrorInvalidValue,
                                cudaErrorMemoryAllocation,
                                cudaErrorInvalidConfiguration,
                                cudaErrorInvalidDevicePointer,
                                cudaErrorInvalidMemcpyDirection,
                                cudaErrorInsufficientDriver,
                                cudaErrorInvalidDeviceFunction,
                                cudaErrorNoDevice,
                                cudaErrorInvalidDevice,
                                cudaErrorPeerAccessUnsupported,
                                cudaErrorInvalidResourceHandle,
                                cudaErrorNotReady,
                                cudaErrorPeerAccessAlreadyEnabled,
                                cudaErrorStreamCaptureUnsupported,
                                cudaErrorStreamCaptureInvalidated,
                                cudaErrorStreamCaptureUnjoined,
                                cudaErrorStreamCaptureIsolation,
                                cudaErrorCapturedEvent};
  std::set<std::string> texts;
  for (const cudaError_t error : errors) texts.insert(cudaGetErrorString(error));
  EXPECT_EQ(texts.size(), std::size(errors));
  EXPECT_FALSE(texts.contains("unrecognized error code"));
  EXPECT_STREQ(cudaGetErrorString(static_cast<cudaError_t>(12345)), "unrecognized error code");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidConfiguration), "invalid configuration argument");
}

}  // namespace
}  // namespace emulated_gpu
