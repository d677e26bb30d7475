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

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <type_traits>

#include "algorithms/rat_segments/alg/kernels/disc_radius_kernels.h"
#include "algorithms/rat_segments/alg/kernels/prior_kernels.h"
#include "algorithms/rat_segments/alg/params.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "device/ceil_div.h"
#include "device/types.h"

#ifdef __CUDA_ARCH__
#define RATSEG_UNROLL _Pragma("unroll")
#define RATSEG_KEEP_LOOP _Pragma("unroll 1")
#else
#define RATSEG_UNROLL
#define RATSEG_KEEP_LOOP
#endif

namespace namespace_ratseg::tile {

// Reads of arrays that the launch does not write, and quick forms of what the GPU has in hardware.
#ifdef __CUDA_ARCH__
__device__ inline float readOnly(const float* p) { return __ldg(p); }
__device__ inline float2 readOnly(const float2* p) {
  const ::float2 v = __ldg(reinterpret_cast<const ::float2*>(p));
  return {v.x, v.y};
}
__device__ inline void readRow(float (&to)[1], const float* from) { to[0] = __ldg(from); }
__device__ inline void readRow(float (&to)[2], const float* from) {
  const ::float2 v = __ldg(reinterpret_cast<const ::float2*>(from));
  to[0] = v.x;
  to[1] = v.y;
}
__device__ inline void readRow(float2 (&to)[1], const float2* from) { to[0] = readOnly(from); }
__device__ inline void readRow(float2 (&to)[2], const float2* from) {
  const ::float4 v = __ldg(reinterpret_cast<const ::float4*>(from));
  to[0] = {v.x, v.y};
  to[1] = {v.z, v.w};
}
__device__ inline void writeRow(float* to, const float (&from)[1]) { *to = from[0]; }
__device__ inline void writeRow(float* to, const float (&from)[2]) {
  *reinterpret_cast<::float2*>(to) = ::make_float2(from[0], from[1]);
}
__device__ inline void writeRow(float2* to, const float2 (&from)[1]) { *to = from[0]; }
__device__ inline void writeRow(float2* to, const float2 (&from)[2]) {
  *reinterpret_cast<::float4*>(to) = ::make_float4(from[0].x, from[0].y, from[1].x, from[1].y);
}
__device__ inline float inverseRoot(float x) { return rsqrtf(x); }
__device__ inline float quotient(float a, float b) { return __fdividef(a, b); }
#else
template <class T>
inline T readOnly(const T* p) {
  return *p;
}
template <class T, int PX>
inline void readRow(T (&to)[PX], const T* from) {
  for (int l = 0; l < PX; ++l) to[l] = from[l];
}
template <class T, int PX>
inline void writeRow(T* to, const T (&from)[PX]) {
  for (int l = 0; l < PX; ++l) to[l] = from[l];
}
inline float inverseRoot(float x) { return 1.0f / std::sqrt(x); }
inline float quotient(float a, float b) { return a / b; }
#endif

// Radius of the disc that holds p, and its square. No bound is a square of infinity. On a GPU
// lambda and weights that are no normal numbers (below 1.2e-38) count as 0.
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
// components within 1 of the greatest, which hold every one that stays positive. MOST bounds n
// where it is not 0.
template <int MOST, int PX, class At>
RATSEG_HD inline void stripThresholds(unsigned n, float (&t)[PX], At&& at) {
  const unsigned end = MOST > 0 ? MOST : n;
  float before[PX];
  RATSEG_UNROLL
  for (int l = 0; l < PX; ++l) {
    float greatest = -FLT_MAX;
    RATSEG_UNROLL
    for (unsigned i = 0; i < end; ++i) {
      if (i < n) greatest = fmaxf(greatest, at(i, l));
    }
    RATSEG_UNROLL
    for (unsigned i = 0; i < end; ++i) {
      if (i < n) at(i, l) -= greatest;
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

// A thread's place in the register kernel: PX columns from x on, rows [y0, y1) of the strip that
// its warp walks down. Warps overlap by two lanes: the first and the last one work out what the
// lanes beside them need, and own their columns at the image's borders only. A lane beyond the
// right border stands on the last columns, too.
struct StripPlace {
  unsigned x, y0, y1;
  bool owns;  // are the results of these columns this thread's to write
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

// What a thread of the register kernel needs from the columns beside its own. A warp's lanes have
// it in registers (strip_launch_cuda.cu); this computes it from the arrays, for a thread by itself.
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

// The two halves of the shares' step of label i; between them all labels must be done with the
// first.
RATSEG_HD inline void stripSharesDual(const StripShares& s, std::size_t i) {
  switch (s.kind_prior) {
    case Params::kind_prior_interval:
      ratseg_dual_alphabeta__interval(s.alpha, s.beta, s.a_bar, s.constAlpha, s.mins, s.maxs,
                                      s.ind_bgr, s.sigma, i);
      break;
    case Params::kind_prior_lowerBound:
      ratseg_dual_alphabeta__lowerBound(s.alpha, s.a_bar, s.constAlpha, s.mu, s.ratios, s.sigmas,
                                        s.ind_bgr, s.sigma, i);
      break;
    case Params::kind_prior_upperBound:
      ratseg_dual_alphabeta__upperBound(s.alpha, s.beta, s.a_bar, s.constAlpha, s.mu, s.eps,
                                        s.ratios, s.sigmas, s.ind_bgr, s.sigma, i);
      break;
    default:
      break;
  }
}
RATSEG_HD inline void stripSharesPrimal(const StripShares& s, std::size_t i) {
  switch (s.kind_prior) {
    case Params::kind_prior_interval:
      ratseg_prim_a__interval(s.a, s.a_bar, s.gamma, s.alpha, s.beta, s.constGamma, s.constAlpha,
                              s.ind_bgr, s.theta_bar, s.tau, s.n, i);
      break;
    case Params::kind_prior_lowerBound:
      ratseg_prim_a__lowerBound(s.a, s.a_bar, s.gamma, s.alpha, s.constGamma, s.constAlpha, s.mu,
                                s.ratios, s.ind_bgr, s.theta_bar, s.tau, s.n, i);
      break;
    case Params::kind_prior_upperBound:
      ratseg_prim_a__upperBound(s.a, s.a_bar, s.gamma, s.alpha, s.beta, s.constGamma, s.constAlpha,
                                s.mu, s.eps, s.ratios, s.ind_bgr, s.theta_bar, s.tau, s.n, i);
      break;
    default:
      ratseg_prim_a__gamma(s.a, s.a_bar, s.gamma, s.constGamma, s.theta_bar, s.tau, i);
  }
}

// Label i when its sum is known: the sum, and the multiplier of the next iteration.
RATSEG_HD inline void stripFinishLabel(const StripFinish& f, std::size_t i, double sum) {
  const float total = static_cast<float>(sum);
  if (f.gammaNext != nullptr) {
    float gamma = f.gamma[i];
    ratseg_dual_gamma(&gamma, f.a_bar + i, &total, f.constGamma, f.NOmega, f.sigma, 0);
    f.gammaNext[i] = gamma;
  }
  f.sum[i] = total;
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
