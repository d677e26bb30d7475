#ifndef RATSEG_ALG_FUSED_HOST_HOST_ENGINE_H
#define RATSEG_ALG_FUSED_HOST_HOST_ENGINE_H

#include <cstddef>
#include <vector>

#include "algorithms/rat_segments/alg/engine.h"
#include "algorithms/rat_segments/alg/fused_host/host_sweep.h"
#include "algorithms/rat_segments/alg/plain/plain_steps.h"

namespace namespace_ratseg {

// The fused engine: one run of the iteration on the host's devices in one sweep over the rows per
// iteration, instead of one launch per kernel. It computes what the plain engine computes, up to
// rounding.
//
// The order of one iteration: the sums of u_bar are known from the previous sweep, so gamma and the
// shares come first; then rows at the lower edge of each thread's piece take their dual step, since
// the piece below needs them; then each thread sweeps its piece, and each row takes its dual and
// its primal step. A row's dual step reads u_bar of the row below, which has not taken its primal
// step yet.
class HostEngine final : public Engine {
 public:
  // True if the current backend is the host and all neighbouring bands have peer access. (Without
  // it the copy engine moves boundary rows, and others than the kernels do.)
  static bool canRun(const SolverState& solver);

  // Takes the arrays from the solver; while the engine has them, the rows of p are split.
  HostEngine(SolverState& solver, const StepSizes& sizes, const HostSweep& sweep = hostSweep());
  ~HostEngine() override;
  HostEngine(const HostEngine&) = delete;
  HostEngine& operator=(const HostEngine&) = delete;

  void advance(std::size_t count) override;
  void handOver() override;
  void takeOver() override;

 private:
  // A piece of a band's rows that one thread sweeps.
  struct Piece {
    std::size_t band, first, last;
  };

  void step();
  void gatherSums();
  void prepareBands();
  void admitLaunches(const char* name);
  std::size_t work() const;
  float* scratch() const;  // the calling thread's, for the sweep

  SolverState& solver_;
  PlainSteps plain_;
  StepSizes sizes_;
  bool hasArrays_ = false;
  const HostSweep& sweep_;
  std::vector<SweepBand> bands_;
  std::vector<std::vector<float>> coupling_;  // per band and label
  std::vector<std::vector<float>> rowSums_;   // per band: rows x labels
  std::vector<Piece> pieces_;
};

}  // namespace namespace_ratseg

#endif
