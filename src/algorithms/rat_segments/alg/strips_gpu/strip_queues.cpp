#include "algorithms/rat_segments/alg/strips_gpu/strip_queues.h"

#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "device/runtime.h"

namespace namespace_ratseg {

StripQueues::StripQueues(SolverState& solver)
    : solver_(solver), bands_(static_cast<std::size_t>(solver.bands())) {
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    Band& b = bands_[d];
    solver_.select(static_cast<int>(d));
    for (cudaStream_t* stream : {&b.main, &b.side}) {
      cudaStreamCreate(stream);
      check();
    }
    for (cudaEvent_t* event : {&b.mark, &b.edge, &b.firstRows}) {
      cudaEventCreate(event);
      check();
    }
  }
  solver_.select(0);
  for (cudaEvent_t& end : ends_) {
    cudaEventCreate(&end);
    check();
  }
}

StripQueues::~StripQueues() {
  solver_.select(0);
  for (cudaEvent_t end : ends_) {
    cudaEventDestroy(end);
    check();
  }
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    Band& b = bands_[d];
    solver_.select(static_cast<int>(d));
    for (cudaEvent_t event : {b.mark, b.edge, b.firstRows}) {
      cudaEventDestroy(event);
      check();
    }
    for (cudaStream_t stream : {b.main, b.side}) {
      cudaStreamDestroy(stream);
      check();
    }
  }
}

void StripQueues::record(cudaEvent_t event, cudaStream_t stream) {
  cudaEventRecord(event, stream);
  check();
}

void StripQueues::wait(cudaStream_t stream, cudaEvent_t event) {
  cudaStreamWaitEvent(stream, event);
  check();
}

void StripQueues::order(std::size_t d, cudaStream_t first, std::size_t e, cudaStream_t then) {
  solver_.select(static_cast<int>(d));
  record(bands_[d].mark, first);
  solver_.select(static_cast<int>(e));
  wait(then, bands_[d].mark);
}

void StripQueues::enter() {
  for (std::size_t d = 0; d < bands_.size(); ++d) order(d, nullptr, 0, main(0));
}

void StripQueues::leave() {
  for (std::size_t d = 0; d < bands_.size(); ++d) order(0, main(0), d, nullptr);
}

void StripQueues::fanOut() {
  for (std::size_t d = 1; d < bands_.size(); ++d) order(0, main(0), d, main(d));
}

void StripQueues::fanIn() {
  for (std::size_t d = 1; d < bands_.size(); ++d) order(d, main(d), 0, main(0));
}

void StripQueues::forkSides() {
  for (std::size_t d = 0; d < bands_.size(); ++d) order(d, main(d), d, side(d));
}

void StripQueues::joinSides() {
  for (std::size_t d = 0; d < bands_.size(); ++d) order(d, side(d), d, main(d));
}

void StripQueues::markEdge(std::size_t d) { record(bands_[d].edge, side(d)); }

void StripQueues::markFirstRows(std::size_t d) { record(bands_[d].firstRows, side(d)); }

void StripQueues::waitForEdge(std::size_t d, std::size_t from) { wait(side(d), bands_[from].edge); }

void StripQueues::waitForFirstRows(std::size_t d, std::size_t from) {
  wait(side(d), bands_[from].firstRows);
}

void StripQueues::replay(StripReplay& recording) {
  const cudaEvent_t end = ends_[queued_ % 2];
  if (queued_ >= 2) {
    cudaEventSynchronize(end);
    check();
  }
  recording.launch(main(0));
  check();
  record(end, main(0));
  ++queued_;
}

}  // namespace namespace_ratseg
