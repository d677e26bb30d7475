#ifndef RATSEG_ALG_DATATERM_DATATERM_KERNELS_H
#define RATSEG_ALG_DATATERM_DATATERM_KERNELS_H

// The arithmetic of the colour-scribble data term, shared by host and GPU launchers. Formulas:
// docs/math.md, section 3.2.

#include <cfloat>
#include <cmath>
#include <cstddef>

#include "device/types.h"
#include "util/cielab.h"

namespace namespace_ratseg::tile {

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
