// Graphs: what is recorded, in which order it is replayed, and what a recording refuses.

#include <cmath>
#include <functional>
#include <vector>

#include "kernels.h"

namespace emulated_gpu {
namespace {

class GraphsTest : public EmulatedTest {
 protected:
  GraphsTest() {
    cudaSetDevice(0);
    for (cudaStream_t* s : {&origin, &side}) cudaStreamCreateWithFlags(s, cudaStreamNonBlocking);
    for (cudaEvent_t* e : {&fork, &join}) cudaEventCreate(e);
  }
  ~GraphsTest() override {
    for (cudaStream_t s : {origin, side}) cudaStreamDestroy(s);
    for (cudaEvent_t e : {fork, join}) cudaEventDestroy(e);
  }

  // What the end of the recording says; the graph is then `graph`.
  cudaError_t record(const std::function<void()>& steps) {
    EXPECT_EQ(cudaStreamBeginCapture(origin, cudaStreamCaptureModeThreadLocal), cudaSuccess);
    steps();
    return cudaStreamEndCapture(origin, &graph);
  }
  cudaGraphExec_t made(const std::function<void()>& steps) {
    EXPECT_EQ(record(steps), cudaSuccess);
    cudaGraphExec_t exec = nullptr;
    EXPECT_EQ(cudaGraphInstantiate(&exec, graph), cudaSuccess);
    EXPECT_EQ(cudaGraphDestroy(graph), cudaSuccess);
    return exec;
  }
  void append(cudaStream_t stream, int* a, int more) {
    EXPECT_EQ(launch(timesTen, {1, 1, 0, stream}, a, more), cudaSuccess);
  }
  void order(cudaStream_t before, cudaEvent_t event, cudaStream_t after) {
    EXPECT_EQ(cudaEventRecord(event, before), cudaSuccess);
    EXPECT_EQ(cudaStreamWaitEvent(after, event), cudaSuccess);
  }

  cudaStream_t origin = nullptr, side = nullptr;
  cudaEvent_t fork = nullptr, join = nullptr;
  cudaGraph_t graph = nullptr;
};

TEST_F(GraphsTest, RecordingRunsNothing) {
  const Array<int> a(1, 0);
  ASSERT_EQ(record([&] {
              append(origin, a.get(), 1);
              order(origin, fork, side);
              append(side, a.get(), 2);
              order(side, join, origin);
            }),
            cudaSuccess);
  cudaDeviceSynchronize();
  EXPECT_EQ(a.first(), 0);
}

TEST_F(GraphsTest, ReplaysKeepTheOrderOfTheStreamAndComeInIt) {
  const Array<int> a(1);
  const cudaGraphExec_t exec = made([&] {
    append(origin, a.get(), 1);
    append(origin, a.get(), 2);
  });
  for (int k = 0; k < kTries; ++k) {
    launch(setTo, {1, 1, 0, origin}, a.get(), 9);
    EXPECT_EQ(cudaGraphLaunch(exec, origin), cudaSuccess);
    EXPECT_EQ(cudaGraphLaunch(exec, origin), cudaSuccess);
    append(origin, a.get(), 3);
    cudaDeviceSynchronize();
    EXPECT_EQ(a.first(), 912123);
  }
}

TEST_F(GraphsTest, EventsOrderStreamsWithinARecording) {
  const Array<int> a(1);
  const cudaGraphExec_t exec = made([&] {
    append(origin, a.get(), 1);
    order(origin, fork, side);
    append(side, a.get(), 2);
    order(side, join, origin);
    append(origin, a.get(), 3);
  });
  EXPECT_EQ(valuesOf([&] {
              launch(setTo, {1, 1, 0, side}, a.get(), 0);
              order(side, join, side);
              order(side, join, origin);
              cudaGraphLaunch(exec, origin);
              cudaDeviceSynchronize();
              return a.first();
            }),
            std::set<int>({123}));
}

TEST_F(GraphsTest, WhatARecordingDoesNotOrderComesInAnyOrder) {
  const Array<int> a(1);
  const cudaGraphExec_t exec = made([&] {
    append(origin, a.get(), 1);
    order(origin, fork, side);
    append(side, a.get(), 2);
    append(origin, a.get(), 3);
    order(side, join, origin);
    append(origin, a.get(), 4);
  });
  EXPECT_EQ(valuesOf([&] {
              launch(setTo, {1, 1, 0, origin}, a.get(), 0);
              cudaGraphLaunch(exec, origin);
              cudaDeviceSynchronize();
              return a.first();
            }),
            std::set<int>({1234, 1324}));
}

TEST_F(GraphsTest, AReplayIsNotOrderedWithOtherStreams) {
  const Array<int> a(1);
  const cudaGraphExec_t exec = made([&] { append(origin, a.get(), 1); });
  EXPECT_EQ(valuesOf([&] {
              launch(setTo, {1, 1, 0, origin}, a.get(), 0);
              cudaDeviceSynchronize();
              cudaGraphLaunch(exec, origin);
              append(side, a.get(), 2);
              cudaDeviceSynchronize();
              return a.first();
            }),
            std::set<int>({12, 21}));
}

TEST_F(GraphsTest, StreamsThatAreNotRecordedRunMeanwhile) {
  const Array<int> a(1, 0);
  const cudaGraphExec_t exec = made([&] {
    append(origin, a.get(), 1);
    append(side, a.get(), 2);
    append(nullptr, a.get(), 3);
  });
  cudaDeviceSynchronize();
  EXPECT_TRUE(a.first() == 23 || a.first() == 32);
  cudaGraphExecDestroy(exec);
}

TEST_F(GraphsTest, ArgumentsAreThoseOfTheRecording) {
  const Array<int> a(1, 0);
  int more = 1;
  const cudaGraphExec_t exec = made([&] { append(origin, a.get(), more); });
  more = 2;
  cudaGraphLaunch(exec, origin);
  cudaDeviceSynchronize();
  EXPECT_EQ(a.first(), 1);
}

TEST_F(GraphsTest, AReplayThatWasDestroyedStillRunsToItsEnd) {
  const Array<int> a(1, 0);
  const cudaGraphExec_t exec = made([&] { append(origin, a.get(), 1); });
  cudaGraphLaunch(exec, origin);
  EXPECT_EQ(cudaGraphExecDestroy(exec), cudaSuccess);
  cudaDeviceSynchronize();
  EXPECT_EQ(a.first(), 1);
}

// ---- What is refused

TEST_F(GraphsTest, UnjoinedStreamsAreRefused) {
  const Array<int> a(1, 0);
  EXPECT_REFUSED(record([&] {
                   append(origin, a.get(), 1);
                   order(origin, fork, side);
                   append(side, a.get(), 2);
                 }),
                 cudaErrorStreamCaptureUnjoined);
  EXPECT_EQ(graph, nullptr);
  // All streams are free again.
  append(side, a.get(), 3);
  append(origin, a.get(), 4);
  cudaDeviceSynchronize();
  EXPECT_GE(a.first(), 34);
}

TEST_F(GraphsTest, StreamsThatWereJoinedTooEarlyAreRefused) {
  const Array<int> a(1, 0);
  EXPECT_REFUSED(record([&] {
                   append(origin, a.get(), 1);
                   order(origin, fork, side);
                   append(side, a.get(), 2);
                   order(side, join, origin);
                   append(side, a.get(), 3);
                 }),
                 cudaErrorStreamCaptureUnjoined);
}

TEST_F(GraphsTest, CallsThatMustNotBeRecordedBreakTheRecording) {
  const Array<int> a(1, 0), b(1, 0);
  int host = 0;
  void* p = nullptr;
  const std::function<cudaError_t()> calls[] = {
      [&] { return cudaMalloc(&p, 16); },
      [&] { return cudaFree(b.get()); },
      [&] { return cudaMemset(a.get(), 0, sizeof(int)); },
      [&] { return cudaMemcpy(&host, a.get(), sizeof host, cudaMemcpyDeviceToHost); },
      [&] { return cudaMemcpyPeer(a.get(), 0, b.get(), 0, sizeof(int)); },
      [&] { return cudaDeviceSynchronize(); },
      [&] { return cudaEventSynchronize(join); },
  };
  for (const auto& call : calls) {
    EXPECT_REFUSED(record([&] {
                     append(origin, a.get(), 1);
                     EXPECT_REFUSED(call(), cudaErrorStreamCaptureUnsupported);
                   }),
                   cudaErrorStreamCaptureInvalidated);
    EXPECT_EQ(graph, nullptr);
  }
}

TEST_F(GraphsTest, WaitsAcrossTheEdgeOfARecordingAreRefused) {
  const Array<int> a(1, 0);
  append(side, a.get(), 1);
  cudaEventRecord(fork, side);
  EXPECT_REFUSED(record([&] {
                   EXPECT_REFUSED(cudaStreamWaitEvent(origin, fork),
                                  cudaErrorStreamCaptureIsolation);
                 }),
                 cudaErrorStreamCaptureInvalidated);
  EXPECT_REFUSED(record([&] {
                   cudaEventRecord(fork, origin);
                   EXPECT_REFUSED(cudaStreamWaitEvent(nullptr, fork),
                                  cudaErrorStreamCaptureIsolation);
                 }),
                 cudaErrorStreamCaptureInvalidated);
}

TEST_F(GraphsTest, EventsOfARecordingStandForNothingOutsideOfIt) {
  float ms = 0;
  ASSERT_EQ(record([&] {
              cudaEventRecord(fork, origin);
              EXPECT_REFUSED(cudaEventSynchronize(fork), cudaErrorCapturedEvent);
            }),
            cudaSuccess);
  EXPECT_REFUSED(cudaEventSynchronize(fork), cudaErrorCapturedEvent);
  EXPECT_REFUSED(cudaStreamWaitEvent(side, fork), cudaErrorCapturedEvent);
  EXPECT_REFUSED(cudaEventElapsedTime(&ms, fork, fork), cudaErrorInvalidResourceHandle);
  cudaEventRecord(fork, origin);
  EXPECT_EQ(cudaStreamWaitEvent(side, fork), cudaSuccess);
}

TEST_F(GraphsTest, TheDefaultStreamCannotBeRecorded) {
  EXPECT_REFUSED(cudaStreamBeginCapture(nullptr, cudaStreamCaptureModeThreadLocal),
                 cudaErrorStreamCaptureUnsupported);
}

TEST_F(GraphsTest, OnlyTheStreamThatARecordingStartedOnEndsIt) {
  EXPECT_REFUSED(cudaStreamEndCapture(origin, &graph), cudaErrorInvalidValue);
  ASSERT_EQ(record([&] {
              order(origin, fork, side);
              EXPECT_REFUSED(cudaStreamEndCapture(side, &graph), cudaErrorInvalidValue);
            }),
            cudaSuccess);
}

TEST_F(GraphsTest, WhatWasDestroyedIsRefused) {
  cudaGraphExec_t exec = made([] {}), other = nullptr;
  EXPECT_REFUSED(cudaGraphDestroy(graph), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaGraphInstantiate(&other, graph), cudaErrorInvalidValue);
  EXPECT_EQ(cudaGraphExecDestroy(exec), cudaSuccess);
  EXPECT_REFUSED(cudaGraphExecDestroy(exec), cudaErrorInvalidValue);
  EXPECT_REFUSED(cudaGraphLaunch(exec, origin), cudaErrorInvalidValue);
  exec = made([] {});
  cudaStream_t ended = nullptr;
  cudaStreamCreateWithFlags(&ended, cudaStreamNonBlocking);
  cudaStreamDestroy(ended);
  EXPECT_REFUSED(cudaGraphLaunch(exec, ended), cudaErrorInvalidResourceHandle);
}

TEST_F(GraphsTest, WhatIsNotEmulatedEndsTheProgram) {
  const cudaGraphExec_t exec = made([] {});
  EXPECT_FAULT(record([&] { cudaGraphLaunch(exec, origin); }), "graphs within graphs");
  EXPECT_FAULT(record([&] { record([] {}); }), "only one capture");
  EXPECT_FAULT(record([&] { cudaStreamDestroy(origin); }), "destroyed while it is captured");
}

}  // namespace
}  // namespace emulated_gpu
