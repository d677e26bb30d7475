#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_ENGINE_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_ENGINE_H

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

#include "algorithms/rat_segments/alg/engine.h"
#include "algorithms/rat_segments/alg/plain/plain_steps.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"

namespace namespace_ratseg {

// The fused engine of the GPUs: on one band, an iteration is one kernel. It computes what the plain
// engine computes, up to rounding. It runs on the host's devices too, slowly, for tests.
//
// What kernel k does on one band:
// - the multipliers gamma of its iteration are there: kernel k - 1 computed them;
// - it takes the dual step and the step of the labeling at all pixels, and adds up their sums;
// - beside the pixels, which do not need it, a block of its own takes the prior's step (alpha, beta
//   and a);
// - the last block to finish adds up the sums of all blocks, and computes gamma of iteration k + 1
//   from them and from a_bar.
//
// Labeling and dual field are read from one array and written to another: 20 bytes read and 12
// written per pixel and label (u, the u before, p, rho; u, p), and 12 bytes of memory more than the
// plain engine's.
//
// Each band has two queues: the second computes the rows that neighbours wait for and exchanges
// them while the first is busy with the rows between. Iterations are replayed as a recorded graph
// of all bands.
//
// With the exact step of the shares (docs/math.md, section 12) that step is a second kernel behind
// the sums. It gives gamma and the shares of the next iteration together.
class StripEngine final : public Engine {
 public:
  // Whether the bands allow the engine: peer access between all that exchange anything (without it
  // boundary rows are moved by the copy engine, whose rows differ), planes of less than 2^31
  // elements, and no more labels than a block has threads.
  static bool canRun(const SolverState& solver);

  // Takes the solver's arrays over until it is destroyed; null when a device has no room for the
  // second arrays and 64 MiB for what comes after them.
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

  // Whether the last kStepsAtOnce iterations that were queued at once were a recorded graph.
  bool replayed() const { return replayed_; }

  // Brings gamma of all devices and sum_u of device 0 up to date, behind what is queued, and with
  // the exact step of the shares a, a_bar, alpha and beta, which otherwise always are.
  void publish() override;

 private:
  // Between two calls all that the bands' queues hold comes before the end of band 0's first one.

  // Buffers of the labeling change roles in a cycle of three, those of the dual field and of the
  // multipliers in one of two: after six iterations all are back.
  static constexpr std::size_t kPhases = 6;

  struct Band {
    std::array<float*, 3> u = {};
    std::array<float2*, 2> p = {};
    std::array<float*, 2> gamma = {};
    std::array<float*, 2> sum = {};  // of u_bar that went into the gamma beside it
    // With the exact step of the shares: those that belong to the gamma beside them.
    std::array<float*, 2> a = {}, alpha = {}, beta = {};
    cudaarray<float> extraU, perLabel, partials, counter;
    cudaarray<float2> extraP;
    StripShape shape;
    unsigned firstRows = 0;    // that the band above waits for; 0 with one band
    unsigned firstBlocks = 0;  // of their launch
    unsigned blocks = 0;       // of all launches of an iteration
    cudaStream_t stream = nullptr, side = nullptr;
    cudaEvent_t mark = nullptr, edge = nullptr, first = nullptr;
  };

  StripEngine(SolverState& solver, const StepSizes& sizes);
  bool allocate(const StripWish& wish);
  void fillHaloOfU();
  void createQueues();

  std::size_t current() const { return 2 * done_ % 3; }
  std::size_t previous() const { return (2 * done_ + 1) % 3; }
  std::size_t next() const { return (2 * done_ + 2) % 3; }
  StripBand bandRows(std::size_t d) const;
  StripShares shares() const;
  StripFinish finishOf(std::size_t d) const;

  void select(std::size_t d);
  void record(cudaEvent_t event, cudaStream_t stream);
  void wait(cudaStream_t stream, cudaEvent_t event);
  void order(std::size_t d, cudaStream_t first, std::size_t e, cudaStream_t then);
  void enterQueues();
  void leaveQueues();
  void fanOut();
  void fanIn();
  LaunchShape perLabel(cudaStream_t stream) const;
  bool nextGammaInSweep() const;
  void copyLabels(cudaStream_t stream, float* to, float* from);
  void publishShares(std::size_t parity);

  void replay(StripReplay& recording);
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
  float tau_, sigma_, theta_bar_ = kThetaBar;
  std::vector<Band> bands_;
  std::array<std::unique_ptr<StripReplay>, kPhases> replays_;
  std::array<cudaEvent_t, 2> ends_ = {};  // of the last two recordings that were queued
  std::size_t queued_ = 0;                // recordings
  bool launchedAll_ = false;  // kernels are loaded when they are first launched, not in a recording
  bool canRecord_ = true;
  bool replayed_ = false;
  bool started_ = false;  // the queues exist
  bool hasArrays_ = false;
  std::size_t done_ = 0;  // iterations
};

}  // namespace namespace_ratseg

#endif
