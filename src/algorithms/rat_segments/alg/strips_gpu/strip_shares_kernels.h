#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_SHARES_KERNELS_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_SHARES_KERNELS_H

// The prior's step beside the pixels, and what follows when the sums are known.

#include <cstddef>

#include "algorithms/rat_segments/alg/kernels/prior_kernels.h"
#include "algorithms/rat_segments/alg/params.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "device/types.h"

namespace namespace_ratseg::tile {

// The two halves of the shares' step of label i; between them all labels must be done with the
// first.
RATSEG_HD inline void stripSharesDual(const StripShares& s, std::size_t i) {
  switch (s.kind_prior) {
    case Params::kind_prior_interval:
      ratseg_dual_alphabeta__interval(s.alpha, s.beta, s.a_bar, s.constAlpha, s.mins, s.maxs,
                                      s.ind_bgr, s.sigma, i);
      break;
    case Params::kind_prior_lowerBound:
      ratseg_dual_alphabeta__lowerBound(s.alpha, s.a_bar, s.constAlpha, s.mu, s.ratios, s.sigmas,
                                        s.ind_bgr, s.sigma, i);
      break;
    case Params::kind_prior_upperBound:
      ratseg_dual_alphabeta__upperBound(s.alpha, s.beta, s.a_bar, s.constAlpha, s.mu, s.eps,
                                        s.ratios, s.sigmas, s.ind_bgr, s.sigma, i);
      break;
    default:
      break;
  }
}
RATSEG_HD inline void stripSharesPrimal(const StripShares& s, std::size_t i) {
  switch (s.kind_prior) {
    case Params::kind_prior_interval:
      ratseg_prim_a__interval(s.a, s.a_bar, s.gamma, s.alpha, s.beta, s.constGamma, s.constAlpha,
                              s.ind_bgr, s.theta_bar, s.tau, s.n, i);
      break;
    case Params::kind_prior_lowerBound:
      ratseg_prim_a__lowerBound(s.a, s.a_bar, s.gamma, s.alpha, s.constGamma, s.constAlpha, s.mu,
                                s.ratios, s.ind_bgr, s.theta_bar, s.tau, s.n, i);
      break;
    case Params::kind_prior_upperBound:
      ratseg_prim_a__upperBound(s.a, s.a_bar, s.gamma, s.alpha, s.beta, s.constGamma, s.constAlpha,
                                s.mu, s.eps, s.ratios, s.ind_bgr, s.theta_bar, s.tau, s.n, i);
      break;
    default:
      ratseg_prim_a__gamma(s.a, s.a_bar, s.gamma, s.constGamma, s.theta_bar, s.tau, i);
  }
}

// Label i when its sum is known: the sum, and the multiplier of the next iteration.
RATSEG_HD inline void stripFinishLabel(const StripFinish& f, std::size_t i, double sum) {
  const float total = static_cast<float>(sum);
  if (f.gammaNext != nullptr) {
    float gamma = f.gamma[i];
    ratseg_dual_gamma(&gamma, f.a_bar + i, &total, f.constGamma, f.NOmega, f.sigma, 0);
    f.gammaNext[i] = gamma;
  }
  f.sum[i] = total;
}

}  // namespace namespace_ratseg::tile

#endif
