#ifndef RATSEG_ALG_STRIP_KERNELS_H
#define RATSEG_ALG_STRIP_KERNELS_H

// The arithmetic of one iteration in one pass over the pixels, shared by host and GPU launchers:
// what one thread does with its strip or its pixel. Formulas: docs/math.md, sections 6.3 and 6.7.
//
// The dual step of a pixel is needed by itself, by its right neighbour and by the one below. A
// strip hands it down from row to row; what it needs beyond its border it computes again, from
// arrays that nobody writes in this pass. The over-relaxed labeling is not stored: it is
// u + theta_bar (u - uPrev).
//
// 32-bit offsets within a plane; planes are addressed by pointers.

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <type_traits>

#include "algorithms/rat_segments/alg/prior_kernels.h"
#include "algorithms/rat_segments/alg/rat_seg.h"
#include "algorithms/rat_segments/alg/strip_sweep.h"
#include "device/types.h"

#ifdef __CUDA_ARCH__
#define RATSEG_UNROLL _Pragma("unroll")
#else
#define RATSEG_UNROLL
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

// Radius of the disc that holds p, and its square. No bound is a square of infinity.
struct StripRadius {
  float radius, square;
};

RATSEG_HD inline StripRadius stripRadius(float weight, float lambda) {
  const bool unbounded = lambda >= FLT_MAX || (weight >= FLT_MAX && lambda > 0.0f);
  float r = lambda != 0.0f ? weight * (lambda / 2.0f) : 0.0f;
  if (unbounded || r < 0.0f) r = FLT_MAX;
  return {r, r * r};
}

RATSEG_HD inline StripRadius stripRadiusAt(const StripBand& b, unsigned x, unsigned y) {
  return stripRadius(b.weight != nullptr ? readOnly(b.weight + (y * b.w + x)) : 1.0f, b.lambda);
}

// p <- projection of p + step (right - here, below - here) onto the disc
RATSEG_HD inline float2 stripDual(float2 p, float here, float right, float below, float step,
                                  StripRadius r) {
  const float x = p.x + step * (right - here);
  const float y = p.y + step * (below - here);
  const float square = x * x + y * y;
  float shrink = r.radius == 0.0f ? 0.0f : 1.0f;
  if (square > r.square) shrink = r.radius * inverseRoot(square);
  return {x * shrink, y * shrink};
}

// v of one label before the projection.
RATSEG_HD inline float stripMoved(float old, float rho, float divergence, float coupling,
                                  float step) {
  if (rho >= FLT_MAX) return 0.0f;
  if (rho <= -FLT_MAX) return 1.0f;
  return old + step * (divergence + coupling - rho);
}

// Moves v so that its greatest component is 0 and returns the threshold t for which the sum of
// max(v_i - t, 0) is 1: max(v - t, 0) is the projection of v onto the simplex (docs/math.md,
// section 7.2). The mean subtraction finds t without changing v; it starts from the components
// within 1 of the greatest, which hold every one that stays positive. at(i) is component i. MOST
// bounds n where it is not 0.
template <int MOST, class At>
RATSEG_HD inline float stripThreshold(unsigned n, At&& at) {
  const unsigned end = MOST > 0 ? MOST : n;
  float greatest = -FLT_MAX;
  RATSEG_UNROLL
  for (unsigned i = 0; i < end; ++i) {
    if (i < n) greatest = fmaxf(greatest, at(i));
  }
  RATSEG_UNROLL
  for (unsigned i = 0; i < end; ++i) {
    if (i < n) at(i) -= greatest;
  }
  float t = -1.0f;
  float before = 0.0f;
  for (unsigned pass = 0; pass <= n; ++pass) {
    float sum = 0.0f;
    float active = 0.0f;
    RATSEG_UNROLL
    for (unsigned i = 0; i < end; ++i) {
      if (i < n) {
        const float v = at(i);
        sum += v > t ? v : 0.0f;
        active += v > t ? 1.0f : 0.0f;
      }
    }
    if (active == before) break;
    t = quotient(sum - 1.0f, active);
    before = active;
  }
  return t;
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

// The strip of a thread of the register kernel: PX columns from x on, rows [y0, y1). False when the
// thread has none.
template <int PX>
RATSEG_HD inline bool stripOfThread(const StripBand& b, unsigned threads, unsigned block,
                                    unsigned thread, unsigned& x, unsigned& y0, unsigned& y1) {
  const unsigned columns = (b.w / PX + threads - 1) / threads;  // blocks side by side
  x = (block % columns * threads + thread) * PX;
  y0 = b.rowBegin + block / columns * b.rows;
  y1 = y0 + b.rows < b.rowEnd ? y0 + b.rows : b.rowEnd;
  return x < b.w && y0 < b.rowEnd;
}

// Tiles of a launch, and the pixel of a thread in one of them. False when there is none.
RATSEG_HD inline unsigned stripTiles(const StripBand& b, unsigned tileRows) {
  return (b.w + kTileColumns - 1) / kTileColumns *
         ((b.rowEnd - b.rowBegin + tileRows - 1) / tileRows);
}
RATSEG_HD inline bool pixelOfThread(const StripBand& b, unsigned tileRows, unsigned tile,
                                    unsigned thread, unsigned& x, unsigned& y) {
  const unsigned columns = (b.w + kTileColumns - 1) / kTileColumns;
  x = tile % columns * kTileColumns + thread % kTileColumns;
  y = b.rowBegin + tile / columns * tileRows + thread / kTileColumns;
  return x < b.w && y < b.rowEnd;
}

// One thread of the register kernel: PX columns from x on, rows [y0, y1). Adds to sum[i] the
// over-relaxed labeling of label i that it leaves. Up to 8 labels LABELS is their number.
template <int LABELS, int PX>
RATSEG_HD inline void ratseg_strip(const StripBand& b, unsigned x, unsigned y0, unsigned y1,
                                   float (&sum)[LABELS]) {
  const unsigned n = LABELS <= 8 ? LABELS : b.n;
  const bool hasRight = x + PX < b.w;
  float here[LABELS][PX], above[LABELS][PX], v[LABELS][PX];

  StripRadius radius[PX];
  RATSEG_UNROLL
  for (int l = 0; l < PX; ++l) radius[l] = stripRadiusAt(b, x + l, y0 > 0 ? y0 - 1 : 0);
  RATSEG_UNROLL
  for (unsigned i = 0; i < LABELS; ++i) {
    if (i >= n) continue;
    const StripLabel g = stripLabel(b, i);
    g.barRow(here[i], y0 * b.w + x);
    RATSEG_UNROLL
    for (int l = 0; l < PX; ++l) above[i][l] = stripAbove(b, g, x + l, y0, radius[l]);
  }

  for (unsigned y = y0; y < y1; ++y) {
    const unsigned at = y * b.w + x;
    const bool hasBelow = stripHasBelow(b, y);
    const bool keepsP = !b.edgeDone || y + 1 < b.h;
    RATSEG_UNROLL
    for (int l = 0; l < PX; ++l) radius[l] = stripRadiusAt(b, x + l, y);
    const StripRadius leftRadius = stripRadiusAt(b, x > 0 ? x - 1 : 0, y);

    RATSEG_UNROLL
    for (unsigned i = 0; i < LABELS; ++i) {
      if (i >= n) continue;
      const StripLabel g = stripLabel(b, i);
      float below[PX], old[PX], rho[PX];
      float2 q[PX];
      if (hasBelow) {
        g.barRow(below, at + b.w);
      } else {
        RATSEG_UNROLL
        for (int l = 0; l < PX; ++l) below[l] = here[i][l];
      }
      readRow(q, g.p + at);
      readRow(old, g.u + at);
      readRow(rho, g.rho + at);
      const float right = hasRight ? g.bar(at + PX) : here[i][PX - 1];
      float left = stripLeft(b, g, x, y, here[i][0], leftRadius);
      RATSEG_UNROLL
      for (int l = 0; l < PX; ++l) {
        const float next = l + 1 < PX ? here[i][(l + 1) % PX] : right;
        q[l] = stripDual(q[l], here[i][l], next, below[l], b.dualStep, radius[l]);
      }
      if (keepsP) writeRow(g.pNext + at, q);
      const float coupling = readOnly(b.gamma + i) * b.coupling;
      RATSEG_UNROLL
      for (int l = 0; l < PX; ++l) {
        float d = l + 1 < PX || hasRight ? q[l].x : 0.0f;
        d -= left;
        d = hasBelow ? d + q[l].y : d;
        d -= above[i][l];
        v[i][l] = stripMoved(old[l], rho[l], d, coupling, b.primalStep);
        sum[i] -= b.theta_bar * old[l];
        left = q[l].x;
        above[i][l] = q[l].y;
        here[i][l] = below[l];
      }
    }

    float t[PX];
    RATSEG_UNROLL
    for (int l = 0; l < PX; ++l) {
      t[l] = stripThreshold<LABELS>(n, [&](unsigned i) -> float& { return v[i][l]; });
    }
    RATSEG_UNROLL
    for (unsigned i = 0; i < LABELS; ++i) {
      if (i >= n) continue;
      float fresh[PX];
      RATSEG_UNROLL
      for (int l = 0; l < PX; ++l) {
        fresh[l] = fmaxf(v[i][l] - t[l], 0.0f);
        sum[i] += (1.0f + b.theta_bar) * fresh[l];
      }
      writeRow(stripLabel(b, i).uNext + at, fresh);
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
    t = stripThreshold<0>(b.n, [&](unsigned i) -> float& { return v[i * stride]; });
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
