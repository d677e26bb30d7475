#ifndef RATSEG_TESTS_EMULATED_GPU_QUEUES_H
#define RATSEG_TESTS_EMULATED_GPU_QUEUES_H

// The queues of work of the emulated GPUs. Work waits until somebody waits for it, and then runs in
// any order that streams and events allow: what a program does not order comes in an order that
// changes with the seed.

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace emulated_gpu {

class Stream;

// A piece of work: a launch, a copy, or a place in a stream that an event marks.
struct Work {
  int device = 0;
  const Stream* stream = nullptr;
  std::function<void()> run;  // empty for a mark
  bool done = false;
  std::chrono::steady_clock::time_point when;
  std::size_t missing = 0;                   // work before it that is not done
  std::vector<std::shared_ptr<Work>> after;  // work that waits for this; of a graph's node too
};
using WorkPtr = std::shared_ptr<Work>;

class Graph {
 public:
  struct Node {
    int device = 0;
    std::function<void()> run;
    std::vector<std::size_t> before;
  };
  std::vector<Node> nodes;
  bool broken = false;
};
class GraphExec {
 public:
  std::vector<Graph::Node> nodes;
};

class Stream {
 public:
  explicit Stream(int device_) : device(device_) {}
  const int device;
  std::vector<WorkPtr> before;  // what the next piece of work comes after
  // While it is captured: the graph, and the nodes that the next one comes after.
  Graph* graph = nullptr;
  bool captureStartsHere = false;
  std::vector<std::size_t> nodesBefore;
};

class Event {
 public:
  explicit Event(int device_) : device(device_) {}
  const int device;
  WorkPtr mark;
  // Recorded on a captured stream: that graph's nodes before it.
  Graph* graph = nullptr;
  std::vector<std::size_t> nodesBefore;
  bool wasCaptured = false;  // and not recorded since the capture ended
};

class Queues {
 public:
  // start(device) is called before a device's work runs, and stop() before the host goes on.
  Queues(int devices, std::function<void(int)> start, std::function<void()> stop)
      : start_(std::move(start)),
        stop_(std::move(stop)),
        unfinished_(static_cast<std::size_t>(devices)) {}

  // Appends work to a stream, or a node to the graph that it is captured into. Empty work is a
  // mark.
  WorkPtr append(Stream& stream, std::function<void()> run);
  void appendGraph(Stream& stream, const GraphExec& graph);

  void finish(const WorkPtr& work);
  void finishDevice(int device);

 private:
  WorkPtr add(const Stream& stream, int device, std::function<void()> run,
              const std::vector<WorkPtr>& before);
  void runOne();
  void end(Work& work);
  std::size_t choose();
  void letHostGoOn();

  std::function<void(int)> start_;
  std::function<void()> stop_;
  std::vector<WorkPtr> ready_;           // in no order
  std::vector<std::size_t> unfinished_;  // pieces of work by device
  const Stream* favourite_ = nullptr;    // runs ahead of the others
  std::size_t ahead_ = 0;                // for so many pieces more
};

}  // namespace emulated_gpu

#endif
