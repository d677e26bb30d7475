#ifndef RATSEG_UTIL_LINALG_H
#define RATSEG_UTIL_LINALG_H

// Small vector arithmetic that host and GPU kernels share.

#include <cfloat>
#include <cmath>

#include "device/types.h"

namespace namespace_ratseg {

// Pulls (x, y) onto the disc of radius r around the origin if it lies outside:
// (x, y) / max(|(x, y)| / r, 1). A radius of at least FLT_MAX means no bound, a radius of 0 gives
// (0, 0) whatever x and y are. docs/math.md, section 7.1.
RATSEG_HD inline float2 clampToDisc(float x, float y, float r) {
  const float excess = sqrtf(x * x + y * y) / r;
  const float shrink = excess > 1.0f ? 1.0f / excess : 1.0f;
  const float scale = r >= FLT_MAX ? 1.0f : shrink;
  return {r == 0.0f ? 0.0f : x * scale, r == 0.0f ? 0.0f : y * scale};
}

}  // namespace namespace_ratseg

#endif
