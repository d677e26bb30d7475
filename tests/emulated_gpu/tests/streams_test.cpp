// Streams and events: what they order and what they leave open.

#include <vector>

#include "kernels.h"

namespace emulated_gpu {
namespace {

void copyTo(int* a, const int* b) { *a = *b; }

class StreamsTest : public EmulatedTest {
 protected:
  StreamsTest() {
    cudaSetDevice(0);
    for (cudaStream_t* s : {&first, &second}) cudaStreamCreateWithFlags(s, cudaStreamNonBlocking);
    cudaEventCreate(&event);
  }
  ~StreamsTest() override {
    for (cudaStream_t s : {first, second}) cudaStreamDestroy(s);
    cudaEventDestroy(event);
  }

  // What the second stream sees of the value that the first one writes.
  template <class F>
  int seen(F between) {
    const Array<int> from(1, 0), to(1, 0);
    launch(setTo, {1, 1, 0, first}, from.get(), 1);
    between();
    launch(copyTo, {1, 1, 0, second}, to.get(), from.get());
    cudaDeviceSynchronize();
    return to.first();
  }

  cudaStream_t first = nullptr, second = nullptr;
  cudaEvent_t event = nullptr;
};

TEST_F(StreamsTest, AnEventOrdersTwoStreams) {
  EXPECT_EQ(valuesOf([this] {
              return seen([this] {
                cudaEventRecord(event, first);
                cudaStreamWaitEvent(second, event);
              });
            }),
            std::set<int>({1}));
}

TEST_F(StreamsTest, AWaitLeftOutComesToLight) {
  EXPECT_EQ(valuesOf([this] { return seen([this] { cudaEventRecord(event, first); }); }),
            std::set<int>({0, 1}));
}

TEST_F(StreamsTest, AWaitForAnEventOfTheWrongStreamComesToLight) {
  EXPECT_EQ(valuesOf([this] {
              return seen([this] {
                cudaEventRecord(event, second);
                cudaStreamWaitEvent(second, event);
              });
            }),
            std::set<int>({0, 1}));
}

TEST_F(StreamsTest, AWaitBeforeTheEventIsRecordedIsNone) {
  cudaEvent_t fresh = nullptr;
  EXPECT_EQ(valuesOf([&] {
              cudaEventCreate(&fresh);
              return seen([&] {
                EXPECT_EQ(cudaStreamWaitEvent(second, fresh), cudaSuccess);
                cudaEventRecord(fresh, first);
              });
            }),
            std::set<int>({0, 1}));
}

TEST_F(StreamsTest, ARecordAfterTheWaitDoesNotMoveIt) {
  EXPECT_EQ(valuesOf([this] {
              const Array<int> a(1, 0), b(1, 0);
              launch(setTo, {1, 1, 0, first}, a.get(), 1);
              cudaEventRecord(event, first);
              cudaStreamWaitEvent(second, event);
              launch(setTo, {1, 1, 0, first}, a.get(), 2);
              cudaEventRecord(event, first);
              launch(copyTo, {1, 1, 0, second}, b.get(), a.get());
              cudaDeviceSynchronize();
              return b.first();
            }),
            std::set<int>({1, 2}));
}

TEST_F(StreamsTest, TheDefaultStreamIsNotOrderedWithOthers) {
  const auto values = valuesOf([this] {
    const Array<int> a(1, 0), b(1, 0);
    launch(setTo, {1, 1}, a.get(), 1);
    launch(copyTo, {1, 1, 0, first}, b.get(), a.get());
    cudaDeviceSynchronize();
    return b.first();
  });
  EXPECT_EQ(values, std::set<int>({0, 1}));
}

TEST_F(StreamsTest, ACopyToTheHostDoesNotWaitForOtherStreams) {
  const auto values = valuesOf([this] {
    const Array<int> a(1, 0);
    launch(setTo, {1, 1, 0, first}, a.get(), 1);
    const int value = a.first();
    cudaDeviceSynchronize();
    EXPECT_EQ(a.first(), 1);
    return value;
  });
  EXPECT_EQ(values, std::set<int>({0, 1}));
}

TEST_F(StreamsTest, FillingAndCopyingWithinTheDeviceAreNotWaitedFor) {
  const auto values = valuesOf([this] {
    const Array<int> a(1, 7), b(1, 0), c(1, 0);
    cudaMemset(a.get(), 0, sizeof(int));
    cudaMemcpy(b.get(), a.get(), sizeof(int), cudaMemcpyDeviceToDevice);
    launch(copyTo, {1, 1, 0, first}, c.get(), a.get());
    cudaDeviceSynchronize();
    EXPECT_EQ(b.first(), 0);
    return c.first();
  });
  EXPECT_EQ(values, std::set<int>({0, 7}));
}

TEST_F(StreamsTest, WaitingForAnEventIsWaitingForWhatCameBeforeIt) {
  for (int k = 0; k < kTries; ++k) {
    const Array<int> a(1, 0);
    launch(setTo, {1, 1, 0, first}, a.get(), 1);
    cudaEventRecord(event, first);
    ASSERT_EQ(cudaEventSynchronize(event), cudaSuccess);
    EXPECT_EQ(a.first(), 1);
  }
}

TEST_F(StreamsTest, ADestroyedStreamsWorkRunsButIsNotWaitedFor) {
  const auto values = valuesOf([] {
    cudaStream_t stream = nullptr;
    cudaStreamCreateWithFlags(&stream, cudaStreamNonBlocking);
    const Array<int> a(1, 0);
    launch(setTo, {1, 1, 0, stream}, a.get(), 1);
    cudaStreamDestroy(stream);
    const int value = a.first();
    cudaDeviceSynchronize();
    EXPECT_EQ(a.first(), 1);
    return value;
  });
  EXPECT_EQ(values, std::set<int>({0, 1}));
}

TEST_F(StreamsTest, EventsOrderDevices) {
  for (const bool waits : {true, false}) {
    const auto values = valuesOf([&] {
      cudaSetDevice(1);
      cudaDeviceEnablePeerAccess(0, 0);
      cudaGetLastError();
      const Array<int> to(1, 0);
      cudaSetDevice(0);
      const Array<int> from(1, 0);
      launch(setTo, {1, 1}, from.get(), 1);
      cudaEventRecord(event);
      cudaSetDevice(1);
      if (waits) cudaStreamWaitEvent(nullptr, event);
      launch(copyTo, {1, 1}, to.get(), from.get());
      const int value = to.first();
      cudaSetDevice(0);
      return value;
    });
    EXPECT_EQ(values, waits ? std::set<int>({1}) : std::set<int>({0, 1}));
  }
}

TEST_F(StreamsTest, CopiesBetweenDevicesComeAfterAllThatBothHadToDo) {
  for (int k = 0; k < kTries; ++k) {
    cudaSetDevice(1);
    const Array<int> to(1, 0);
    launch(setTo, {1, 1}, to.get(), 5);
    cudaSetDevice(0);
    const Array<int> from(1, 0);
    launch(setTo, {1, 1, 0, first}, from.get(), 1);
    ASSERT_EQ(cudaMemcpyPeer(to.get(), 1, from.get(), 0, sizeof(int)), cudaSuccess);
    EXPECT_EQ(from.first(), 1);
    cudaSetDevice(1);
    EXPECT_EQ(to.first(), 1);
    cudaSetDevice(0);
  }
}

// ---- What is refused

TEST_F(StreamsTest, EventsAndLaunchesBelongToTheirDevice) {
  const Array<int> a(1, 0);
  cudaSetDevice(1);
  EXPECT_REFUSED(cudaEventRecord(event), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventRecord(event, first), cudaSuccess);
  EXPECT_REFUSED(launch(setTo, {1, 1, 0, first}, a.get(), 1), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventSynchronize(event), cudaSuccess);
}

TEST_F(StreamsTest, TimesAreOfRecordedEventsThatHaveHappened) {
  cudaEvent_t start = nullptr, stop = nullptr;
  cudaEventCreate(&start);
  cudaEventCreate(&stop);
  float ms = -1;
  EXPECT_REFUSED(cudaEventElapsedTime(&ms, start, stop), cudaErrorInvalidResourceHandle);
  const Array<int> a(1, 0);
  cudaEventRecord(start);
  EXPECT_REFUSED(cudaEventElapsedTime(&ms, start, stop), cudaErrorInvalidResourceHandle);
  launch(setTo, {1, 1}, a.get(), 1);
  cudaEventRecord(stop);
  EXPECT_REFUSED(cudaEventElapsedTime(&ms, start, stop), cudaErrorNotReady);
  cudaEventSynchronize(stop);
  EXPECT_EQ(cudaEventElapsedTime(&ms, start, stop), cudaSuccess);
  EXPECT_GE(ms, 0);
  EXPECT_EQ(cudaEventElapsedTime(&ms, stop, start), cudaSuccess);
  EXPECT_LE(ms, 0);
}

TEST_F(StreamsTest, TimesOfEventsOfTwoDevicesDoNotCompare) {
  cudaEventRecord(event);
  cudaSetDevice(1);
  cudaEvent_t other = nullptr;
  cudaEventCreate(&other);
  cudaEventRecord(other);
  float ms = -1;
  EXPECT_REFUSED(cudaEventElapsedTime(&ms, event, other), cudaErrorInvalidResourceHandle);
}

TEST_F(StreamsTest, WhatHasEndedIsRefusedAndItsHandleNotGivenOutAgain) {
  cudaEvent_t oldEvent = nullptr, newEvent = nullptr;
  cudaStream_t oldStream = nullptr, newStream = nullptr;
  cudaEventCreate(&oldEvent);
  cudaStreamCreateWithFlags(&oldStream, cudaStreamNonBlocking);
  EXPECT_EQ(cudaEventDestroy(oldEvent), cudaSuccess);
  EXPECT_EQ(cudaStreamDestroy(oldStream), cudaSuccess);
  cudaEventCreate(&newEvent);
  cudaStreamCreateWithFlags(&newStream, cudaStreamNonBlocking);
  EXPECT_NE(oldEvent, newEvent);
  EXPECT_NE(oldStream, newStream);
  const Array<int> a(1, 0);
  EXPECT_REFUSED(cudaEventRecord(oldEvent), cudaErrorInvalidResourceHandle);
  EXPECT_REFUSED(cudaEventRecord(event, oldStream), cudaErrorInvalidResourceHandle);
  EXPECT_REFUSED(cudaEventSynchronize(oldEvent), cudaErrorInvalidResourceHandle);
  EXPECT_REFUSED(cudaStreamWaitEvent(first, oldEvent), cudaErrorInvalidResourceHandle);
  EXPECT_REFUSED(cudaStreamWaitEvent(oldStream, event), cudaErrorInvalidResourceHandle);
  EXPECT_REFUSED(launch(setTo, {1, 1, 0, oldStream}, a.get(), 1), cudaErrorInvalidResourceHandle);
  EXPECT_REFUSED(cudaEventDestroy(oldEvent), cudaErrorInvalidResourceHandle);
  EXPECT_REFUSED(cudaStreamDestroy(oldStream), cudaErrorInvalidResourceHandle);
  EXPECT_REFUSED(cudaStreamBeginCapture(oldStream, cudaStreamCaptureModeThreadLocal),
                 cudaErrorInvalidResourceHandle);
}

TEST_F(StreamsTest, StreamsThatTheDefaultStreamWaitsForAreNotEmulated) {
  cudaStream_t stream = nullptr;
  EXPECT_FAULT(cudaStreamCreateWithFlags(&stream, 0), "only non-blocking streams");
}

// ---- A launch

TEST_F(StreamsTest, ArgumentsAreThoseOfTheLaunch) {
  const Array<int> a(1, 0);
  int more = 1;
  launch(timesTen, {1, 1}, a.get(), more);
  more = 2;
  launch(timesTen, {1, 1}, a.get(), more);
  more = 3;
  EXPECT_EQ(a.first(), 12);
}

}  // namespace
}  // namespace emulated_gpu
