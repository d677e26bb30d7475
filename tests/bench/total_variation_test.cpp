#include "peers/total_variation.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace namespace_ratseg {
namespace {

std::vector<float> solve(std::size_t w, std::size_t h, std::size_t n, const std::vector<float>& f,
                         float lambda, int iterations) {
  TotalVariationLoop loop(w, h, n, f, lambda);
  for (int k = 0; k < iterations; ++k) loop.iterate();
  return loop.u();
}

// The minimiser of two flat halves: each moves to the other by lambda times the length of their
// border over its area, until they meet.
std::vector<float> halves(std::size_t w, std::size_t h, float left, float right) {
  std::vector<float> f(w * h);
  for (std::size_t p = 0; p < f.size(); ++p) f[p] = p % w < w / 2 ? left : right;
  return f;
}

TEST(TotalVariationLoop, BringsTwoHalvesTogetherByTheirBorder) {
  constexpr std::size_t w = 16, h = 11;
  for (const float lambda : {0.0f, 0.5f, 2.0f}) {
    const float step = lambda / (w / 2);
    const std::vector<float> u = solve(w, h, 1, halves(w, h, 1, 3), lambda, 3000);
    for (std::size_t p = 0; p < u.size(); ++p) {
      EXPECT_NEAR(u[p], p % w < w / 2 ? 1 + step : 3 - step, 1e-4f) << lambda << " at " << p;
    }
  }
}

TEST(TotalVariationLoop, IsTheSameForRowsAsForColumns) {
  constexpr std::size_t w = 9, h = 14;
  std::vector<float> f(w * h), turned(w * h);
  for (std::size_t p = 0; p < f.size(); ++p) {
    f[p] = static_cast<float>((p * 37) % 23);
    turned[(p % w) * h + p / w] = f[p];
  }
  const std::vector<float> u = solve(w, h, 1, f, 3, 2000), v = solve(h, w, 1, turned, 3, 2000);
  for (std::size_t p = 0; p < f.size(); ++p) EXPECT_NEAR(u[p], v[(p % w) * h + p / w], 1e-3f);
}

TEST(TotalVariationLoop, PicturesDoNotMix) {
  constexpr std::size_t w = 8, h = 5;
  std::vector<float> both = halves(w, h, 0, 4);
  const std::vector<float> second = halves(w, h, 7, 1);
  const std::vector<float> first = solve(w, h, 1, both, 1, 50);
  both.insert(both.end(), second.begin(), second.end());
  const std::vector<float> u = solve(w, h, 2, both, 1, 50);
  const std::vector<float> alone = solve(w, h, 1, second, 1, 50);
  for (std::size_t p = 0; p < w * h; ++p) {
    EXPECT_EQ(u[p], first[p]);
    EXPECT_EQ(u[w * h + p], alone[p]);
  }
}

TEST(TotalVariationLoop, LargeLambdaLeavesTheMean) {
  const std::vector<float> u = solve(6, 6, 1, halves(6, 6, 0, 8), 1000, 20000);
  for (const float v : u) EXPECT_NEAR(v, 4, 1e-2f);
}

}  // namespace
}  // namespace namespace_ratseg
