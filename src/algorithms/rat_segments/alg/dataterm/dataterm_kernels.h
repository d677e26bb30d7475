#ifndef RATSEG_ALG_DATATERM_DATATERM_KERNELS_H
#define RATSEG_ALG_DATATERM_DATATERM_KERNELS_H

// The arithmetic of the colour-scribble data term, shared by host and GPU launchers. Formulas:
// docs/math.md, section 3.2.

#include <cfloat>
#include <cmath>
#include <cstddef>

#include "device/types.h"

namespace namespace_ratseg::tile {

// One linear-light channel, 0 to 100, of an sRGB value in [0, 1].
RATSEG_HD inline float linearChannel(float v) {
  return 100.0f * (v > 0.04045f ? powf((v + 0.055f) / 1.055f, 2.4f) : v / 12.92f);
}

RATSEG_HD inline float labCurve(float t) {
  return t > 0.008856f ? cbrtf(t) : 7.787f * t + 16.0f / 116.0f;
}

// CIELAB (x = L, y = a, z = b, w = 0) of an sRGB colour with channels in [0, 1].
RATSEG_HD inline float4 labFromRgb(const float4& colour) {
  const float r = linearChannel(colour.x);
  const float g = linearChannel(colour.y);
  const float b = linearChannel(colour.z);
  const float fx = labCurve((0.4124f * r + 0.3576f * g + 0.1805f * b) / 95.047f);
  const float fy = labCurve((0.2126f * r + 0.7152f * g + 0.0722f * b) / 100.0f);
  const float fz = labCurve((0.0193f * r + 0.1192f * g + 0.9505f * b) / 108.883f);
  return {116.0f * fy - 16.0f, 500.0f * (fx - fy), 200.0f * (fy - fz), 0.0f};
}

// D^2 / sigma^2 / 2 of two CIELAB colours.
RATSEG_HD inline float scribbleExponent(const float4& a, const float4& b, float sigma) {
  const float dL = a.x - b.x, da = a.y - b.y, db = a.z - b.z;
  return (dL * dL + da * da + db * db) / sigma / sigma / 2.0f;
}

// From this exponent on exp(-e) is 0 in single precision: 150 ln 2.
inline constexpr float kNoLikelihood = 103.97208f;

// The label's cost min(thr, -ln(sum_j exp(-e_j) / count)) from the least exponent e_0 and
// sum = sum_j exp(e_0 - e_j): written so, likelihoods near the least number keep their digits.
RATSEG_HD inline float scribbleCost(float minExponent, float sum, std::size_t count, float thr) {
  if (minExponent >= kNoLikelihood) return thr;
  const float cost = minExponent - logf(sum / static_cast<float>(count));
  return cost < thr ? cost : thr;
}

}  // namespace namespace_ratseg::tile

#endif
