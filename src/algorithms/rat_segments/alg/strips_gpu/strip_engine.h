#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_ENGINE_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_ENGINE_H

#include <array>
#include <cstddef>
#include <memory>
#include <optional>

#include "algorithms/rat_segments/alg/engine.h"
#include "algorithms/rat_segments/alg/plain/plain_steps.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_bands.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_queues.h"
#include "device/source_location.h"

namespace namespace_ratseg {

// The fused engine of the GPUs: on one band, an iteration is one kernel. It computes what the plain
// engine computes, up to rounding.
//
// One band, iteration k, which starts with the multipliers gamma_k already computed:
// - each thread takes the dual step and then the primal step of the labeling at its pixels, and the
//   labeling's sums are added up block by block;
// - at the same time one more block takes the prior's step (alpha, beta and a), which needs gamma_k
//   but no pixels;
// - the block that finishes last adds up the sums of all blocks, and computes gamma_(k+1) from them
//   and from a_bar, with which the next iteration starts.
//
// Labeling and dual field are read from one array and written to another: 20 bytes read and 12
// written per pixel and label (u, the u before, p, rho; u, p), and 12 bytes of memory more than the
// plain engine's (strip_bands.h).
//
// With several bands, each has two queues (strip_queues.h): the side queue computes the rows that
// neighbours wait for and exchanges them while the main queue is busy with the rows between.
//
// Iterations are recorded as a graph of all bands, kStepsAtOnce at a time, and the graph is
// launched again and again.
//
// With the exact step of the shares (docs/math.md, section 12) each iteration has a second kernel,
// which comes after the sums are known and computes gamma and the shares of the next iteration.
class StripEngine final : public Engine {
 public:
  // True if the backend has the engine's kernels and the bands reach each other, have planes of
  // less than 2^31 elements, and no more labels than a block has threads.
  static bool canRun(const SolverState& solver);

  // The engine takes the arrays from the solver until it is destroyed. Null when a device has no
  // room for the second arrays and 64 MiB for later needs (StripBands::allocate).
  static std::unique_ptr<StripEngine> make(SolverState& solver, const StepSizes& sizes,
                                           const StripWish& wish = {});
  ~StripEngine() override;
  StripEngine(const StripEngine&) = delete;
  StripEngine& operator=(const StripEngine&) = delete;

  // At most this many iterations are queued at a time.
  static constexpr std::size_t kStepsAtOnce = 24;

  // Up to the next iteration that reports.
  static std::size_t stepsAhead(const Params& par, std::size_t step);
  std::size_t stepsAhead(std::size_t step) const override { return stepsAhead(solver_.par, step); }

  // Queues count iterations, at most kStepsAtOnce. The host waits only for recordings before the
  // last two, so that a run that is to stop has little left to do.
  void advance(std::size_t count) override;

  void handOver() override;
  void takeOver() override;

  // True if the last kStepsAtOnce iterations that were queued at once were a recorded graph.
  bool replayed() const { return replayed_; }

  // Brings gamma of all devices and sum_u of device 0 up to date, after the work already queued.
  // With the exact step of the shares also a, a_bar, alpha and beta (otherwise they are always up
  // to date).
  void publish() override;

 private:
  // Invariant between calls: band 0's main queue ends only after the work in all bands' queues.

  StripEngine(SolverState& solver, const StepSizes& sizes);
  void fillHaloOfU();

  void select(std::size_t d, SourceLocation where = SourceLocation::current());
  LaunchShape perLabel(cudaStream_t stream) const;
  void copyLabels(cudaStream_t stream, float* to, float* from);
  void publishShares(std::size_t parity);

  StripReplay* recordingOf(std::size_t count);
  void steps(std::size_t count);
  void stepOneBand();
  void stepBands();
  void sweepInside();
  void exchangeP();
  void sweepFirstRows();
  void exchangeU();
  void gatherSums();
  void nextGamma(std::size_t parity);

  SolverState& solver_;
  PlainSteps plain_;
  StripBands bands_;
  std::array<std::unique_ptr<StripReplay>, StripBands::kPhases> replays_;
  std::optional<StripQueues> queues_;  // once the bands have their arrays
  bool launchedAll_ = false;  // kernels are loaded when they are first launched, not in a recording
  bool canRecord_ = true;
  bool replayed_ = false;
  bool hasArrays_ = false;
};

}  // namespace namespace_ratseg

#endif
