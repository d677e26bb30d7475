// The certificate's sums over rows. Compiled once per instruction set, as host_sweep-inl.h is:
// the including file defines RATSEG_ISA, and nothing here calls inline functions of other headers.

#include "algorithms/rat_segments/alg/certificate/certificate_rows.h"

namespace namespace_ratseg::RATSEG_ISA {

namespace {

constexpr int kLanes = 64;  // of a tile: long runs of each plane, and its sums stay in the L1 cache
constexpr int kShort = 8;   // of the tiles at the end of a row
constexpr std::size_t kSums = 8;  // of each sum per label: a vector of them

// Row y and the one below: what certificate_pixels gives, w + 1 values each.
struct RowPair {
  double* inverse[2];
  int* label[2];
};

// Sums, each spread over some lanes.
struct LaneSums {
  double* terms;   // kCertificateTerms x kLanes
  double* shares;  // n x kSums
  double* pixels;  // n
  double* costs;   // n x kSums
};

std::size_t scratchDoubles(std::size_t w, std::size_t n) {
  return 2 * (w + 1) + kCertificateTerms * kLanes + n * (2 * kSums + 1);
}
std::size_t scratchInts(std::size_t w) { return 2 * (w + 1); }

// body(tile size, x) for the tiles of a row of w pixels.
template <class Body>
inline void forEachTile(std::size_t w, Body&& body) {
  std::size_t x = 0;
  for (; x + kLanes <= w; x += kLanes) body.template operator()<kLanes>(x);
  for (; x + kShort <= w; x += kShort) body.template operator()<kShort>(x);
  for (; x < w; ++x) body.template operator()<1>(x);
}

// sums[k % kSums] += values[k]
template <int LANES>
inline void accumulate(double* sums, const double* values) {
  if constexpr (LANES == 1) {
    sums[0] += values[0];
  } else {
    double total[kSums];
    for (std::size_t j = 0; j < kSums; ++j) total[j] = sums[j];
    for (std::size_t k = 0; k < LANES; k += kSums) {
      for (std::size_t j = 0; j < kSums; ++j) total[j] += values[k + j];
    }
    for (std::size_t j = 0; j < kSums; ++j) sums[j] = total[j];
  }
}

inline double total(const double* values, std::size_t count) {
  double sum = 0.0;
  for (std::size_t l = 0; l < count; ++l) sum += values[l];
  return sum;
}

void findPixels(const CertificateBand& b, std::size_t y, double* inverse, int* label) {
  forEachTile(b.w, [&]<int LANES>(std::size_t x) {
    tile::certificate_pixels<LANES>(inverse + x, label + x, b, y * b.w + x);
  });
  inverse[b.w] = 0.0;
  label[b.w] = 0;
}

template <int LANES>
void addTile(const CertificateBand& b, std::size_t x, std::size_t y, const RowPair& row,
             const LaneSums& sums) {
  tile::CertificateTile<LANES> t(b, x, y, x > 0, x + LANES < b.w, row.inverse[0] + x,
                                 row.inverse[1] + x, row.label[0] + x, row.label[1] + x);
  double share[LANES];
  double cost[LANES];
  for (std::size_t i = 0; i < b.n; ++i) {
    t.add(i, share, cost);
    accumulate<LANES>(sums.shares + i * kSums, share);
    accumulate<LANES>(sums.costs + i * kSums, cost);
  }
  double terms[kCertificateTerms * LANES] = {};
  t.finish(terms);
  for (std::size_t k = 0; k < kCertificateTerms; ++k) {
    for (std::size_t l = 0; l < LANES; ++l) sums.terms[k * kLanes + l] += terms[k * LANES + l];
  }
}

void store(const LaneSums& lanes, std::size_t n, double* sums) {
  for (std::size_t k = 0; k < kCertificateTerms; ++k)
    sums[k] = total(lanes.terms + k * kLanes, kLanes);
  double* perLabel = sums + kCertificateTerms;
  for (std::size_t i = 0; i < n; ++i) {
    perLabel[i] = total(lanes.shares + i * kSums, kSums);
    perLabel[n + i] = lanes.pixels[i];
    perLabel[2 * n + i] = total(lanes.costs + i * kSums, kSums);
  }
}

void sumRows(const CertificateBand& b, std::size_t first, std::size_t last, double* sums,
             double* doubles, int* ints) {
  const std::size_t row = b.w + 1;
  RowPair pair = {{doubles, doubles + row}, {ints, ints + row}};
  double* lanes = doubles + 2 * row;
  const LaneSums own = {lanes, lanes + kCertificateTerms * kLanes,
                        lanes + kCertificateTerms * kLanes + b.n * kSums,
                        lanes + kCertificateTerms * kLanes + b.n * (kSums + 1)};
  const std::size_t count = kCertificateTerms * kLanes + b.n * (2 * kSums + 1);
  for (std::size_t k = 0; k < count; ++k) lanes[k] = 0.0;

  findPixels(b, first, pair.inverse[0], pair.label[0]);
  for (std::size_t y = first; y < last; ++y) {
    if (b.ymin + y + 1 < b.h) findPixels(b, y + 1, pair.inverse[1], pair.label[1]);
    forEachTile(b.w, [&]<int LANES>(std::size_t x) { addTile<LANES>(b, x, y, pair, own); });
    for (std::size_t x = 0; x < b.w; ++x) own.pixels[pair.label[0][x]] += 1.0;
    pair = {{pair.inverse[1], pair.inverse[0]}, {pair.label[1], pair.label[0]}};
  }
  store(own, b.n, sums);
}

}  // namespace

extern const CertificateRows rows;
const CertificateRows rows = {RATSEG_ISA_NAME, scratchDoubles, scratchInts, sumRows};

}  // namespace namespace_ratseg::RATSEG_ISA
