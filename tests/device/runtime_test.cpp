#include "device/runtime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/forwarding_backend.h"
#include "support/machine.h"

// The runtime's rules, on every device.

namespace namespace_ratseg {
namespace {

class RuntimeTest : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (!IsSkipped()) cudaGetLastError();
  }
};

TEST_F(RuntimeTest, FailedCallReturnsItsErrorAndLeavesItPending) {
  EXPECT_EQ(cudaSetDevice(4711), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaPeekAtLastError(), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaPeekAtLastError(), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidDevice);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

TEST_F(RuntimeTest, SuccessfulCallsKeepAnOlderErrorPending) {
  cudaSetDevice(4711);
  int count = 0;
  EXPECT_EQ(cudaGetDeviceCount(&count), cudaSuccess);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidDevice);
}

TEST_F(RuntimeTest, FailedSetDeviceKeepsTheCurrentOne) {
  int device = -1;
  cudaSetDevice(4711);
  EXPECT_EQ(cudaGetDevice(&device), cudaSuccess);
  EXPECT_EQ(device, 0);
  EXPECT_EQ(cudaSetDevice(-1), cudaErrorInvalidDevice);
  cudaGetLastError();
}

TEST_F(RuntimeTest, CountsAndDescribesItsDevices) {
  int count = 0;
  ASSERT_EQ(cudaGetDeviceCount(&count), cudaSuccess);
  EXPECT_GE(count, 1);
  cudaDeviceProp prop;
  EXPECT_EQ(cudaGetDeviceProperties(&prop, 0), cudaSuccess);
  EXPECT_STRNE(prop.name, "");
  EXPECT_GE(prop.major, 3);
  EXPECT_EQ(prop.maxThreadsPerBlock, 1024);
  EXPECT_GE(prop.sharedMemPerBlock, 48u << 10);
  EXPECT_GE(prop.sharedMemPerBlockOptin, prop.sharedMemPerBlock);
  if (!onHost()) {
    EXPECT_GT(prop.clockRate, 0);
    EXPECT_GT(prop.l2CacheSize, 0);
  }
  if (!onHost() && prop.major >= 7) {
    EXPECT_GT(prop.sharedMemPerBlockOptin, prop.sharedMemPerBlock);
  }
  EXPECT_EQ(cudaGetDeviceProperties(&prop, count), cudaErrorInvalidDevice);
  cudaGetLastError();
}

TEST_F(RuntimeTest, CopiesBytesToTheDeviceWithinItAndBack) {
  const std::string text = "some bytes";
  char* a = nullptr;
  char* b = nullptr;
  ASSERT_EQ(cudaMalloc(&a, text.size()), cudaSuccess);
  ASSERT_EQ(cudaMalloc(&b, text.size()), cudaSuccess);
  EXPECT_EQ(cudaMemcpy(a, text.data(), text.size(), cudaMemcpyHostToDevice), cudaSuccess);
  EXPECT_EQ(cudaMemcpy(b, a, text.size(), cudaMemcpyDeviceToDevice), cudaSuccess);
  std::string back(text.size(), '?');
  EXPECT_EQ(cudaMemcpy(back.data(), b, text.size(), cudaMemcpyDeviceToHost), cudaSuccess);
  EXPECT_EQ(back, text);
  EXPECT_EQ(cudaFree(a), cudaSuccess);
  EXPECT_EQ(cudaFree(b), cudaSuccess);
}

TEST_F(RuntimeTest, FillsBytes) {
  std::vector<unsigned char> host(8);
  unsigned char* a = nullptr;
  ASSERT_EQ(cudaMalloc(&a, 8), cudaSuccess);
  EXPECT_EQ(cudaMemset(a, 1, 8), cudaSuccess);
  EXPECT_EQ(cudaMemset(a + 2, 0xfe, 3), cudaSuccess);
  cudaMemcpy(host.data(), a, 8, cudaMemcpyDeviceToHost);
  EXPECT_EQ(host, std::vector<unsigned char>({1, 1, 0xfe, 0xfe, 0xfe, 1, 1, 1}));
  cudaFree(a);
}

TEST_F(RuntimeTest, FillsRowsAndLeavesTheRestOfThePitch) {
  std::vector<unsigned char> host(12);
  unsigned char* a = nullptr;
  ASSERT_EQ(cudaMalloc(&a, 12), cudaSuccess);
  cudaMemset(a, 1, 12);
  EXPECT_EQ(cudaMemset2D(a + 1, 4, 7, 2, 3), cudaSuccess);
  cudaMemcpy(host.data(), a, 12, cudaMemcpyDeviceToHost);
  EXPECT_EQ(host, std::vector<unsigned char>({1, 7, 7, 1, 1, 7, 7, 1, 1, 7, 7, 1}));
  EXPECT_EQ(cudaMemset2D(a + 4, 4, 7, 0, 3), cudaSuccess);
  cudaFree(a);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

TEST_F(RuntimeTest, RowsWiderThanThePitchAreRefused) {
  unsigned char* a = nullptr;
  ASSERT_EQ(cudaMalloc(&a, 64), cudaSuccess);
  EXPECT_EQ(cudaMemset2D(a, 4, 0, 5, 2), cudaErrorInvalidValue);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidValue);
  cudaFree(a);
}

TEST_F(RuntimeTest, TooLargeAllocationFailsForWantOfMemory) {
  std::size_t bytesFree = 0;
  std::size_t bytesTotal = 0;
  ASSERT_EQ(cudaMemGetInfo(&bytesFree, &bytesTotal), cudaSuccess);
  EXPECT_LE(bytesFree, bytesTotal);
  void* a = nullptr;
  EXPECT_EQ(cudaMalloc(&a, bytesTotal * 2), cudaErrorMemoryAllocation);
  EXPECT_EQ(cudaGetLastError(), cudaErrorMemoryAllocation);
}

TEST_F(RuntimeTest, FreeingNullIsFineAndFreeingTwiceIsNot) {
  void* a = nullptr;
  EXPECT_EQ(cudaFree(nullptr), cudaSuccess);
  ASSERT_EQ(cudaMalloc(&a, 16), cudaSuccess);
  EXPECT_EQ(cudaFree(a), cudaSuccess);
  EXPECT_NE(cudaFree(a), cudaSuccess);
  EXPECT_NE(cudaGetLastError(), cudaSuccess);
}

TEST_F(RuntimeTest, EventsMeasureForward) {
  cudaEvent_t start = nullptr;
  cudaEvent_t stop = nullptr;
  ASSERT_EQ(cudaEventCreate(&start), cudaSuccess);
  ASSERT_EQ(cudaEventCreate(&stop), cudaSuccess);
  float ms = -1;
  EXPECT_EQ(cudaEventRecord(start), cudaSuccess);
  EXPECT_EQ(cudaEventRecord(stop), cudaSuccess);
  EXPECT_EQ(cudaEventSynchronize(stop), cudaSuccess);
  EXPECT_EQ(cudaEventElapsedTime(&ms, start, stop), cudaSuccess);
  EXPECT_GE(ms, 0);
  EXPECT_EQ(cudaEventDestroy(start), cudaSuccess);
  EXPECT_EQ(cudaEventDestroy(stop), cudaSuccess);
}

TEST_F(RuntimeTest, EventsThatWereNotRecordedHaveNoTime) {
  cudaEvent_t start = nullptr;
  cudaEvent_t stop = nullptr;
  ASSERT_EQ(cudaEventCreate(&start), cudaSuccess);
  ASSERT_EQ(cudaEventCreate(&stop), cudaSuccess);
  float ms = 0;
  cudaEventRecord(start);
  EXPECT_EQ(cudaEventElapsedTime(&ms, start, stop), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventElapsedTime(&ms, stop, start), cudaErrorInvalidResourceHandle);
  cudaGetLastError();
  cudaEventDestroy(start);
  cudaEventDestroy(stop);
}

TEST_F(RuntimeTest, WorkCanBeHeldBackBehindAnEvent) {
  cudaEvent_t event = nullptr;
  ASSERT_EQ(cudaEventCreate(&event), cudaSuccess);
  EXPECT_EQ(cudaEventRecord(event), cudaSuccess);
  EXPECT_EQ(cudaStreamWaitEvent(0, event), cudaSuccess);
  EXPECT_EQ(cudaDeviceSynchronize(), cudaSuccess);
  EXPECT_EQ(cudaEventDestroy(event), cudaSuccess);
}

TEST_F(RuntimeTest, AStreamOfItsOwnRunsBehindAnEvent) {
  cudaStream_t stream = nullptr;
  cudaEvent_t event = nullptr;
  ASSERT_EQ(cudaStreamCreate(&stream), cudaSuccess);
  ASSERT_EQ(cudaEventCreate(&event), cudaSuccess);
  EXPECT_EQ(cudaEventRecord(event), cudaSuccess);
  EXPECT_EQ(cudaStreamWaitEvent(stream, event), cudaSuccess);
  EXPECT_EQ(cudaEventRecord(event, stream), cudaSuccess);
  EXPECT_EQ(cudaStreamWaitEvent(nullptr, event), cudaSuccess);
  EXPECT_EQ(cudaEventSynchronize(event), cudaSuccess);
  EXPECT_EQ(cudaStreamDestroy(stream), cudaSuccess);
  EXPECT_EQ(cudaEventDestroy(event), cudaSuccess);
}

// What the time of a fill of so many bytes is said to be, asked for after the device was waited for
// or not.
cudaError_t timeOfFill(std::size_t bytes, bool waits) {
  char* a = nullptr;
  cudaEvent_t start = nullptr;
  cudaEvent_t stop = nullptr;
  float ms = 0;
  EXPECT_EQ(cudaMalloc(&a, bytes), cudaSuccess);
  EXPECT_EQ(cudaEventCreate(&start), cudaSuccess);
  EXPECT_EQ(cudaEventCreate(&stop), cudaSuccess);
  cudaEventRecord(start);
  cudaMemset(a, 0, bytes);
  cudaEventRecord(stop);
  if (waits) {
    EXPECT_EQ(cudaDeviceSynchronize(), cudaSuccess);
  }
  const cudaError_t result = cudaEventElapsedTime(&ms, start, stop);
  cudaEventDestroy(start);
  cudaEventDestroy(stop);
  cudaFree(a);
  cudaGetLastError();
  return result;
}

TEST_F(RuntimeTest, WaitsForTheDevice) { EXPECT_EQ(timeOfFill(1 << 20, true), cudaSuccess); }

TEST_F(RuntimeTest, ErrorsHaveTexts) {
  EXPECT_STREQ(cudaGetErrorString(cudaSuccess), "no error");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorMemoryAllocation), "out of memory");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidDeviceFunction), "invalid device function");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidConfiguration), "invalid configuration argument");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidDevice), "invalid device ordinal");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidValue), "invalid argument");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidDevicePointer), "invalid device pointer");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidResourceHandle), "invalid resource handle");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInsufficientDriver),
               "CUDA driver version is insufficient for CUDA runtime version");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorNoDevice), "no CUDA-capable device is detected");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorPeerAccessAlreadyEnabled),
               "peer access is already enabled");
}

// 600 is the number of an error that CUDA alone has: an event has no time before it has come.
TEST_F(RuntimeTest, ErrorsOfCudasAloneKeepTheirNumbersAndTexts) {
  if (onHost()) GTEST_SKIP() << "host devices have no others";
  const auto notReady = static_cast<cudaError_t>(kNativeErrorBase + 600);
  EXPECT_STREQ(cudaGetErrorString(notReady), "device not ready");
  EXPECT_THAT(timeOfFill(1 << 28, false), testing::AnyOf(notReady, cudaSuccess));
}

TEST_F(RuntimeTest, ADeviceHasNoPeerAccessToItself) {
  int can = -1;
  EXPECT_EQ(cudaDeviceCanAccessPeer(&can, 0, 0), cudaSuccess);
  EXPECT_EQ(can, 0);
}

TEST_F(RuntimeTest, PeerCopiesMoveBytesBetweenDevices) {
  if (deviceCount() < 2) GTEST_SKIP() << "one device";
  const std::string text = "some bytes";
  char* from = nullptr;
  char* to = nullptr;
  ASSERT_EQ(cudaMalloc(&from, text.size()), cudaSuccess);
  ASSERT_EQ(cudaSetDevice(1), cudaSuccess);
  ASSERT_EQ(cudaMalloc(&to, text.size()), cudaSuccess);
  ASSERT_EQ(cudaSetDevice(0), cudaSuccess);
  EXPECT_EQ(cudaMemcpy(from, text.data(), text.size(), cudaMemcpyHostToDevice), cudaSuccess);
  EXPECT_EQ(cudaMemcpyPeer(to, 1, from, 0, text.size()), cudaSuccess);
  std::string back(text.size(), '?');
  ASSERT_EQ(cudaSetDevice(1), cudaSuccess);
  EXPECT_EQ(cudaMemcpy(back.data(), to, text.size(), cudaMemcpyDeviceToHost), cudaSuccess);
  EXPECT_EQ(back, text);
  EXPECT_EQ(cudaFree(to), cudaSuccess);
  ASSERT_EQ(cudaSetDevice(0), cudaSuccess);
  EXPECT_EQ(cudaFree(from), cudaSuccess);
}

// Both devices have one number on machines with one device: here the backend says what it was
// given.
class PeerCopyRecorder final : public ForwardingBackend {
 public:
  using ForwardingBackend::ForwardingBackend;
  cudaError_t memcpyPeer(void*, int dstDevice, const void*, int srcDevice, std::size_t) override {
    devices = {dstDevice, srcDevice};
    return cudaSuccess;
  }
  std::vector<int> devices;
};

TEST(RuntimeCalls, PeerCopiesGoFromTheSecondDeviceToTheFirst) {
  HostMachine machine;
  PeerCopyRecorder recorder(machine.backend);
  const BackendScope scope(recorder);
  char to = 0;
  const char from = 0;
  EXPECT_EQ(cudaMemcpyPeer(&to, 3, &from, 5, 1), cudaSuccess);
  EXPECT_EQ(recorder.devices, std::vector<int>({3, 5}));
}

}  // namespace
}  // namespace namespace_ratseg
