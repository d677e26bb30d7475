#ifndef RATSEG_UTIL_CUDAPROJ_H
#define RATSEG_UTIL_CUDAPROJ_H

// Projections that host and GPU kernels share: onto the probability simplex, onto the region above
// a parabola, onto the polar cone of an interval. docs/math.md, sections 7.2 to 7.4, derives each.

#include <cfloat>
#include <cmath>

#include "device/types.h"

namespace namespace_ratseg {

// One pass of projectOntoSimplex: subtracts the mean excess of the active components and clamps at
// 0. Active are all components in the first pass, the positive ones afterwards; a lane takes part
// while clamped[l] is not 0. Leaves in clamped[l] whether the lane clamped something and returns
// whether any did.
template <int LANES, bool FIRST>
RATSEG_HD inline bool simplexPass(float* __restrict__ v, int n, int* __restrict__ clamped) {
  float sum[LANES] = {};
  float active[LANES] = {};
  for (int j = 0; j < n; ++j) {
    const float* vj = v + j * LANES;
    for (int l = 0; l < LANES; ++l) {
      sum[l] += FIRST || vj[l] > 0.0f ? vj[l] : 0.0f;
      active[l] += FIRST || vj[l] > 0.0f ? 1.0f : 0.0f;
    }
  }
  float mean[LANES];
  for (int l = 0; l < LANES; ++l) {
    const float excess = (sum[l] - 1.0f) / (active[l] > 0.0f ? active[l] : 1.0f);
    mean[l] = active[l] > 0.0f ? excess : 0.0f;
    mean[l] = clamped[l] != 0 ? mean[l] : 0.0f;
  }
  int below[LANES] = {};
  for (int j = 0; j < n; ++j) {
    float* vj = v + j * LANES;
    for (int l = 0; l < LANES; ++l) {
      const float moved = vj[l] - (FIRST || vj[l] > 0.0f ? mean[l] : 0.0f);
      below[l] |= moved < 0.0f ? 1 : 0;
      vj[l] = moved < 0.0f ? 0.0f : moved;
    }
  }
  int any = 0;
  for (int l = 0; l < LANES; ++l) {
    clamped[l] = below[l];
    any |= below[l];
  }
  return any != 0;
}

// Projects LANES vectors of n components, one per lane, onto the probability simplex
// {v >= 0, sum v = 1}, in place. Component j of lane l is v[j * LANES + l]. Each lane subtracts the
// mean excess of its active components and clamps at 0, until a pass clamps nothing or n passes are
// done. Lanes do not influence each other.
template <int LANES>
RATSEG_HD inline void projectOntoSimplex(float* __restrict__ v, int n) {
  if (n <= 0) return;
  int clamped[LANES];
  for (int l = 0; l < LANES; ++l) clamped[l] = 1;
  bool more = simplexPass<LANES, true>(v, n, clamped);
  for (int pass = 1; pass < n && more; ++pass) more = simplexPass<LANES, false>(v, n, clamped);
}

namespace parabola {

// The root t >= 0 of t^3 + 3 q t - 2 r = 0, r >= 0, that is nearest on the parabola. In double
// precision, since the closed forms cancel.
RATSEG_HD inline double nearestRoot(double r, double q) {
  const double discriminant = r * r + q * q * q;
  if (discriminant >= 0.0) {
    const double c = cbrt(r + sqrt(discriminant));
    return c > 0.0 ? c - q / c : 0.0;
  }
  const double s = sqrt(fabs(q));
  const double v = fmin(r / (s * s * s), 1.0);
  constexpr double twoPi = 6.283185307179586;
  return 2.0 * s * sin((twoPi - asin(v)) / 3.0);
}

// x of the point of the parabola y = x^2 / (4 d) nearest to (x, y), which lies below it. Series
// where the closed form loses precision; the thresholds are compared in double precision.
RATSEG_HD inline float nearestX(float x, float y, float d) {
  const double xd = x, yd = y, dd = d;
  if (fabs(xd) <= 0.005 * dd && fabs(yd) <= 0.005 * dd) {
    const float X = x / d, Y = y / d;
    return x *
           (1.0f + Y / 2.0f + (2.0f * Y * Y - X * X) / 8.0f + Y * (Y * Y - 2.0f * X * X) / 8.0f);
  }
  if (y > 0.0f && dd * xd * xd <= 2.5e-5 * (yd * yd * yd) && dd <= 2.5e-5 * yd) {
    const float k = sqrtf(d / (y * y * y));
    const float A = k * y, B = fabsf(x) * k;
    const float S =
        1.0f + B / 2.0f - (3.0f * B * B + 8.0f * A * A) / 8.0f + B * (B * B + 2.0f * A * A) / 2.0f;
    const float magnitude = 2.0f * y * y * k * S;
    return x >= 0.0f ? magnitude : -magnitude;
  }
  if (y < 0.0f && dd * xd * xd <= 0.005 * -(yd * yd * yd) && dd <= 0.005 * -yd) {
    const float k = -d / (y * y * y);
    return (k * (2.0f * x * y * y)) * (1.0f - k * (x * x + 2.0f * y * y));
  }
  const double X = xd / (2.0 * dd);
  const double q = (1.0 - yd / (2.0 * dd)) * 2.0 / 3.0;
  const auto magnitude = static_cast<float>(2.0 * dd * nearestRoot(fabs(X), q));
  return X >= 0.0 ? magnitude : -magnitude;
}

}  // namespace parabola

// Projects (x, y) onto {(x, y) : y >= x^2 / (4 d)}. d of at least FLT_MAX leaves the half plane
// y >= 0, d below 1e-12 the ray x = 0, y >= 0.
RATSEG_HD inline float2 projectOntoParabola(float x, float y, float d) {
  if (d >= FLT_MAX) return {x, fmaxf(y, 0.0f)};
  if (d < 1e-12) return {0.0f, fmaxf(y, 0.0f)};
  if (y >= x * (x * (1.0f / (4.0f * d)))) return {x, y};
  const float nearest = parabola::nearestX(x, y, d);
  return {nearest, nearest * nearest / (4.0f * d)};
}

// Projects (x, y) onto the cone {(x, y) : y >= lo x and y >= hi x}, the polar of
// {(s, -t) : t >= 0, lo t <= s <= hi t}. The upper ray is tried first.
RATSEG_HD inline float2 projectOntoIntervalCone(float x, float y, float lo, float hi) {
  if (y >= lo * x && y >= hi * x) return {x, y};
  const float alongHi = hi * y + x;
  if ((hi >= 0.0f && alongHi >= 0.0f) || (hi < 0.0f && alongHi <= 0.0f)) {
    const float s = alongHi / (hi * hi + 1.0f);
    return {s, hi * s};
  }
  const float alongLo = lo * y + x;
  if ((lo >= 0.0f && alongLo <= 0.0f) || (lo < 0.0f && alongLo >= 0.0f)) {
    const float s = alongLo / (lo * lo + 1.0f);
    return {s, lo * s};
  }
  return {0.0f, 0.0f};
}

}  // namespace namespace_ratseg

#endif
