#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_TILE_KERNELS_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_TILE_KERNELS_H

// One iteration on tiles, for any number of labels: what one thread does with its pixel.

#include <cstddef>

#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_memory.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_pixel_kernels.h"
#include "device/ceil_div.h"
#include "device/types.h"

namespace namespace_ratseg::tile {

// Tiles of a launch, and the pixel of a thread in one of them. False when there is none.
RATSEG_HD inline unsigned stripTiles(const StripBand& b, unsigned tileRows) {
  return ceilDiv(b.w, kTileColumns) * ceilDiv(b.rowEnd - b.rowBegin, tileRows);
}
RATSEG_HD inline bool pixelOfThread(const StripBand& b, unsigned tileRows, unsigned tile,
                                    unsigned thread, unsigned& x, unsigned& y) {
  const unsigned columns = ceilDiv(b.w, kTileColumns);
  x = tile % columns * kTileColumns + thread % kTileColumns;
  y = b.rowBegin + tile / columns * tileRows + thread / kTileColumns;
  return x < b.w && y < b.rowEnd;
}

// One thread of the kernel for any number of labels: pixel (x, y). v holds n values stride apart
// and may be uNext of the pixel itself, stride a plane. add(i, s) receives the over-relaxed
// labeling of label i that it leaves; threads with no pixel of their own (inside false) only add
// zeros.
template <class Add>
RATSEG_HD inline void ratseg_strip_pixel(const StripBand& b, unsigned x, unsigned y, bool inside,
                                         float* v, std::size_t stride, Add&& add) {
  const unsigned at = y * b.w + x;
  float t = 0.0f;
  if (inside) {
    const StripRadius radius = stripRadiusAt(b, x, y);
    const StripRadius left = stripRadiusAt(b, x > 0 ? x - 1 : 0, y);
    const StripRadius above = stripRadiusAt(b, x, y > 0 ? y - 1 : 0);
    const bool hasBelow = stripHasBelow(b, y);
    const bool keepsP = !b.edgeDone || y + 1 < b.h;
    for (unsigned i = 0; i < b.n; ++i) {
      const StripLabel g = stripLabel(b, i);
      const float2 q = stripDualAt(b, g, x, y, radius);
      if (keepsP) g.pNext[at] = q;
      float d = x + 1 < b.w ? q.x : 0.0f;
      d -= stripLeft(b, g, x, y, g.bar(at), left);
      d = hasBelow ? d + q.y : d;
      d -= stripAbove(b, g, x, y, above);
      v[i * stride] = stripMoved(readOnly(g.u + at), readOnly(g.rho + at), d,
                                 readOnly(b.gamma + i) * b.coupling, b.primalStep);
    }
    float only[1];
    stripThresholds<0>(b.n, only, [&](unsigned i, int) -> float& { return v[i * stride]; });
    t = only[0];
  }
  for (unsigned i = 0; i < b.n; ++i) {
    float bar = 0.0f;
    if (inside) {
      const StripLabel g = stripLabel(b, i);
      const float fresh = fmaxf(v[i * stride] - t, 0.0f);
      bar = fresh + b.theta_bar * (fresh - readOnly(g.u + at));
      g.uNext[at] = fresh;
    }
    add(i, bar);
  }
}

}  // namespace namespace_ratseg::tile

#endif
