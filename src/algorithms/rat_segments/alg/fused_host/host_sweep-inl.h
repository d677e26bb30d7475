// The hot loops of the fused engine, compiled once per instruction set (host_vectors.h). All
// arithmetic is on tiles of kLanes adjacent pixels, held in one vector; the tile that ends a row
// may be a part of one. docs/math.md, sections 6.3, 6.7, 7.1 and 7.2.
//
// A row is swept block by block: first label by label the dual step and the values before the
// projection, then the thresholds and the new labeling. Bytes moved per pixel and label and sweep:
// 36 (u, u_bar and p read and written, rho read).

#include <cfloat>
#include <cstddef>
#include <cstring>

#include "algorithms/rat_segments/alg/fused_host/host_sweep.h"
#include "algorithms/rat_segments/alg/kernels/disc_radius_kernels.h"
#include "device/host/host_vectors.h"

namespace namespace_ratseg::RATSEG_ISA {

namespace {

constexpr float kMinSquare = 1e-36f;
constexpr float kFar = 64.0f;  // from values beyond this, the greatest is subtracted first: beside
                               // large ones the 1 that the labels sum to would be lost

// A tile inside the row: all its pixels have a right neighbour.
struct Inside {
  static inline vec load(const float* p) { return RATSEG_ISA::load(p); }
  static inline void store(float* p, vec v) { RATSEG_ISA::store(p, v); }
  static inline vec rightOf(const float* p, vec) { return RATSEG_ISA::load(p + 1); }
  static inline vec withRight(vec v) { return v; }
  static inline vec filled(vec v) { return v; }
};

// The tile that ends the row: the last of its pixels is its own right neighbour; the lanes behind
// it are 0 and are not stored.
struct RowEnd {
  explicit RowEnd(std::size_t pixels) {
    for (std::size_t l = 0; l < kLanes; ++l) {
      inRow[l] = l < pixels ? -1 : 0;
      hasRight[l] = l + 1 < pixels ? -1 : 0;
    }
  }

  inline vec load(const float* p) const { return loadLanes(p, inRow); }
  inline void store(float* p, vec v) const { storeLanes(p, inRow, v); }
  inline vec rightOf(const float* p, vec here) const {
    return hasRight ? loadLanes(p + 1, hasRight) : here;
  }
  inline vec withRight(vec v) const { return hasRight ? v : vec{}; }
  inline vec filled(vec v) const { return inRow ? v : vec{}; }

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

  // Fetches what is in memory rather than in the cache: the other arrays' rows were just used.
  inline void prefetch(std::size_t x) const {
    __builtin_prefetch(px + x, 1);
    __builtin_prefetch(py + x, 1);
    __builtin_prefetch(u + x, 1);
    __builtin_prefetch(barBelow + x, 1);
    __builtin_prefetch(rho + x);
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

// (ceilDiv would be compiled for this instruction set under the name that all others know.)
inline std::size_t padded(std::size_t w) { return (w + kLanes - 1) / kLanes * kLanes; }

// Tiles per block of columns: the labels' values of a block fill a part of the L1 cache only, and
// what is prefetched for the next block a part of the L2 cache.
inline std::size_t blockTiles(std::size_t n) {
  constexpr std::size_t kBlockBytes = 4 << 10;
  const std::size_t tiles = kBlockBytes / (n * sizeof(vec));
  return tiles > 8 ? tiles : 8;
}

// Scratch: the row's radii; of a block the values, per tile n vectors, and the thresholds, per tile
// one; the row's sums, n vectors.
struct Scratch {
  Scratch(float* scratch, std::size_t w, std::size_t n)
      : radius(scratch),
        v(radius + padded(w)),
        t(v + blockTiles(n) * n * kLanes),
        sums(t + blockTiles(n) * kLanes) {}

  float* radius;
  float* v;
  float* t;
  float* sums;
};

std::size_t scratchFloats(std::size_t w, std::size_t n) {
  return padded(w) + (blockTiles(n) * (n + 1) + n) * kLanes;
}

// Of the disc at a pixel; FLT_MAX where there is no bound (a negative radius is none).
inline float radiusAt(float weight, float lambda) {
  const float r = tile::discRadius(weight, lambda, FLT_MAX);
  return r < 0.0f ? FLT_MAX : r;
}

// Radii of the discs of row y. Behind its end, where nothing is kept, the last one's.
void rowRadii(const SweepBand& b, std::size_t y, float* radius) {
  const std::size_t end = padded(b.w);
  if (b.weight == nullptr) {
    const float r = radiusAt(1.0f, b.lambda);
    for (std::size_t x = 0; x < end; ++x) radius[x] = r;
    return;
  }
  const float* weight = b.weight + y * b.w;
  for (std::size_t x = 0; x < b.w; ++x) radius[x] = radiusAt(weight[x], b.lambda);
  for (std::size_t x = b.w; x < end; ++x) radius[x] = radius[b.w - 1];
}

// p <- clamp of p + s (right - here, below - here) to the disc: p min(1, r / |p|). What is added to
// the square makes no difference but to denormal ones, whose inverse root may be infinite.
template <class Tile>
inline void dualStep(const SweepBand& b, const Row& r, const Tile& tile, std::size_t x, vec radius,
                     vec& px, vec& py) {
  const vec here = tile.load(r.bar + x);
  px += b.dualStep * (tile.rightOf(r.bar + x, here) - here);
  py += b.dualStep * (tile.load(r.barBelow + x) - here);
  const vec shrink = minOf(radius * inverseSqrt(px * px + (py * py + kMinSquare)), splat(1.0f));
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
void blockValues(const SweepBand& b, const Scratch& s, std::size_t i, std::size_t y, std::size_t x0,
                 std::size_t x1) {
  const Row r(b, i, y);
  const bool last = i + 1 == b.n;
  const Row next(b, last ? 0 : i + 1, y);
  const std::size_t ahead = last ? x1 - x0 : 0;  // the next block's
  const float coupling = b.coupling[i];
  vec previous = splat(x0 > 0 ? r.px[x0 - 1] : 0.0f);
  float* v = s.v + i * kLanes;
  std::size_t x = x0;
  for (; x < x1 && x + kLanes < b.w; x += kLanes, v += b.n * kLanes) {
    next.prefetch(x + ahead);
    store(v, primalValue<DUAL>(b, r, Inside(), x, load(s.radius + x), coupling, previous));
  }
  if (x >= x1) return;
  const RowEnd end(b.w - x);
  store(v, primalValue<DUAL>(b, r, end, x, load(s.radius + x), coupling, previous));
}

// The threshold t of each lane for which sum of max(v - t, 0) is 1, from one that is not above it:
// the fixed point of the mean subtraction, found without changing v.
inline vec thresholdFrom(vec t, const float* v, std::size_t n) {
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

__attribute__((noinline, cold)) void moveToZero(float* v, std::size_t n, const float* maxima) {
  const vec shift = load(maxima);
  for (std::size_t i = 0; i < n; ++i) store(v + i * kLanes, load(v + i * kLanes) - shift);
}

// The threshold of a tile's values: the greatest t_k = (sum of the k greatest - 1) / k. Most pixels
// are between three labels at most; where the fourth is above t_1, t_2 and t_3, it counts as well.
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
  return anyOf(fourth > t) ? thresholdFrom(t, v, n) : t;
}

// u_new = max(v - t, 0), u_bar = u_new + theta_bar (u_new - u) of one label; returns u_bar.
template <class Tile>
inline vec primalStep(const Row& r, const Tile& tile, std::size_t x, float theta_bar, vec v,
                      vec t) {
  const vec fresh = maxOf(v - t, vec{});
  const vec bar = fresh + theta_bar * (fresh - tile.load(r.u + x));
  tile.store(r.u + x, fresh);
  tile.store(r.bar + x, bar);
  return tile.filled(bar);
}

// The primal step of label i in columns [x0, x1) of row y, from the block's values and thresholds.
void labelSteps(const SweepBand& b, const Scratch& s, std::size_t i, std::size_t y, std::size_t x0,
                std::size_t x1) {
  const Row r(b, i, y);
  const float theta_bar = b.theta_bar;
  const float* v = s.v + i * kLanes;
  const float* t = s.t;
  vec sum = load(s.sums + i * kLanes);
  std::size_t x = x0;
  for (; x < x1 && x + kLanes < b.w; x += kLanes, v += b.n * kLanes, t += kLanes) {
    sum += primalStep(r, Inside(), x, theta_bar, load(v), load(t));
  }
  if (x < x1) sum += primalStep(r, RowEnd(b.w - x), x, theta_bar, load(v), load(t));
  store(s.sums + i * kLanes, sum);
}

// The primal step of all labels in the tile at column x; r is label 0's row, v the tile's values.
template <class Tile>
inline void tileSteps(const SweepBand& b, const Scratch& s, Row r, const Tile& tile, std::size_t x,
                      float* v) {
  const vec t = threshold(v, b.n);
  const std::size_t plane = b.w * (b.ymax - b.ymin + 1);
  for (std::size_t i = 0; i < b.n; ++i, r.u += plane, r.bar += plane) {
    const vec bar = primalStep(r, tile, x, b.theta_bar, load(v + i * kLanes), t);
    store(s.sums + i * kLanes, load(s.sums + i * kLanes) + bar);
  }
}

// The primal step of all labels in columns [x0, x1) of row y. Few labels tile by tile, while the
// values are at hand; many label by label, since their rows lie in more pages and share more cache
// lines' places than can be held.
void blockSteps(const SweepBand& b, const Scratch& s, std::size_t y, std::size_t x0,
                std::size_t x1) {
  constexpr std::size_t kFewLabels = 16;
  float* v = s.v;
  if (b.n > kFewLabels) {
    for (std::size_t x = x0; x < x1; x += kLanes, v += b.n * kLanes) {
      store(s.t + (x - x0), threshold(v, b.n));
    }
    for (std::size_t i = 0; i < b.n; ++i) labelSteps(b, s, i, y, x0, x1);
    return;
  }
  const Row r(b, 0, y);
  std::size_t x = x0;
  for (; x < x1 && x + kLanes < b.w; x += kLanes, v += b.n * kLanes) {
    tileSteps(b, s, r, Inside(), x, v);
  }
  if (x < x1) tileSteps(b, s, r, RowEnd(b.w - x), x, v);
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
    blockSteps(b, s, y, x0, x1);
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
