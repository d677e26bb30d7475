#ifndef RATSEG_ALG_PLAIN_PLAIN_STEPS_H
#define RATSEG_ALG_PLAIN_PLAIN_STEPS_H

#include "algorithms/rat_segments/alg/plain/solver_state.h"
#include "device/types.h"

namespace namespace_ratseg {

inline constexpr float kThetaBar = 1.0f;  // over-relaxation

// The steps of an iteration on all bands, one launch per kernel, in the order of docs/math.md,
// section 6.2. The other engines take from here what they do not fuse: exchanges, sums, shares.
class PlainSteps {
 public:
  explicit PlainSteps(SolverState& solver) : solver_(solver), par_(solver.par) {}

  void dualStepOfLength(float sigma);
  // With one band the exchanges have nothing to do.
  void copyExtraRegions_p();         // halo row of p, from the band above
  void copyExtraRegions_u();         // halo row of u_bar, from the band below
  void computeSumU__save_on_gpu0();  // sum_u per band, gathered in device 0's
  void updateShares(float tau, float sigma);
  void primalStepOfLabeling(float tau);

  // Arrays of the exact step of the shares: n floats each, on device 0.
  struct ShareArrays {
    float *a_before, *gamma_before, *a, *a_bar, *gamma, *alpha, *beta, *sum_u;
  };
  void launchExactShares(cudaStream_t stream, const ShareArrays& s, float step);

  // Shape of launches with a thread per label.
  LaunchShape perLabel() const;

 private:
  void broadcastGamma();
  void updateSharesExactly(float step);

  SolverState& solver_;
  const Params& par_;
};

}  // namespace namespace_ratseg

#endif
