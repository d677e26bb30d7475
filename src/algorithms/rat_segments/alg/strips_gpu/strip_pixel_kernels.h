#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_PIXEL_KERNELS_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_PIXEL_KERNELS_H

// The arithmetic of one pixel or one label of a band, for strips and tiles alike. Formulas:
// docs/math.md, sections 6.3 and 6.7.

#include <cfloat>
#include <cstddef>

#include "algorithms/rat_segments/alg/kernels/disc_radius_kernels.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_memory.h"
#include "device/types.h"

namespace namespace_ratseg::tile {

// Radius of the disc that holds p, and its square. No bound is a square of infinity. On a GPU
// lambda and weights that are denormal (below 1.2e-38) count as 0.
struct StripRadius {
  float radius, square;
};

RATSEG_HD inline StripRadius stripRadius(float weight, float lambda) {
  float r = discRadius(weight, lambda, FLT_MAX);
  if (r < 0.0f) r = FLT_MAX;
  return {r, r * r};
}

RATSEG_HD inline StripRadius stripRadiusAt(const StripBand& b, unsigned x, unsigned y) {
  return stripRadius(b.weight != nullptr ? readOnly(b.weight + (y * b.w + x)) : 1.0f, b.lambda);
}

// Of the PX columns from x on.
template <int PX>
RATSEG_HD inline void stripRadii(StripRadius (&radius)[PX], const StripBand& b, unsigned x,
                                 unsigned y) {
  float weight[PX];
  RATSEG_UNROLL
  for (int l = 0; l < PX; ++l) weight[l] = 1.0f;
  if (b.weight != nullptr) readRow(weight, b.weight + (y * b.w + x));
  RATSEG_UNROLL
  for (int l = 0; l < PX; ++l) radius[l] = stripRadius(weight[l], b.lambda);
}

// p <- projection of p + step (right - here, below - here) onto the disc
RATSEG_HD inline float2 stripDual(float2 p, float here, float right, float below, float step,
                                  StripRadius r) {
  const float x = p.x + step * (right - here);
  const float y = p.y + step * (below - here);
  const float square = x * x + y * y;
  const float inside = r.radius == 0.0f ? 0.0f : 1.0f;
  const float shrink = square > r.square ? r.radius * inverseRoot(square) : inside;
  return {x * shrink, y * shrink};
}

// v of one label before the projection.
RATSEG_HD inline float stripMoved(float old, float rho, float divergence, float coupling,
                                  float step) {
  const float moved = old + step * (divergence + coupling - rho);
  const float allowed = rho <= -FLT_MAX ? 1.0f : moved;
  return rho >= FLT_MAX ? 0.0f : allowed;
}

// Moves the n components at(i, l) of each pixel l so that the greatest is 0 and computes t[l] for
// which the sum of max(v_i - t, 0) is 1: max(v - t, 0) is the projection of v onto the simplex
// (docs/math.md, section 7.2). The mean subtraction finds t without changing v; it starts from the
// components within 1 of the greatest, among which is every one that stays positive. MAX_LABELS is
// an upper bound of n, or 0 where none is known when compiling.
template <int MAX_LABELS, int PX, class At>
RATSEG_HD inline void stripThresholds(unsigned n, float (&t)[PX], At&& at) {
  const unsigned end = MAX_LABELS > 0 ? MAX_LABELS : n;
  float before[PX];
  RATSEG_UNROLL
  for (int l = 0; l < PX; ++l) {
    float maxValue = -FLT_MAX;
    RATSEG_UNROLL
    for (unsigned i = 0; i < end; ++i) {
      if (i < n) maxValue = fmaxf(maxValue, at(i, l));
    }
    RATSEG_UNROLL
    for (unsigned i = 0; i < end; ++i) {
      if (i < n) at(i, l) -= maxValue;
    }
    t[l] = -1.0f;
    before[l] = 1.0f;  // then t is -1 already
  }
  RATSEG_KEEP_LOOP
  for (unsigned pass = 0; pass <= n; ++pass) {
    bool changed = false;
    RATSEG_UNROLL
    for (int l = 0; l < PX; ++l) {
      float sum = 0.0f;
      float active = 0.0f;
      RATSEG_UNROLL
      for (unsigned i = 0; i < end; ++i) {
        if (i < n) {
          const float v = at(i, l);
          sum += v > t[l] ? v : 0.0f;
          active += v > t[l] ? 1.0f : 0.0f;
        }
      }
      changed = changed || active != before[l];
      t[l] = quotient(sum - 1.0f, active);
      before[l] = active;
    }
    if (!changed) break;
  }
}

// One label of a band: its planes, the pixel (0, 0) of the band first.
struct StripLabel {
  const float *u, *uPrev, *rho;
  const float2 *p, *pAbove;  // p of the row itself and, new, of the row above the band
  float* uNext;
  float2* pNext;
  float theta_bar;

  // Over-relaxed labeling at an offset.
  RATSEG_HD float bar(unsigned at) const {
    const float fresh = readOnly(u + at);
    return fresh + theta_bar * (fresh - readOnly(uPrev + at));
  }
  template <int PX>
  RATSEG_HD void barRow(float (&to)[PX], unsigned at) const {
    float old[PX];
    readRow(to, u + at);
    readRow(old, uPrev + at);
    RATSEG_UNROLL
    for (int l = 0; l < PX; ++l) to[l] = to[l] + theta_bar * (to[l] - old[l]);
  }
};

RATSEG_HD inline StripLabel stripLabel(const StripBand& b, unsigned i) {
  const std::size_t plane = std::size_t{b.w} * (b.h + 1) * i;
  const std::size_t rho = std::size_t{b.w} * b.h * i;
  return {b.u + plane,     b.uPrev + plane, b.rho + rho,           b.p + plane + b.w,
          b.pNext + plane, b.uNext + plane, b.pNext + plane + b.w, b.theta_bar};
}

RATSEG_HD inline bool stripHasBelow(const StripBand& b, unsigned y) {
  return y + 1 < b.h || !b.last;
}

// The new p at one pixel.
RATSEG_HD inline float2 stripDualAt(const StripBand& b, const StripLabel& g, unsigned x, unsigned y,
                                    StripRadius r) {
  const unsigned at = y * b.w + x;
  const float here = g.bar(at);
  const float right = x + 1 < b.w ? g.bar(at + 1) : here;
  const float below = stripHasBelow(b, y) ? g.bar(at + b.w) : here;
  return stripDual(readOnly(g.p + at), here, right, below, b.dualStep, r);
}

// The new p.y of the row above (x, y); 0 above the image.
RATSEG_HD inline float stripAbove(const StripBand& b, const StripLabel& g, unsigned x, unsigned y,
                                  StripRadius above) {
  if (y > 0) return stripDualAt(b, g, x, y - 1, above).y;
  return b.first ? 0.0f : g.pAbove[x].y;
}

// The new p.x left of (x, y), whose over-relaxed labeling is here; 0 left of the image.
RATSEG_HD inline float stripLeft(const StripBand& b, const StripLabel& g, unsigned x, unsigned y,
                                 float here, StripRadius left) {
  if (x == 0) return 0.0f;
  const unsigned at = y * b.w + x - 1;
  const float bar = g.bar(at);
  const float below = stripHasBelow(b, y) ? g.bar(at + b.w) : bar;
  return stripDual(readOnly(g.p + at), bar, here, below, b.dualStep, left).x;
}

}  // namespace namespace_ratseg::tile

#endif
