#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_KERNELS_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_KERNELS_H

// The arithmetic of one iteration in one pass over the pixels, shared by host and GPU launchers:
// what one thread does with its strip or its pixel. Formulas: docs/math.md, sections 6.3 and 6.7.
//
// The dual step of a pixel is needed by itself, by its right neighbour and by the one below. A
// strip hands it down from row to row and from lane to lane; what it needs beyond its border it
// computes again, from arrays that nobody writes in this pass. The over-relaxed labeling is not
// stored: it is u + theta_bar (u - uPrev).
//
// 32-bit offsets within a plane; planes are addressed by pointers.

#include <cstddef>
#include <type_traits>

#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_memory.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_pixel_kernels.h"
#include "device/types.h"

namespace namespace_ratseg::tile {

// A thread's place in the register kernel: PX columns from x on, rows [y0, y1) of the strip that
// its warp walks down. Warps overlap by two lanes: the first and the last one work out what the
// lanes beside them need, and own their columns at the image's borders only. A lane beyond the
// right border stands on the last columns, too.
struct StripPlace {
  unsigned x, y0, y1;
  bool owns;  // true if this thread writes the results of its columns
};

// False when the warp has no strip.
template <int PX>
RATSEG_HD inline bool stripOfThread(const StripBand& b, unsigned warp, unsigned lane,
                                    StripPlace& place) {
  const unsigned warps = stripWarpsOfRow(b.w / PX);
  const unsigned last = b.w / PX - 1;
  const unsigned column = warp % warps * (kStripLanes - 2) + lane;
  place.x = (column < last ? column : last) * PX;
  place.y0 = b.rowBegin + warp / warps * b.rows;
  place.y1 = place.y0 + b.rows < b.rowEnd ? place.y0 + b.rows : b.rowEnd;
  const bool notFirst = lane > 0 || column == 0;
  const bool notLast = lane + 1 < kStripLanes || column == last;
  place.owns = column <= last && notFirst && notLast;
  return place.y0 < b.rowEnd;
}

// The values that a thread of the register kernel needs from the columns beside its own. In a warp
// other lanes have them in registers (strip_launch_cuda.cu); this computes them from the arrays,
// for a thread by itself.
template <int PX>
struct StripNeighbours {
  const StripBand& b;
  unsigned x;

  // The over-relaxed labeling right of the thread's columns in row y, whose own is bar; at the
  // image's border the last of its own.
  RATSEG_HD float right(const StripLabel& g, unsigned y, const float (&bar)[PX]) const {
    return x + PX < b.w ? g.bar(y * b.w + x + PX) : bar[PX - 1];
  }
  // The new p.x left of them, whose own is q; 0 at the border.
  RATSEG_HD float left(const StripLabel& g, unsigned y, const float (&bar)[PX],
                       const float2 (&/*q*/)[PX]) const {
    return stripLeft(b, g, x, y, bar[0], stripRadiusAt(b, x > 0 ? x - 1 : 0, y));
  }
};

// The dual step of q, p at the thread's columns of row y, given the over-relaxed labeling there and
// in the row below.
template <int PX, class Neighbours>
RATSEG_HD inline void stripDualRow(float2 (&q)[PX], const StripBand& b, const StripLabel& g,
                                   unsigned y, const float (&here)[PX], const float (&below)[PX],
                                   const StripRadius (&radius)[PX], const Neighbours& beside) {
  const float right = beside.right(g, y, here);
  RATSEG_UNROLL
  for (int l = 0; l < PX; ++l) {
    const float next = l + 1 < PX ? here[(l + 1) % PX] : right;
    q[l] = stripDual(q[l], here[l], next, below[l], b.dualStep, radius[l]);
  }
}

// Labels whose values a thread of the register kernel loads before it uses the first: so many waits
// for the memory become one.
inline constexpr unsigned kStripGroup = 4;

// The new p.y of the row above the strip at the thread's columns, 0 above the image, given the
// over-relaxed labeling in the strip's first row.
template <int LABELS, int PX, class Neighbours>
RATSEG_HD inline void stripRowAbove(float (&above)[LABELS][PX], const float (&here)[LABELS][PX],
                                    const StripBand& b, unsigned n, const StripPlace& place,
                                    const Neighbours& beside) {
  constexpr unsigned kGroup = LABELS < kStripGroup ? LABELS : kStripGroup;
  if (place.y0 == 0) {
    RATSEG_UNROLL
    for (unsigned i = 0; i < LABELS; ++i) {
      if (i >= n) continue;
      RATSEG_UNROLL
      for (int l = 0; l < PX; ++l) {
        above[i][l] = b.first ? 0.0f : stripLabel(b, i).pAbove[place.x + l].y;
      }
    }
    return;
  }
  const unsigned y = place.y0 - 1;
  const unsigned at = y * b.w + place.x;
  StripRadius radius[PX];
  stripRadii(radius, b, place.x, y);
  RATSEG_UNROLL
  for (unsigned first = 0; first < LABELS; first += kGroup) {
    float row[kGroup][PX];
    float2 q[kGroup][PX];
    RATSEG_UNROLL
    for (unsigned k = 0; k < kGroup; ++k) {
      if (first + k >= LABELS || first + k >= n) continue;
      const StripLabel g = stripLabel(b, first + k);
      g.barRow(row[k], at);
      readRow(q[k], g.p + at);
    }
    RATSEG_UNROLL
    for (unsigned k = 0; k < kGroup; ++k) {
      const unsigned i = first + k;
      if (i >= LABELS || i >= n) continue;
      stripDualRow(q[k], b, stripLabel(b, i), y, row[k], here[i], radius, beside);
      RATSEG_UNROLL
      for (int l = 0; l < PX; ++l) above[i][l] = q[k][l].y;
    }
  }
}

// One thread of the register kernel. Adds to sum[i] the over-relaxed labeling of label i that it
// leaves in its columns. Up to 8 labels LABELS is their number.
template <int LABELS, int PX, class Neighbours>
RATSEG_HD inline void ratseg_strip(const StripBand& b, const StripPlace& place,
                                   const Neighbours& beside, float (&sum)[LABELS]) {
  const unsigned n = LABELS <= 8 ? LABELS : b.n;
  constexpr unsigned kGroup = LABELS < kStripGroup ? LABELS : kStripGroup;
  const unsigned x = place.x;
  const bool hasRight = x + PX < b.w;
  float here[LABELS][PX], above[LABELS][PX], v[LABELS][PX];
  StripRadius radius[PX];

  RATSEG_UNROLL
  for (unsigned i = 0; i < LABELS; ++i) {
    if (i < n) stripLabel(b, i).barRow(here[i], place.y0 * b.w + x);
  }
  stripRowAbove(above, here, b, n, place, beside);

  RATSEG_KEEP_LOOP
  for (unsigned y = place.y0; y < place.y1; ++y) {
    const unsigned at = y * b.w + x;
    const bool hasBelow = stripHasBelow(b, y);
    const bool keepsP = place.owns && (!b.edgeDone || y + 1 < b.h);
    stripRadii(radius, b, x, y);

    RATSEG_UNROLL
    for (unsigned first = 0; first < LABELS; first += kGroup) {
      float below[kGroup][PX], old[kGroup][PX], rho[kGroup][PX];
      float2 q[kGroup][PX];
      RATSEG_UNROLL
      for (unsigned k = 0; k < kGroup; ++k) {
        if (first + k >= LABELS || first + k >= n) continue;
        const StripLabel g = stripLabel(b, first + k);
        g.barRow(below[k], hasBelow ? at + b.w : at);
        readRow(q[k], g.p + at);
        readRow(old[k], g.u + at);
        readRow(rho[k], g.rho + at);
      }
      RATSEG_UNROLL
      for (unsigned k = 0; k < kGroup; ++k) {
        const unsigned i = first + k;
        if (i >= LABELS || i >= n) continue;
        const StripLabel g = stripLabel(b, i);
        stripDualRow(q[k], b, g, y, here[i], below[k], radius, beside);
        float left = beside.left(g, y, here[i], q[k]);
        if (keepsP) writeRow(g.pNext + at, q[k]);
        const float coupling = readOnly(b.gamma + i) * b.coupling;
        RATSEG_UNROLL
        for (int l = 0; l < PX; ++l) {
          float d = l + 1 < PX || hasRight ? q[k][l].x : 0.0f;
          d -= left;
          d = hasBelow ? d + q[k][l].y : d;
          d -= above[i][l];
          v[i][l] = stripMoved(old[k][l], rho[k][l], d, coupling, b.primalStep);
          sum[i] -= b.theta_bar * old[k][l];
          left = q[k][l].x;
          above[i][l] = q[k][l].y;
          here[i][l] = below[k][l];
        }
      }
    }

    float t[PX];
    stripThresholds<LABELS>(n, t, [&](unsigned i, int l) -> float& { return v[i][l]; });
    RATSEG_UNROLL
    for (unsigned i = 0; i < LABELS; ++i) {
      if (i >= n) continue;
      float fresh[PX];
      RATSEG_UNROLL
      for (int l = 0; l < PX; ++l) {
        fresh[l] = fmaxf(v[i][l] - t[l], 0.0f);
        sum[i] += (1.0f + b.theta_bar) * fresh[l];
      }
      if (place.owns) writeRow(stripLabel(b, i).uNext + at, fresh);
    }
  }
}

// The dual step of the band's last row at one column of one label.
RATSEG_HD inline void ratseg_strip_edge(const StripBand& b, unsigned x, unsigned i) {
  const StripLabel g = stripLabel(b, i);
  const unsigned y = b.h - 1;
  g.pNext[y * b.w + x] = stripDualAt(b, g, x, y, stripRadiusAt(b, x, y));
}

RATSEG_HD inline void ratseg_strip_enter(float* u_bar, const float* u, float theta_bar,
                                         std::size_t k) {
  u_bar[k] = u[k] - (u_bar[k] - u[k]) / theta_bar;
}

RATSEG_HD inline void ratseg_strip_leave(float* u, float* u_bar, const float* fresh,
                                         const float* old, float theta_bar, std::size_t k) {
  const float now = fresh[k];
  const float before = old[k];
  u[k] = now;
  u_bar[k] = now + theta_bar * (now - before);
}

// Calls f with the shape's number of labels and of pixels as compile-time constants. The shape must
// be one of the register kernel.
template <class F>
void withStripShape(const StripShape& s, F&& f) {
  const auto pixels = [&](auto labels) {
    if (s.pixels == 2) {
      f(labels, std::integral_constant<int, 2>());
    } else {
      f(labels, std::integral_constant<int, 1>());
    }
  };
  const std::integral_constant<int, 1> one;
  switch (s.labels) {
    case 1:
      return pixels(std::integral_constant<int, 1>());
    case 2:
      return pixels(std::integral_constant<int, 2>());
    case 3:
      return pixels(std::integral_constant<int, 3>());
    case 4:
      return pixels(std::integral_constant<int, 4>());
    case 5:
      return pixels(std::integral_constant<int, 5>());
    case 6:
      return pixels(std::integral_constant<int, 6>());
    case 7:
      return pixels(std::integral_constant<int, 7>());
    case 8:
      return pixels(std::integral_constant<int, 8>());
    case 12:
      return f(std::integral_constant<int, 12>(), one);
    case 16:
      return f(std::integral_constant<int, 16>(), one);
  }
}

}  // namespace namespace_ratseg::tile

#endif
