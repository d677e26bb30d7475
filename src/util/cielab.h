#ifndef RATSEG_UTIL_CIELAB_H
#define RATSEG_UTIL_CIELAB_H

// From sRGB to CIELAB, shared by host and GPU launchers. docs/math.md, section 3.2.

#include <cmath>

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

}  // namespace namespace_ratseg::tile

#endif
