#ifndef RATSEG_ALG_KERNELS_PRIOR_KERNELS_H
#define RATSEG_ALG_KERNELS_PRIOR_KERNELS_H

// The per-label arithmetic of the proportion prior, shared by host and GPU launchers: functions of
// one label i. All arrays hold n floats. The entries of alpha, beta, ratios, sigmas, mins and maxs
// at the background label ind_bgr are never used. Formulas: docs/math.md, sections 6.4 to 6.6.
//
// dt is the step multiplier: 1/dt_multiplier for the dual updates, dt_multiplier for the primal
// ones. Unused parameters belong to the launch interface and are kept in its order.

#include <cfloat>
#include <cmath>
#include <cstddef>

#include "device/types.h"
#include "util/cudaproj.h"

namespace namespace_ratseg::tile {

// src_i <- src_i + dst_i: the first argument accumulates.
RATSEG_HD inline void computeSumU_sumKernel(float* src, const float* dst, std::size_t i) {
  src[i] += dst[i];
}

// src_i <- dst_i: the first argument receives.
RATSEG_HD inline void ratseg_copyGamma(float* src, const float* dst, std::size_t i) {
  src[i] = dst[i];
}

// gamma_i <- gamma_i + dt/(2 constGamma) constGamma (a_i - sum_u_i / NOmega)
RATSEG_HD inline void ratseg_dual_gamma(float* gamma, const float* a, const float* sum_u,
                                        float constGamma, std::size_t NOmega, float dt,
                                        std::size_t i) {
  gamma[i] += (dt / (constGamma + constGamma)) * constGamma *
              (a[i] - sum_u[i] / static_cast<float>(NOmega));
}

// (alpha_i, beta_i) <- projection of (alpha_i + dt a_i, beta_i + dt (a_b - 1)) onto the cone of
// the interval [mins_i, maxs_i]
RATSEG_HD inline void ratseg_dual_alphabeta__interval(float* alpha, float* beta, const float* a,
                                                      float /*constAlpha*/, const float* mins,
                                                      const float* maxs, std::size_t ind_bgr,
                                                      float dt, std::size_t i) {
  if (i == ind_bgr) return;
  const float2 projected = projectOntoIntervalCone(
      alpha[i] + dt * a[i], beta[i] + dt * (a[ind_bgr] - 1.0f), mins[i], maxs[i]);
  alpha[i] = projected.x;
  beta[i] = projected.y;
}

// alpha_i <- alpha_i + dt/(r_i + 1) (a_i - r_i (1 - a_b)), when mu > 0
RATSEG_HD inline void ratseg_dual_alphabeta__lowerBound(
    float* alpha, const float* a, float /*constAlpha*/, float mu, const float* ratios,
    const float* /*sigmas*/, std::size_t ind_bgr, float dt, std::size_t i) {
  if (i == ind_bgr || !(mu > 0.0f)) return;
  alpha[i] += (a[i] - ratios[i] * (1.0f - a[ind_bgr])) * dt / (ratios[i] + 1.0f);
}

// d of {beta >= alpha^2 / (4 d)}, the set of the upper bound's duals: d = 1/(4 c), c = sigma^2
// constAlpha eps / mu^2. A negative mu counts as FLT_MAX; mu = 0 gives d = 0 and mu >= FLT_MAX
// gives d = FLT_MAX.
RATSEG_HD inline float parabolaWidth(float constAlpha, float mu, float eps, float sigma) {
  const float m = mu < 0.0f ? FLT_MAX : mu;
  float c;
  if (m == 0.0f) {
    c = FLT_MAX;
  } else if (m >= FLT_MAX) {
    c = 0.0f;
  } else {
    c = sigma * (sigma * (constAlpha * eps / m / m));
  }
  if (c == 0.0f) return FLT_MAX;
  return c >= FLT_MAX ? 0.0f : 1.0f / (4.0f * c);
}

// (alpha_i, beta_i) <- projection of (alpha_i + s (a_i - r_i (1 - a_b)), beta_i + s (a_b - 1)) onto
// {beta >= alpha^2 / (4 d)} with d of parabolaWidth
RATSEG_HD inline void ratseg_dual_alphabeta__upperBound(float* alpha, float* beta, const float* a,
                                                        float constAlpha, float mu, float eps,
                                                        const float* ratios, const float* sigmas,
                                                        std::size_t ind_bgr, float dt,
                                                        std::size_t i) {
  if (i == ind_bgr) return;
  const float step = fminf(dt / (ratios[i] + 1.0f), dt);
  const float x = alpha[i] + step * (a[i] - ratios[i] * (1.0f - a[ind_bgr]));
  const float y = beta[i] + step * (a[ind_bgr] - 1.0f);
  const float2 projected = projectOntoParabola(x, y, parabolaWidth(constAlpha, mu, eps, sigmas[i]));
  alpha[i] = projected.x;
  beta[i] = projected.y;
}

// One primal step of size tau along -slope, with over-relaxation.
RATSEG_HD inline void primalStep(float* a, float* a_bar, float fresh, float theta_bar,
                                 std::size_t i) {
  const float old = a[i];
  a[i] = fresh;
  a_bar[i] = fresh + theta_bar * (fresh - old);
}

// a_i <- a_i - (gamma_i constGamma) (dt / constGamma)
RATSEG_HD inline void ratseg_prim_a__gamma(float* a, float* a_bar, const float* gamma,
                                           float constGamma, float theta_bar, float dt,
                                           std::size_t i) {
  primalStep(a, a_bar, a[i] - (gamma[i] * constGamma) * (dt / constGamma), theta_bar, i);
}

// a_i <- a_i - tau slope_i; slope_i = gamma_i constGamma + alpha_i constAlpha, and for the
// background gamma_b constGamma + sum_j beta_j constAlpha; tau = dt / (sum of the coefficients)
RATSEG_HD inline void ratseg_prim_a__interval(float* a, float* a_bar, const float* gamma,
                                              const float* alpha, const float* beta,
                                              float constGamma, float constAlpha,
                                              std::size_t ind_bgr, float theta_bar, float dt,
                                              std::size_t n, std::size_t i) {
  float slope = gamma[i] * constGamma;
  float scale = constGamma;
  if (i == ind_bgr) {
    for (std::size_t j = 0; j < n; ++j) {
      if (j == ind_bgr) continue;
      slope += beta[j] * constAlpha;
      scale += constAlpha;
    }
  } else {
    slope += alpha[i] * constAlpha;
    scale = constAlpha + constGamma;
  }
  primalStep(a, a_bar, a[i] - slope * (dt / scale), theta_bar, i);
}

// As above with slope_i = gamma_i constGamma + alpha_i mu constAlpha, and for the background
// gamma_b constGamma + sum_j alpha_j r_j constAlpha mu
RATSEG_HD inline void ratseg_prim_a__lowerBound(float* a, float* a_bar, const float* gamma,
                                                const float* alpha, float constGamma,
                                                float constAlpha, float mu, const float* ratios,
                                                std::size_t ind_bgr, float theta_bar, float dt,
                                                std::size_t n, std::size_t i) {
  float slope = gamma[i] * constGamma;
  float scale = constGamma;
  if (i == ind_bgr) {
    for (std::size_t j = 0; j < n; ++j) {
      if (j == ind_bgr) continue;
      slope += alpha[j] * (ratios[j] * (constAlpha * mu));
      scale += ratios[j] * (constAlpha * mu);
    }
  } else {
    slope += alpha[i] * (mu * constAlpha);
    scale = constAlpha * mu + constGamma;
  }
  primalStep(a, a_bar, a[i] - slope * (dt / scale), theta_bar, i);
}

// The minimiser of (a - at)^2 / 2 + E / (1 - a) over a < 1: 1 - z for the root z of
// z^2 (z - (1 - at)) = E, in closed form; in double precision, since that cancels. docs/math.md,
// section 7.5.
RATSEG_HD inline float barrierProx(float at, float E) {
  const double A = (1.0 - static_cast<double>(at)) / 3.0;
  const double e = E;
  const double cube = A * A * A;
  const double Q = e / 4.0 + cube;
  if (Q >= 0.0) {
    const double C = cbrt(e / 2.0 + cube + sqrt(e * Q));
    return static_cast<float>((1.0 - A) - C - (C != 0.0 ? A * A / C : 0.0));
  }
  const double v = fmin(fmax(2.0 * Q / cube - 1.0, -1.0), 1.0);
  constexpr double twoPi = 6.283185307179586;
  return static_cast<float>(1.0 + A * (2.0 * sin((asin(v) + twoPi) / 3.0) - 1.0));
}

// As above with slope_i = gamma_i constGamma + alpha_i constAlpha, and for the background
// gamma_b constGamma + sum_j constAlpha (alpha_j r_j + beta_j), followed by the proximal step of
// the barrier eps (n-1) / (1 - a_b)
RATSEG_HD inline void ratseg_prim_a__upperBound(float* a, float* a_bar, const float* gamma,
                                                const float* alpha, const float* beta,
                                                float constGamma, float constAlpha, float /*mu*/,
                                                float eps, const float* ratios, std::size_t ind_bgr,
                                                float theta_bar, float dt, std::size_t n,
                                                std::size_t i) {
  float slope = gamma[i] * constGamma;
  float scale = constGamma;
  if (i != ind_bgr) {
    slope += alpha[i] * constAlpha;
    scale = constAlpha + constGamma;
    primalStep(a, a_bar, a[i] - slope * (dt / scale), theta_bar, i);
    return;
  }
  for (std::size_t j = 0; j < n; ++j) {
    if (j == ind_bgr) continue;
    slope += constAlpha * (alpha[j] * ratios[j] + beta[j]);
    scale += constAlpha * (ratios[j] + 1.0f);
  }
  const float tau = dt / scale;
  const float stepped = a[i] - slope * tau;
  primalStep(a, a_bar, barrierProx(stepped, eps * tau * static_cast<float>(n - 1)), theta_bar, i);
}

}  // namespace namespace_ratseg::tile

#endif
