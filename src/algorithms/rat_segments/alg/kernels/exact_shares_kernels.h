#ifndef RATSEG_ALG_KERNELS_EXACT_SHARES_KERNELS_H
#define RATSEG_ALG_KERNELS_EXACT_SHARES_KERNELS_H

// The exact step of the shares, for host and GPU launchers: it takes the place of the steps of
// gamma, of alpha and beta, and of a in the accelerated iteration. All sums and roots in double
// precision. Formulas: docs/math.md, section 12.

#include <cfloat>
#include <cmath>
#include <cstddef>

#include "algorithms/rat_segments/alg/kernels/prior_kernels.h"
#include "device/types.h"

namespace namespace_ratseg::tile {

// The input of the step, n floats per array; the entries of ratios and sigmas at ind_bgr are not
// used.
struct ShareStepInput {
  const float* sum_u;   // sums of u_bar over the image
  const float* ratios;  // r
  const float* sigmas;
  double pixels;  // N
  double step;    // of gamma
  float mu, eps;
  std::size_t ind_bgr, n;
};

// A label's share after the step is q + pull (r B - q): pull is 1 where the prior is strict and 0
// where it has no hold on the label. decay is -pull' / pull, the prime being d/dB.
struct SharePull {
  double pull, decay;
};
RATSEG_HD inline SharePull sharePull(double k, double S, double B) {
  if (k >= static_cast<double>(FLT_MAX)) return {1.0, 0.0};
  if (k < 1e-12) return {0.0, 0.0};
  const double D = k + S * B;
  return {k / D, S / D};
}

RATSEG_HD inline double shareWidth(const ShareStepInput& in, std::size_t i) {
  return static_cast<double>(
      parabolaWidth(static_cast<float>(in.pixels), in.mu, in.eps, in.sigmas[i]));
}

// q_i = m_i - gamma_i / step
RATSEG_HD inline double shareTarget(const ShareStepInput& in, const float* gamma, std::size_t i) {
  return static_cast<double>(in.sum_u[i]) / in.pixels - static_cast<double>(gamma[i]) / in.step;
}

// Divides the labels among lanes: a lane takes the labels lane, lane + lanes, ...; sum() gives all
// lanes the sum of their values, the same to the bit; wait() returns when all lanes have called it.
// This one is for a single thread that takes all labels.
struct OneLane {
  std::size_t lane = 0, lanes = 1;
  RATSEG_HD double sum(double value) const { return value; }
  RATSEG_HD void wait() const {}
};

// First and second derivative, by the foreground's share B, of the least value over a of
//   prior(a)/N + step/2 |a - q|^2,   a_b = 1 - B
struct ShareSlopes {
  double first, second;
};
template <class Lanes>
RATSEG_HD inline ShareSlopes shareSlopes(const ShareStepInput& in, const float* gamma,
                                         double barrier, double B, const Lanes& lanes) {
  const double S = in.step / 2.0;
  ShareSlopes labels = {0.0, 0.0};
  for (std::size_t i = lanes.lane; i < in.n; i += lanes.lanes) {
    if (i == in.ind_bgr) continue;
    const double r = static_cast<double>(in.ratios[i]);
    const double q = shareTarget(in, gamma, i);
    const double d = r * B - q;
    const SharePull p = sharePull(shareWidth(in, i), S, B);
    const double slope = p.pull * r + p.decay * q;  // of the label's share
    labels.first += S * p.pull * d * (2.0 * r - p.decay * d);
    labels.second += 2.0 * S * p.pull * slope * slope;
  }
  ShareSlopes h = {2.0 * S * (B - (1.0 - shareTarget(in, gamma, in.ind_bgr))), 2.0 * S};
  if (barrier > 0.0) {
    h.first -= barrier / (B * B);
    h.second += 2.0 * barrier / (B * B * B);
  }
  return {h.first + lanes.sum(labels.first), h.second + lanes.sum(labels.second)};
}

// The B >= 0 of the least value: where the first slope, which grows with B, is 0, or next to 0
// where it is positive for all B. Newton's method within a bracket, from the value before.
template <class Lanes>
RATSEG_HD inline double shareOfForeground(const ShareStepInput& in, const float* gamma,
                                          double before, const Lanes& lanes) {
  constexpr int kMaxSteps = 200;
  constexpr double kTolerance = 1e-10;
  constexpr double kMinStart = 1e-6;
  const double barrier = static_cast<double>(in.eps) * static_cast<double>(in.n - 1) / in.pixels;
  double B = before > kMinStart ? before : kMinStart;
  double lo = 0.0;
  double hi = DBL_MAX;
  for (int k = 0; k < kMaxSteps; ++k) {
    const ShareSlopes h = shareSlopes(in, gamma, barrier, B, lanes);
    (h.first < 0.0 ? lo : hi) = B;
    double next = B - h.first / h.second;
    if (!(next > lo && next < hi)) next = hi < DBL_MAX ? (lo + hi) / 2.0 : 2.0 * B;
    const double change = fabs(next - B);
    B = next;
    if (change <= kTolerance * B) break;
  }
  return B;
}

// Without a prior: a = m, and gamma = 0.
template <class Lanes = OneLane>
RATSEG_HD inline void ratseg_free_shares(float* a, float* a_bar, float* gamma, const float* sum_u,
                                         std::size_t NOmega, std::size_t n,
                                         const Lanes& lanes = {}) {
  for (std::size_t i = lanes.lane; i < n; i += lanes.lanes) {
    a[i] = a_bar[i] = sum_u[i] / static_cast<float>(NOmega);
    gamma[i] = 0.0f;
  }
}

// The upper bound's step of all labels at once, with m_i = sum_u_i / NOmega:
//   a <- argmin over a of  prior(a)/NOmega + step/2 |a - (m - gamma/step)|^2
//   gamma <- gamma + step (a - m);  alpha = -gamma and beta the least that goes with it
// a_before and gamma_before are those before the step, and may be a and gamma.
template <class Lanes = OneLane>
RATSEG_HD inline void ratseg_exact_shares(float* a, float* a_bar, float* gamma, float* alpha,
                                          float* beta, const float* a_before,
                                          const float* gamma_before, const float* sum_u,
                                          std::size_t NOmega, float mu, float eps,
                                          const float* ratios, const float* sigmas,
                                          std::size_t ind_bgr, float step, std::size_t n,
                                          const Lanes& lanes = {}) {
  const ShareStepInput in = {
      sum_u, ratios,  sigmas, static_cast<double>(NOmega), static_cast<double>(step), mu,
      eps,   ind_bgr, n};
  const double before = 1.0 - static_cast<double>(a_before[ind_bgr]);
  const double B = shareOfForeground(in, gamma_before, before, lanes);
  lanes.wait();  // all lanes have read the background's entries
  for (std::size_t i = lanes.lane; i < n; i += lanes.lanes) {
    const double q = shareTarget(in, gamma_before, i);
    double moved = 1.0 - B - q;
    if (i != ind_bgr) {
      const double k = shareWidth(in, i);
      const SharePull p = sharePull(k, in.step / 2.0, B);
      moved = p.pull * (static_cast<double>(ratios[i]) * B - q);
      const double x = in.step * moved;
      alpha[i] = static_cast<float>(-x);
      beta[i] = p.pull > 0.0 ? static_cast<float>(x * x / (4.0 * k)) : 0.0f;
    }
    a[i] = a_bar[i] = static_cast<float>(q + moved);
    gamma[i] = static_cast<float>(in.step * moved);
  }
}

}  // namespace namespace_ratseg::tile

#endif
