// The order of work, of the queues alone.

#include "queues.h"

#include <string>

#include "kernels.h"

namespace emulated_gpu {
namespace {

class QueuesTest : public ::testing::Test {
 protected:
  std::function<void()> note(const std::string& what) {
    return [this, what] { log += what; };
  }
  std::string take() { return std::exchange(log, ""); }

  std::string log;
  Queues queues{2, [](int) {}, [] {}};
  Stream a{0}, b{0}, other{1};
};

TEST_F(QueuesTest, NothingRunsBeforeSomebodyWaits) {
  const WorkPtr work = queues.append(a, note("x"));
  EXPECT_EQ(log, "");
  EXPECT_FALSE(work->done);
  queues.finish(work);
  EXPECT_EQ(log, "x");
  EXPECT_TRUE(work->done);
}

TEST_F(QueuesTest, AStreamKeepsItsOrder) {
  for (int k = 0; k < kTries; ++k) {
    for (const char* what : {"1", "2", "3", "4"}) queues.append(a, note(what));
    queues.finishDevice(0);
    EXPECT_EQ(take(), "1234");
  }
}

TEST_F(QueuesTest, WaitingForWorkRunsNoMoreOfItsStream) {
  queues.append(a, note("1"));
  const WorkPtr two = queues.append(a, note("2"));
  queues.append(a, note("3"));
  queues.finish(two);
  EXPECT_EQ(take(), "12");
  queues.finishDevice(0);
  EXPECT_EQ(take(), "3");
}

TEST_F(QueuesTest, StreamsComeInAnyOrder) {
  const auto logs = valuesOf([this] {
    for (const char* what : {"1", "2"}) queues.append(a, note(what));
    for (const char* what : {"x", "y"}) queues.append(b, note(what));
    queues.finishDevice(0);
    return take();
  });
  EXPECT_GE(logs.size(), 4u);
  for (const std::string& order : logs) {
    EXPECT_LT(order.find('1'), order.find('2'));
    EXPECT_LT(order.find('x'), order.find('y'));
  }
}

TEST_F(QueuesTest, AStreamMayGetFarAheadOfAnother) {
  const auto isAhead = valuesOf([this] {
    for (int k = 0; k < 16; ++k) {
      queues.append(a, note("1"));
      queues.append(b, note("x"));
    }
    queues.finishDevice(0);
    return take().find(std::string(10, 'x')) != std::string::npos;
  });
  EXPECT_EQ(isAhead, std::set<bool>({false, true}));
}

TEST_F(QueuesTest, WorkOfAnotherDeviceMayRunAnyTime) {
  const auto logs = valuesOf([this] {
    queues.append(a, note("1"));
    queues.append(other, note("x"));
    queues.finishDevice(0);
    const std::string order = take();
    queues.finishDevice(1);
    log.clear();
    return order;
  });
  EXPECT_EQ(logs, std::set<std::string>({"1", "x1"}));
}

TEST_F(QueuesTest, WhatComesAfterAMarkWaitsForItsStream) {
  for (int k = 0; k < kTries; ++k) {
    queues.append(a, note("1"));
    const WorkPtr mark = queues.append(a, nullptr);
    EXPECT_FALSE(mark->done);
    other.before.push_back(mark);
    queues.append(other, note("x"));
    queues.finishDevice(1);
    EXPECT_EQ(take(), "1x");
    EXPECT_TRUE(mark->done);
  }
}

TEST_F(QueuesTest, AMarkInAnEmptyStreamIsPassedAtOnce) {
  EXPECT_TRUE(queues.append(a, nullptr)->done);
}

TEST_F(QueuesTest, WorkIsStartedOnItsDeviceAndTheHostComesBack) {
  Queues told(
      2, [this](int device) { log += "[" + std::to_string(device); }, [this] { log += "]"; });
  told.append(other, note("x"));
  told.finishDevice(1);
  EXPECT_EQ(take(), "[1x]");
}

TEST_F(QueuesTest, MoreThanAThousandPiecesMakeTheHostWait) {
  int ran = 0, stops = 0;
  Queues told(
      1, [](int) {}, [&stops] { ++stops; });
  for (int k = 0; k < 1000; ++k) told.append(a, [&ran] { ++ran; });
  EXPECT_EQ(ran, 0);
  told.append(a, [&ran] { ++ran; });
  EXPECT_EQ(ran, 500);
  EXPECT_EQ(stops, 1);
  told.finishDevice(0);
  EXPECT_EQ(ran, 1001);
}

TEST_F(QueuesTest, WaitingForWorkThatNeverComesIsAFault) {
  auto never = std::make_shared<Work>();
  a.before.push_back(never);
  const WorkPtr work = queues.append(a, note("x"));
  EXPECT_FAULT(queues.finish(work), "emulated GPU: work waits for work that never comes\n");
}

// ---- Graphs

TEST_F(QueuesTest, ACapturedStreamsWorkBecomesNodes) {
  Graph graph;
  a.graph = &graph;
  EXPECT_EQ(queues.append(a, note("1")), nullptr);
  EXPECT_EQ(queues.append(a, nullptr), nullptr);
  queues.append(a, note("2"));
  queues.finishDevice(0);
  EXPECT_EQ(log, "");
  ASSERT_EQ(graph.nodes.size(), 2u);
  EXPECT_TRUE(graph.nodes[0].before.empty());
  EXPECT_EQ(graph.nodes[1].before, std::vector<std::size_t>({0}));
}

TEST_F(QueuesTest, AGraphsNodesKeepTheirOrderBetweenWhatComesBeforeAndAfter) {
  // 1, then 2 and 3 in any order, then 4.
  GraphExec graph;
  graph.nodes = {
      {0, note("1"), {}}, {1, note("2"), {0}}, {0, note("3"), {0}}, {0, note("4"), {1, 2}}};
  const auto logs = valuesOf([&] {
    queues.append(b, note("("));
    queues.appendGraph(b, graph);
    queues.appendGraph(b, graph);
    queues.append(b, note(")"));
    queues.finishDevice(0);
    return take();
  });
  EXPECT_EQ(logs, std::set<std::string>({"(12341234)", "(12341324)", "(13241234)", "(13241324)"}));
}

}  // namespace
}  // namespace emulated_gpu
