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
inline vec minOf(vec a, vec b) { return a < b ? a : b; }

// The last lane of previous, then all lanes of v but the last.
inline vec shifted(vec previous, vec v) {
  mask from;
  for (std::size_t l = 0; l < kLanes; ++l) from[l] = static_cast<int>(kLanes + l - 1);
  return __builtin_shuffle(previous, v, from);
}

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

// A tile inside the row: all its pixels have a right neighbour.
struct Inside {
  static inline vec load(const float* p) { return RATSEG_ISA::load(p); }
  static inline void store(float* p, vec v) { RATSEG_ISA::store(p, v); }
  static inline vec rightOf(const float* p, vec) { return RATSEG_ISA::load(p + 1); }
  static inline vec withRight(vec v) { return v; }
  static inline vec filled(vec v) { return v; }
};

// The tile that ends the row: count pixels, the last of which is its own right neighbour; the lanes
// behind them are 0 and are not stored.
struct RowEnd {
  explicit RowEnd(std::size_t pixels) : count(pixels) {
    for (std::size_t l = 0; l < kLanes; ++l) {
      inRow[l] = l < count ? -1 : 0;
      hasRight[l] = l + 1 < count ? -1 : 0;
    }
  }

  inline vec load(const float* p) const {
    vec v = {};
    std::memcpy(&v, p, count * sizeof(float));
    return v;
  }
  inline void store(float* p, vec v) const { std::memcpy(p, &v, count * sizeof(float)); }
  inline vec rightOf(const float* p, vec here) const {
    std::memcpy(&here, p + 1, (count - 1) * sizeof(float));
    return here;
  }
  inline vec withRight(vec v) const { return hasRight ? v : vec{}; }
  inline vec filled(vec v) const { return inRow ? v : vec{}; }

  std::size_t count;
  mask inRow, hasRight;
};

// Row y of one label, and the brackets of the divergence: [y > 0] and [y + 1 < h].
struct Row {
  Row(const SweepBand& b, std::size_t i, std::size_t y)
      : hasAbove(b.ymin + y != 0 ? 1.0f : 0.0f), hasBelow(b.ymin + y + 1 < b.h ? 1.0f : 0.0f) {
    const std::size_t rows = b.ymax - b.ymin;
    const std::size_t plane = i * b.w * (rows + 1);
    u = b.u + plane + y * b.w;
    bar = b.u_bar + plane + y * b.w;
    barBelow = bar + (hasBelow != 0.0f ? b.w : 0);
    px = b.p + 2 * (plane + (y + 1) * b.w);
    py = px + b.w;
    pyAbove = py - 2 * b.w;
    rho = b.rho + i * b.w * rows + y * b.w;
  }

  float* u;
  float* bar;
  const float* barBelow;
  float* px;
  float* py;
  const float* pyAbove;
  const float* rho;
  float hasAbove, hasBelow;
};

inline std::size_t padded(std::size_t w) { return (w + kLanes - 1) / kLanes * kLanes; }

// Tiles per block of columns: the labels' values of a block fit the L1 cache.
inline std::size_t blockTiles(std::size_t n) {
  constexpr std::size_t kBlockBytes = 16 << 10;
  const std::size_t tiles = kBlockBytes / (n * sizeof(vec));
  return tiles > 4 ? tiles : 4;
}

// Scratch: the row's radii; the values of a block, per tile n vectors; the row's sums, n vectors.
struct Scratch {
  Scratch(float* scratch, std::size_t w, std::size_t n)
      : radius(scratch), v(radius + padded(w)), sums(v + blockTiles(n) * n * kLanes) {}

  float* radius;
  float* v;
  float* sums;
};

std::size_t scratchFloats(std::size_t w, std::size_t n) {
  return padded(w) + (blockTiles(n) + 1) * n * kLanes;
}

// Radii of the discs of row y: g lambda/2, FLT_MAX where there is no bound (a negative one is
// none).
void rowRadii(const SweepBand& b, std::size_t y, float* radius) {
  const float half = b.lambda / 2.0f;
  const mask unbounded = splat(b.lambda) >= FLT_MAX;
  const mask bounded = splat(b.lambda) <= 0.0f;
  const auto radiusOf = [&](vec g) {
    const vec r = b.lambda != 0.0f ? g * half : vec{};
    const mask without = unbounded | (~bounded & (g >= FLT_MAX)) | (r < 0.0f);
    return without ? splat(FLT_MAX) : r;
  };
  const float* weight = b.weight + y * b.w;
  std::size_t x = 0;
  for (; x + kLanes <= b.w; x += kLanes) {
    store(radius + x, radiusOf(b.weight != nullptr ? load(weight + x) : splat(1.0f)));
  }
  if (x == b.w) return;
  const RowEnd end(b.w - x);
  store(radius + x, radiusOf(b.weight != nullptr ? end.load(weight + x) : splat(1.0f)));
}

// p <- clamp of p + s (right - here, below - here) to the disc: p min(1, r / |p|). What is
// added to the square makes no difference but to denormal ones, whose inverse root may be infinite.
template <class Tile>
inline void dualStep(const SweepBand& b, const Row& r, const Tile& tile, std::size_t x, vec radius,
                     vec& px, vec& py) {
  const vec here = tile.load(r.bar + x);
  px += b.dualStep * (tile.rightOf(r.bar + x, here) - here);
  py += b.dualStep * (tile.load(r.barBelow + x) - here);
  const vec shrink = minOf(radius * inverseSqrt(px * px + (py * py + kLeastSquare)), splat(1.0f));
  px *= shrink;
  py *= shrink;
  tile.store(r.px + x, px);
  tile.store(r.py + x, py);
}

// v of one label before the projection: u + tau (div p + gamma cG/N - rho). previous is p.x of the
// tile to the left, and becomes this one's.
template <bool DUAL, class Tile>
inline vec primalValue(const SweepBand& b, const Row& r, const Tile& tile, std::size_t x,
                       vec radius, float coupling, vec& previous) {
  vec px = tile.load(r.px + x);
  vec py = tile.load(r.py + x);
  if (DUAL) dualStep(b, r, tile, x, radius, px, py);
  const vec left = shifted(previous, px);
  previous = px;
  const vec divergence =
      tile.withRight(px) - left - r.hasAbove * tile.load(r.pyAbove + x) + r.hasBelow * py;
  const vec rho = tile.load(r.rho + x);
  vec v = tile.load(r.u + x) + b.primalStep * (divergence + (coupling - rho));
  if (b.special) {
    v = rho >= FLT_MAX ? vec{} : v;
    v = rho <= -FLT_MAX ? splat(1.0f) : v;
  }
  return v;
}

// The values of label i in columns [x0, x1) of row y, after their dual step with DUAL.
template <bool DUAL>
void blockValues(const SweepBand& b, const Scratch& s, std::size_t i, std::size_t y,
                 std::size_t x0, std::size_t x1) {
  const Row r(b, i, y);
  const float coupling = b.coupling[i];
  vec previous = splat(x0 > 0 ? r.px[x0 - 1] : 0.0f);
  float* v = s.v + i * kLanes;
  std::size_t x = x0;
  for (; x < x1 && x + kLanes < b.w; x += kLanes, v += b.n * kLanes) {
    store(v, primalValue<DUAL>(b, r, Inside(), x, load(s.radius + x), coupling, previous));
  }
  if (x >= x1) return;
  const RowEnd end(b.w - x);
  store(v, primalValue<DUAL>(b, r, end, x, load(s.radius + x), coupling, previous));
}

// The threshold t of each lane for which sum of max(v - t, 0) is 1: the fixed point of the mean
// subtraction, found without changing v. It starts from the components within 1 of the greatest,
// which hold every component that stays positive.
inline vec simplexThreshold(const float* v, std::size_t n, vec t) {
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

__attribute__((noinline, cold)) void moveToZero(float* v, std::size_t n, const float* greatest) {
  const vec shift = load(greatest);
  for (std::size_t i = 0; i < n; ++i) store(v + i * kLanes, load(v + i * kLanes) - shift);
}

// The threshold of the values of one tile.
inline vec threshold(float* v, std::size_t n) {
  vec first = splat(-FLT_MAX), second = first, third = first, fourth = first;
  for (std::size_t i = 0; i < n; ++i) {
    vec value = load(v + i * kLanes);
    vec less = minOf(value, first);
    first = maxOf(value, first);
    value = minOf(less, second);
    second = maxOf(less, second);
    less = minOf(value, third);
    third = maxOf(value, third);
    fourth = maxOf(less, fourth);
  }
  if (anyOf((first > kFar) | (first < -kFar))) {
    float shift[kLanes];
    store(shift, first);
    moveToZero(v, n, shift);
    second -= first;
    third -= first;
    fourth -= first;
    first = vec{};
  }
  const vec one = first - 1.0f;
  const vec two = (one + second) * 0.5f;
  const vec three = (one + second + third) * (1.0f / 3.0f);
  const vec t = maxOf(one, maxOf(two, three));
  return anyOf(fourth > t) ? simplexThreshold(v, n, t) : t;
}

// u_new = max(v - t, 0), u_bar = u_new + theta_bar (u_new - u) of all labels in the tile at (x, y).
template <class Tile>
inline void keep(const SweepBand& b, const Scratch& s, const Row& r, const Tile& tile, float* v,
                 std::size_t x) {
  const vec t = threshold(v, b.n);
  const std::size_t plane = b.w * (b.ymax - b.ymin + 1);
  float* u = r.u + x;
  float* bar = r.bar + x;
  for (std::size_t i = 0; i < b.n; ++i, u += plane, bar += plane) {
    const vec fresh = maxOf(load(v + i * kLanes) - t, vec{});
    const vec fresh_bar = fresh + b.theta_bar * (fresh - tile.load(u));
    tile.store(u, fresh);
    tile.store(bar, fresh_bar);
    store(s.sums + i * kLanes, load(s.sums + i * kLanes) + tile.filled(fresh_bar));
  }
}

void dualRow(const SweepBand& b, std::size_t y, float* scratch) {
  const Scratch s(scratch, b.w, b.n);
  rowRadii(b, y, s.radius);
  for (std::size_t i = 0; i < b.n; ++i) {
    const Row r(b, i, y);
    std::size_t x = 0;
    for (; x + kLanes < b.w; x += kLanes) {
      vec px = load(r.px + x);
      vec py = load(r.py + x);
      dualStep(b, r, Inside(), x, load(s.radius + x), px, py);
    }
    const RowEnd end(b.w - x);
    vec px = end.load(r.px + x);
    vec py = end.load(r.py + x);
    dualStep(b, r, end, x, load(s.radius + x), px, py);
  }
}

void primalRow(const SweepBand& b, std::size_t y, bool dualToo, float* rowSums, float* scratch) {
  const Scratch s(scratch, b.w, b.n);
  if (dualToo) rowRadii(b, y, s.radius);
  std::memset(s.sums, 0, b.n * kLanes * sizeof(float));
  const Row r(b, 0, y);
  const std::size_t block = blockTiles(b.n) * kLanes;
  for (std::size_t x0 = 0; x0 < b.w; x0 += block) {
    const std::size_t x1 = x0 + block < b.w ? x0 + block : b.w;
    for (std::size_t i = 0; i < b.n; ++i) {
      if (dualToo) {
        blockValues<true>(b, s, i, y, x0, x1);
      } else {
        blockValues<false>(b, s, i, y, x0, x1);
      }
    }
    float* v = s.v;
    std::size_t x = x0;
    for (; x < x1 && x + kLanes < b.w; x += kLanes, v += b.n * kLanes) {
      keep(b, s, r, Inside(), v, x);
    }
    if (x < x1) keep(b, s, r, RowEnd(b.w - x), v, x);
  }
  for (std::size_t i = 0; i < b.n; ++i) rowSums[i] = sumOf(load(s.sums + i * kLanes));
}

void sumRow(const SweepBand& b, std::size_t y, float* rowSums) {
  for (std::size_t i = 0; i < b.n; ++i) {
    const float* bar = Row(b, i, y).bar;
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
