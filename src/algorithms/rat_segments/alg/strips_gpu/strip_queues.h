#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_QUEUES_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_QUEUES_H

#include <array>
#include <cstddef>
#include <vector>

#include "algorithms/rat_segments/alg/plain/solver_state.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "device/types.h"

namespace namespace_ratseg {

// The strip engine's queues, two for each band on its device, and the order between them. The main
// queue has the band's rows; the side queue has the rows that neighbours wait for, and the exchange
// with them. The host waits for none of them, except that it stays two recordings ahead.
//
// "Queue A before queue B" says: all work that A holds now is done before B starts any work that it
// gets from now on.
class StripQueues {
 public:
  // Makes the queues of all bands of the solver, which must outlive this.
  explicit StripQueues(SolverState& solver);
  ~StripQueues();
  StripQueues(const StripQueues&) = delete;
  StripQueues& operator=(const StripQueues&) = delete;

  cudaStream_t main(std::size_t d) const { return bands_[d].main; }
  cudaStream_t side(std::size_t d) const { return bands_[d].side; }

  // Puts queue first, of band d, before queue then, of band e, whose device is selected afterwards.
  // Null stands for the device's default queue.
  void order(std::size_t d, cudaStream_t first, std::size_t e, cudaStream_t then);

  void enter();      // the devices' own queues before band 0's main queue
  void leave();      // band 0's main queue before the devices' own
  void fanOut();     // band 0's main queue before the other bands'
  void fanIn();      // the other bands' main queues before band 0's
  void forkSides();  // each band's main queue before its side queue
  void joinSides();  // each band's side queue before its main queue

  // Marks the point in band d's side queue at which its last row (its first rows) is computed; band
  // d's device must be selected.
  void markEdge(std::size_t d);
  void markFirstRows(std::size_t d);
  // Lets band d's side queue wait for the mark of band from; band d's device must be selected.
  void waitForEdge(std::size_t d, std::size_t from);
  void waitForFirstRows(std::size_t d, std::size_t from);

  // Queues the recording on band 0's main queue; its device must be selected. Before that the host
  // waits for the recording before the last one, so that a run that is to stop has little left to
  // do.
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
