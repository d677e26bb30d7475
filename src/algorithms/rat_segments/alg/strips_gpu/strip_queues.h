#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_QUEUES_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_QUEUES_H

#include <array>
#include <cstddef>
#include <vector>

#include "algorithms/rat_segments/alg/plain/solver_state.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "device/types.h"

namespace namespace_ratseg {

// The strip engine's queues, two for each band on its device, and what orders them. The main queue
// has the band's rows; the side queue has the rows that neighbours wait for, and the exchange with
// them. The host waits for none of them, except that it stays two recordings ahead.
//
// "first before then" means: what the queue first holds so far is done before the queue then does
// what it gets from now on.
class StripQueues {
 public:
  // Makes the queues of all bands of the solver, which must outlive this.
  explicit StripQueues(SolverState& solver);
  ~StripQueues();
  StripQueues(const StripQueues&) = delete;
  StripQueues& operator=(const StripQueues&) = delete;

  cudaStream_t main(std::size_t d) const { return bands_[d].main; }
  cudaStream_t side(std::size_t d) const { return bands_[d].side; }

  // Queue first of band d before queue then of band e, whose device is selected afterwards. Null
  // stands for the device's own queue.
  void order(std::size_t d, cudaStream_t first, std::size_t e, cudaStream_t then);

  void enter();      // the devices' own queues before band 0's main queue
  void leave();      // band 0's main queue before the devices' own
  void fanOut();     // band 0's main queue before the other bands'
  void fanIn();      // the other bands' main queues before band 0's
  void forkSides();  // each band's main queue before its side queue
  void joinSides();  // each band's side queue before its main queue

  // Band d's side queue has computed its last row or its first rows, when it comes here; band d's
  // device is selected.
  void markEdge(std::size_t d);
  void markFirstRows(std::size_t d);
  // Band d's side queue, on whose device this is called, waits until band from's has come there.
  void waitForEdge(std::size_t d, std::size_t from);
  void waitForFirstRows(std::size_t d, std::size_t from);

  // Queues the recording behind what band 0's main queue holds; its device is selected. Before that
  // the host waits for the recording before the last one, so that a run that is to stop has little
  // left to do.
  void replay(StripReplay& recording);

 private:
  struct Band {
    cudaStream_t main = nullptr, side = nullptr;
    cudaEvent_t mark = nullptr;  // of order()
    cudaEvent_t edge = nullptr, firstRows = nullptr;
  };

  void record(cudaEvent_t event, cudaStream_t stream);
  void wait(cudaStream_t stream, cudaEvent_t event);

  SolverState& solver_;
  std::vector<Band> bands_;
  std::array<cudaEvent_t, 2> ends_ = {};  // of the last two recordings that were queued
  std::size_t queued_ = 0;                // recordings
};

}  // namespace namespace_ratseg

#endif
