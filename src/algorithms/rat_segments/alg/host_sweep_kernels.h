// The hot loops of the fused engine. Compiled once per instruction set: the including file defines
// RATSEG_ISA, which names the namespace, so that no function of one set can be taken for another's.
// For that reason nothing here calls inline functions of other headers.
//
// All arithmetic is on tiles of kLanes adjacent pixels, held in one vector. Rows end in a tile that
// is filled up in scratch memory. docs/math.md, sections 6.3, 6.7, 7.1 and 7.2.

#include <cfloat>
#include <cstddef>
#include <cstring>

#if defined(__SSE__)
#include <immintrin.h>
#endif

#include "algorithms/rat_segments/alg/host_sweep.h"

namespace namespace_ratseg::RATSEG_ISA {

namespace {

// One register's worth: compilers take wider vectors apart element by element.
#if defined(__AVX512F__)
constexpr std::size_t kLanes = 16;
#elif defined(__AVX__)
constexpr std::size_t kLanes = 8;
#else
constexpr std::size_t kLanes = 4;
#endif
constexpr float kLeastSquare = 1e-36f;
constexpr float kFar = 64.0f;  // from values beyond this, the greatest is subtracted first: beside
                               // large ones the 1 that the labels sum to would be lost
constexpr std::size_t kBlockBytes = 512 << 10;  // of all labels' arrays, to stay in the L2 cache

using vec = float __attribute__((vector_size(kLanes * sizeof(float))));
using mask = int __attribute__((vector_size(kLanes * sizeof(int))));

inline vec load(const float* p) {
  vec v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

inline void store(float* p, vec v) { std::memcpy(p, &v, sizeof v); }

inline vec splat(float x) { return vec{} + x; }

inline vec maxOf(vec a, vec b) { return a > b ? a : b; }

inline bool anyOf(mask m) {
#if defined(__AVX512F__)
  return _mm512_test_epi32_mask((__m512i)m, (__m512i)m) != 0;
#elif defined(__AVX__)
  return _mm256_testz_si256((__m256i)m, (__m256i)m) == 0;
#elif defined(__SSE__)
  return _mm_movemask_ps((__m128)m) != 0;
#else
  int any = 0;
  for (std::size_t l = 0; l < kLanes; ++l) any |= m[l];
  return any != 0;
#endif
}

inline float sumOf(vec v) {
  for (std::size_t half = kLanes / 2; half > 0; half /= 2) {
    for (std::size_t l = 0; l < half; ++l) v[l] += v[l + half];
  }
  return v[0];
}

// 1 / sqrt(a) from the processor's estimate and one Newton step: about 22 bits.
inline vec inverseSqrt(vec a) {
#if defined(__AVX512F__)
  const vec y = (vec)_mm512_maskz_rsqrt14_ps(0xFFFF, (__m512)a);
#elif defined(__AVX__)
  const vec y = (vec)_mm256_rsqrt_ps((__m256)a);
#elif defined(__SSE__)
  const vec y = (vec)_mm_rsqrt_ps((__m128)a);
#else
  vec y;
  for (std::size_t l = 0; l < kLanes; ++l) y[l] = 1.0f / __builtin_sqrtf(a[l]);
#endif
  return y * (1.5f - 0.5f * a * y * y);
}

// The places of one row of one label; next() goes on to the next label.
struct Row {
  float* u;
  float* bar;
  const float* barBelow;
  float* px;
  float* py;
  const float* pyAbove;
  const float* rho;
  std::size_t plane;
  std::size_t rhoPlane;

  inline void next() {
    u += plane;
    bar += plane;
    barBelow += plane;
    px += 2 * plane;
    py += 2 * plane;
    pyAbove += 2 * plane;
    rho += rhoPlane;
  }
};

// Row y of label 0.
inline Row firstRow(const SweepBand& b, std::size_t y) {
  Row r;
  r.rhoPlane = b.w * (b.ymax - b.ymin);
  r.plane = r.rhoPlane + b.w;
  r.u = b.u + y * b.w;
  r.bar = b.u_bar + y * b.w;
  r.barBelow = r.bar + b.w;
  r.px = b.p + 2 * (y + 1) * b.w;
  r.py = r.px + b.w;
  r.pyAbove = r.py - 2 * b.w;
  r.rho = b.rho + y * b.w;
  return r;
}

// Scratch: the row's radii, then n tiles of v, n tiles of row sums, a few tiles for filled-up ends.
struct Scratch {
  float* radius;
  float* v;
  float* sums;
};

inline std::size_t padded(std::size_t w) { return (w + kLanes - 1) / kLanes * kLanes; }

inline Scratch divide(float* scratch, std::size_t w, std::size_t n) {
  return {scratch, scratch + padded(w), scratch + padded(w) + n * kLanes};
}

std::size_t scratchFloats(std::size_t w, std::size_t n) { return padded(w) + 2 * n * kLanes; }

// Radii of the discs of row y; those beyond the row are 0. A negative one is no bound.
void rowRadii(const SweepBand& b, std::size_t y, float* radius) {
  const float half = b.lambda / 2.0f;
  for (std::size_t x = 0; x < b.w; ++x) {
    const float g = b.weight != nullptr ? b.weight[y * b.w + x] : 1.0f;
    const bool unbounded = b.lambda >= FLT_MAX || (g >= FLT_MAX && b.lambda > 0.0f);
    const float r = b.lambda != 0.0f ? g * half : 0.0f;
    radius[x] = unbounded || r < 0.0f ? FLT_MAX : r;
  }
  for (std::size_t x = b.w; x < padded(b.w); ++x) radius[x] = 0.0f;
}

// p <- clamp of p + s (right - here, below - here) to the disc: p min(1, r / |p|). What is
// added to the square makes no difference but to denormal ones, whose inverse root may be infinite.
inline void dualTile(vec here, vec right, vec below, vec radius, float s, vec& px, vec& py) {
  px += s * (right - here);
  py += s * (below - here);
  const vec square = px * px + (py * py + kLeastSquare);
  const vec shrink = square > radius * radius ? radius * inverseSqrt(square) : splat(1.0f);
  px *= shrink;
  py *= shrink;
}

// Columns [x0, x1) of the dual step of one label, x1 < w or a whole number of tiles from x0.
inline void dualColumns(const SweepBand& b, const Row& r, const float* radius, bool hasBelow,
                        std::size_t x0, std::size_t x1) {
  const float* below = hasBelow ? r.barBelow : r.bar;
  std::size_t x = x0;
  for (; x + kLanes <= x1 && x + kLanes < b.w; x += kLanes) {
    vec px = load(r.px + x);
    vec py = load(r.py + x);
    dualTile(load(r.bar + x), load(r.bar + x + 1), load(below + x), load(radius + x), b.dualStep,
             px, py);
    store(r.px + x, px);
    store(r.py + x, py);
    __builtin_prefetch(r.u + x);
    __builtin_prefetch(r.rho + x);
  }
  if (x >= x1) return;
  // The end of the row: the last pixel is its own right neighbour.
  vec here = {}, right = {}, under = {}, px = {}, py = {};
  for (std::size_t l = 0; x + l < x1; ++l) {
    here[l] = r.bar[x + l];
    right[l] = x + l + 1 < b.w ? r.bar[x + l + 1] : r.bar[x + l];
    under[l] = below[x + l];
    px[l] = r.px[x + l];
    py[l] = r.py[x + l];
  }
  dualTile(here, right, under, load(radius + x), b.dualStep, px, py);
  for (std::size_t l = 0; x + l < x1; ++l) {
    r.px[x + l] = px[l];
    r.py[x + l] = py[l];
  }
}

// The threshold t of each lane for which sum of max(v - t, 0) is 1: the fixed point of the mean
// subtraction, found without changing v. It starts from the components within 1 of the greatest,
// which hold every component that stays positive.
inline vec simplexThreshold(const float* v, std::size_t n, vec greatest) {
  vec t = greatest - 1.0f;
  vec count = {};
  for (std::size_t pass = 0; pass <= n; ++pass) {
    vec sum = {};
    vec active = {};
    for (std::size_t i = 0; i < n; ++i) {
      const vec value = load(v + i * kLanes);
      const mask above = value > t;
      sum += above ? value : vec{};
      active += above ? splat(1.0f) : vec{};
    }
    if (!anyOf(active != count)) break;
    t = (sum - 1.0f) / active;
    count = active;
  }
  return t;
}

// v of one label before the projection.
inline vec primalValue(const SweepBand& b, std::size_t i, vec u, vec px, vec left, vec py,
                       vec above, vec rho) {
  vec v = u + b.primalStep * (((px - left) + (py - above)) + (b.coupling[i] - rho));
  if (b.special) {
    v = rho >= FLT_MAX ? vec{} : v;
    v = rho <= -FLT_MAX ? splat(1.0f) : v;
  }
  return v;
}

__attribute__((noinline, cold)) void moveToZero(float* v, std::size_t n, const float* greatest) {
  const vec shift = load(greatest);
  for (std::size_t i = 0; i < n; ++i) store(v + i * kLanes, load(v + i * kLanes) - shift);
}

// One tile of the primal step, inside the row: 0 < x, x + kLanes < w.
template <class Load, class Store>
inline void primalTile(const SweepBand& b, const Scratch& s, std::size_t y, Load&& value,
                       Store&& keep) {
  vec greatest = splat(-FLT_MAX);
  Row r = firstRow(b, y);
  for (std::size_t i = 0; i < b.n; ++i, r.next()) {
    const vec v = value(r, i);
    store(s.v + i * kLanes, v);
    greatest = maxOf(v, greatest);
  }
  if (anyOf((greatest > kFar) | (greatest < -kFar))) {
    float shift[kLanes];
    store(shift, greatest);
    moveToZero(s.v, b.n, shift);
    greatest = vec{};
  }
  const vec t = simplexThreshold(s.v, b.n, greatest);
  r = firstRow(b, y);
  for (std::size_t i = 0; i < b.n; ++i, r.next()) {
    keep(r, i, maxOf(load(s.v + i * kLanes) - t, vec{}));
  }
}

inline void addTo(float* sums, std::size_t i, vec x) {
  store(sums + i * kLanes, load(sums + i * kLanes) + x);
}

// Columns [x, x + count) at an end of the row, filled up to a tile: the image's first column has no
// left neighbour, its last column no horizontal component.
void primalEnd(const SweepBand& b, const Scratch& s, std::size_t y, std::size_t x,
               std::size_t count) {
  const bool hasAbove = b.ymin + y != 0;
  const bool hasBelow = b.ymin + y + 1 < b.h;
  const auto value = [&](const Row& r, std::size_t i) {
    vec u = {}, px = {}, left = {}, py = {}, above = {}, rho = {};
    for (std::size_t l = 0; l < count; ++l) {
      const std::size_t k = x + l;
      u[l] = r.u[k];
      px[l] = k + 1 < b.w ? r.px[k] : 0.0f;
      left[l] = k != 0 ? r.px[k - 1] : 0.0f;
      py[l] = hasBelow ? r.py[k] : 0.0f;
      above[l] = hasAbove ? r.pyAbove[k] : 0.0f;
      rho[l] = r.rho[k];
    }
    return primalValue(b, i, u, px, left, py, above, rho);
  };
  const auto keep = [&](const Row& r, std::size_t i, vec fresh) {
    vec bar = {};
    for (std::size_t l = 0; l < count; ++l) {
      bar[l] = fresh[l] + b.theta_bar * (fresh[l] - r.u[x + l]);
      r.u[x + l] = fresh[l];
      r.bar[x + l] = bar[l];
    }
    addTo(s.sums, i, bar);
  };
  primalTile(b, s, y, value, keep);
}

// Columns [x0, x1) of the primal step of all labels.
template <bool HAS_ABOVE, bool HAS_BELOW>
void primalColumns(const SweepBand& b, const Scratch& s, std::size_t y, std::size_t x0,
                   std::size_t x1) {
  std::size_t x = x0;
  if (x == 0) {
    const std::size_t count = x1 < kLanes ? x1 : kLanes;
    primalEnd(b, s, y, 0, count);
    x = count;
  }
  for (; x + kLanes <= x1 && x + kLanes < b.w; x += kLanes) {
    const auto value = [&](const Row& r, std::size_t i) {
      const vec py = HAS_BELOW ? load(r.py + x) : vec{};
      const vec above = HAS_ABOVE ? load(r.pyAbove + x) : vec{};
      return primalValue(b, i, load(r.u + x), load(r.px + x), load(r.px + x - 1), py, above,
                         load(r.rho + x));
    };
    const auto keep = [&](const Row& r, std::size_t i, vec fresh) {
      const vec bar = fresh + b.theta_bar * (fresh - load(r.u + x));
      store(r.u + x, fresh);
      store(r.bar + x, bar);
      addTo(s.sums, i, bar);
    };
    primalTile(b, s, y, value, keep);
  }
  if (x < x1) primalEnd(b, s, y, x, x1 - x);
}

// Columns per block: the arrays of all labels in a block fit the L2 cache, so that the primal step
// finds there what the dual step has touched.
inline std::size_t blockColumns(std::size_t n) {
  constexpr std::size_t kBytesPerPixelLabel = 36;
  const std::size_t columns = kBlockBytes / (kBytesPerPixelLabel * n) / kLanes * kLanes;
  return columns < 4 * kLanes ? 4 * kLanes : columns;
}

void dualRow(const SweepBand& b, std::size_t y, float* scratch) {
  const Scratch s = divide(scratch, b.w, b.n);
  rowRadii(b, y, s.radius);
  const bool hasBelow = b.ymin + y + 1 < b.h;
  Row r = firstRow(b, y);
  for (std::size_t i = 0; i < b.n; ++i, r.next()) dualColumns(b, r, s.radius, hasBelow, 0, b.w);
}

void primalRow(const SweepBand& b, std::size_t y, bool dualToo, float* rowSums, float* scratch) {
  const Scratch s = divide(scratch, b.w, b.n);
  const bool hasAbove = b.ymin + y != 0;
  const bool hasBelow = b.ymin + y + 1 < b.h;
  const auto columns = hasAbove
                           ? (hasBelow ? primalColumns<true, true> : primalColumns<true, false>)
                           : (hasBelow ? primalColumns<false, true> : primalColumns<false, false>);
  if (dualToo) rowRadii(b, y, s.radius);
  std::memset(s.sums, 0, b.n * kLanes * sizeof(float));
  const std::size_t block = blockColumns(b.n);
  for (std::size_t x0 = 0; x0 < b.w; x0 += block) {
    const std::size_t x1 = x0 + block < b.w ? x0 + block : b.w;
    Row r = firstRow(b, y);
    for (std::size_t i = 0; i < b.n && dualToo; ++i, r.next()) {
      dualColumns(b, r, s.radius, hasBelow, x0, x1);
    }
    columns(b, s, y, x0, x1);
  }
  for (std::size_t i = 0; i < b.n; ++i) rowSums[i] = sumOf(load(s.sums + i * kLanes));
}

void sumRow(const SweepBand& b, std::size_t y, float* rowSums) {
  Row r = firstRow(b, y);
  for (std::size_t i = 0; i < b.n; ++i, r.next()) {
    const float* bar = r.bar;
    vec sum = {};
    std::size_t x = 0;
    for (; x + kLanes <= b.w; x += kLanes) sum += load(bar + x);
    for (std::size_t l = 0; x + l < b.w; ++l) sum[l] += bar[x + l];
    rowSums[i] = sumOf(sum);
  }
}

}  // namespace

extern const HostSweep sweep;
const HostSweep sweep = {RATSEG_ISA_NAME, scratchFloats, dualRow, primalRow, sumRow};

}  // namespace namespace_ratseg::RATSEG_ISA
