// The arithmetic of the strip engine's kernels, against the shared projections and their double
// precision forms, and the shapes of its launches.

#include "algorithms/rat_segments/alg/strip_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/environment.h"
#include "util/cudaproj.h"
#include "util/linalg.h"

namespace namespace_ratseg {
namespace {

// The projection onto the simplex in double precision, by sorting.
std::vector<double> simplexOf(const std::vector<float>& v) {
  std::vector<double> sorted(v.begin(), v.end());
  std::sort(sorted.rbegin(), sorted.rend());
  double sum = 0.0, t = 0.0;
  for (std::size_t k = 0; k < sorted.size(); ++k) {
    sum += sorted[k];
    const double candidate = (sum - 1.0) / static_cast<double>(k + 1);
    if (sorted[k] > candidate) t = candidate;
  }
  std::vector<double> result;
  for (const float x : v) result.push_back(std::max(static_cast<double>(x) - t, 0.0));
  return result;
}

template <int MOST>
std::vector<float> projected(std::vector<float> v) {
  const auto n = static_cast<unsigned>(v.size());
  const float t = tile::stripThreshold<MOST>(n, [&](unsigned i) -> float& { return v[i]; });
  for (float& x : v) x = std::max(x - t, 0.0f);
  return v;
}

void expectProjection(const std::vector<float>& v, const std::vector<float>& got) {
  const std::vector<double> expected = simplexOf(v);
  double sum = 0.0;
  for (std::size_t i = 0; i < v.size(); ++i) {
    EXPECT_NEAR(got[i], expected[i], 1e-6) << i << " of " << v.size();
    sum += static_cast<double>(got[i]);
  }
  EXPECT_NEAR(sum, 1.0, 1e-5);
  std::vector<float> shared = v;
  projectOntoSimplex<1>(shared.data(), static_cast<int>(shared.size()));
  for (std::size_t i = 0; i < v.size(); ++i) EXPECT_NEAR(got[i], shared[i], 2e-6);
}

TEST(StripThreshold, ProjectsOntoTheSimplexFor1To64Components) {
  std::mt19937 generator(3);
  const auto uniform = [&] { return static_cast<float>(generator() >> 8) * 0x1p-24f; };
  for (std::size_t n = 1; n <= 64; ++n) {
    for (const float scale : {0.1f, 1.0f, 4.0f}) {
      std::vector<float> v(n);
      for (float& x : v) x = scale * (uniform() - 0.4f);
      expectProjection(v, projected<0>(v));
      if (n <= 16) expectProjection(v, projected<16>(v));
    }
  }
}

TEST(StripThreshold, ProjectsForcedForbiddenAndEqualComponents) {
  for (const std::vector<float>& v : std::vector<std::vector<float>>{{0.0f, 0.0f, 0.0f},
                                                                     {1.0f, 0.5f, 0.5f},
                                                                     {0.6f, -0.6f, 0.0f},
                                                                     {1.0f, 1.0f},
                                                                     {-3.0f, -3.0f, -3.0f, -2.5f},
                                                                     {5.0f},
                                                                     {0.0f, 1.0f, 0.0f}}) {
    expectProjection(v, projected<0>(v));
    expectProjection(v, projected<8>(v));
  }
}

// Beside 1e9 the 1 that components sum to is less than the rounding.
TEST(StripThreshold, HugeComponentsLeaveTheGreatest) {
  EXPECT_EQ(projected<0>({1e9f, 2e9f, -3e9f}), (std::vector<float>{0.0f, 1.0f, 0.0f}));
  EXPECT_EQ(projected<4>({-1e30f, -2e30f, -3e30f}), (std::vector<float>{1.0f, 0.0f, 0.0f}));
}

TEST(StripDual, IsTheStepAndTheDisc) {
  std::mt19937 generator(5);
  const auto uniform = [&] { return static_cast<float>(generator() >> 8) * 0x1p-23f - 1.0f; };
  for (const float radius : {0.0f, 1e-20f, 0.3f, 1.0f, 1e20f, FLT_MAX}) {
    for (int k = 0; k < 50; ++k) {
      const float2 p = {uniform(), uniform()};
      const float here = uniform(), right = uniform(), below = uniform();
      const float2 expected =
          clampToDisc(p.x + 0.5f * (right - here), p.y + 0.5f * (below - here), radius);
      const float2 got = tile::stripDual(p, here, right, below, 0.5f, {radius, radius * radius});
      EXPECT_NEAR(got.x, expected.x, 1e-6);
      EXPECT_NEAR(got.y, expected.y, 1e-6);
    }
  }
}

TEST(StripDual, ARadiusOfZeroHoldsTinyValuesAtZero) {
  const float2 q = tile::stripDual({1e-30f, -1e-30f}, 0.5f, 0.5f, 0.5f, 0.5f, {0.0f, 0.0f});
  EXPECT_EQ(q.x, 0.0f);
  EXPECT_EQ(q.y, 0.0f);
}

TEST(StripRadius, HasNoBoundWhereTheModelHasNone) {
  EXPECT_EQ(tile::stripRadius(0.5f, 3.0f).radius, 0.75f);
  EXPECT_EQ(tile::stripRadius(0.5f, 0.0f).radius, 0.0f);
  EXPECT_EQ(tile::stripRadius(FLT_MAX, 0.0f).radius, 0.0f);
  EXPECT_EQ(tile::stripRadius(FLT_MAX, 1.0f).radius, FLT_MAX);
  EXPECT_EQ(tile::stripRadius(0.5f, FLT_MAX).radius, FLT_MAX);
  EXPECT_EQ(tile::stripRadius(-0.5f, 1.0f).radius, FLT_MAX);
}

cudaDeviceProp largeDevice() {
  cudaDeviceProp device;
  device.multiProcessorCount = 132;
  device.maxThreadsPerBlock = 1024;
  device.sharedMemPerBlock = 48 << 10;
  device.sharedMemPerBlockOptin = 227 << 10;
  return device;
}

// Each pixel of the rows belongs to one thread, in both kernels.
TEST(StripShape, CoversEveryPixelOnce) {
  for (const auto& [w, h, n] :
       std::vector<std::tuple<unsigned, unsigned, unsigned>>{{1, 1, 3},
                                                             {64, 40, 3},
                                                             {63, 41, 3},
                                                             {258, 9, 8},
                                                             {257, 9, 8},
                                                             {40, 17, 12},
                                                             {33, 19, 17},
                                                             {64, 9, 64},
                                                             {31, 5, 1024}}) {
    SCOPED_TRACE(testing::Message() << w << "x" << h << "x" << n);
    const StripShape s = stripShape(w, h, n, largeDevice(), {.rows = 3});
    StripBand b;
    b.w = w;
    b.h = b.rowEnd = h;
    b.rowBegin = h > 4 ? 2 : 0;
    b.rows = s.rows;
    std::vector<int> seen(w * h);
    const unsigned blocks = stripBlocks(s, w, b.rowEnd - b.rowBegin);
    for (unsigned block = 0; block < blocks; ++block) {
      for (unsigned thread = 0; thread < s.threads; ++thread) {
        unsigned x = 0, y0 = 0, y1 = 0;
        if (s.labels == 0) {
          for (unsigned t = block; t < tile::stripTiles(b, s.tileRows); t += blocks) {
            if (tile::pixelOfThread(b, s.tileRows, t, thread, x, y0)) ++seen[y0 * w + x];
          }
          continue;
        }
        const bool has = s.pixels == 2
                             ? tile::stripOfThread<2>(b, s.threads, block, thread, x, y0, y1)
                             : tile::stripOfThread<1>(b, s.threads, block, thread, x, y0, y1);
        for (unsigned y = y0; has && y < y1; ++y) {
          for (int l = 0; l < s.pixels; ++l) ++seen[y * w + x + static_cast<unsigned>(l)];
        }
      }
    }
    for (unsigned k = 0; k < w * h; ++k) {
      ASSERT_EQ(seen[k], k / w >= b.rowBegin ? 1 : 0) << "pixel " << k;
    }
  }
}

TEST(StripShape, TakesPairsOfPixelsWhereRowsStartAtEvenOnes) {
  EXPECT_EQ(stripShape(64, 64, 3, largeDevice()).pixels, 2);
  EXPECT_EQ(stripShape(63, 64, 3, largeDevice()).pixels, 1);
  EXPECT_EQ(stripShape(64, 64, 9, largeDevice()).pixels, 1);
}

TEST(StripShape, IsCompiledForAtLeastTheLabels) {
  const std::set<int> compiled = {1, 2, 3, 4, 5, 6, 7, 8, 12, 16};
  for (std::size_t n = 1; n <= 16; ++n) {
    const StripShape s = stripShape(64, 64, n, largeDevice());
    EXPECT_EQ(compiled.count(s.labels), 1u) << n;
    EXPECT_GE(s.labels, static_cast<int>(n));
    if (n <= 8) {
      EXPECT_EQ(s.labels, static_cast<int>(n));
    }
  }
  EXPECT_EQ(stripShape(64, 64, 17, largeDevice()).labels, 0);
}

TEST(StripShape, LeavesEnoughThreadsForTheDevice) {
  EXPECT_EQ(stripShape(64, 64, 3, largeDevice()).rows, 1u);
  EXPECT_EQ(stripShape(512, 512, 5, largeDevice()).rows, 3u);
  EXPECT_EQ(stripShape(2048, 2048, 8, largeDevice()).rows, 16u);
}

TEST(StripShape, TakesWhatIsWishedForWhereItCan) {
  const StripShape rows = stripShape(2048, 2048, 8, largeDevice(), {.rows = 5});
  EXPECT_EQ(rows.rows, 5u);
  EXPECT_EQ(rows.pixels, 2);
  EXPECT_EQ(rows.threads, 128u);
  const StripShape single = stripShape(512, 512, 5, largeDevice(), {.pixels = 1});
  EXPECT_EQ(single.rows, 7u);  // twice the threads of a row
  EXPECT_EQ(single.pixels, 1);
  EXPECT_EQ(stripShape(2048, 2048, 8, largeDevice(), {.pixels = 2}).pixels, 2);
  EXPECT_EQ(stripShape(2047, 2048, 8, largeDevice(), {.pixels = 2}).pixels, 1);
  EXPECT_EQ(stripShape(2048, 2048, 9, largeDevice(), {.pixels = 2}).pixels, 1);
  EXPECT_EQ(stripShape(64, 64, 3, largeDevice()).threads, 32u);
  EXPECT_EQ(stripShape(64, 64, 3, largeDevice(), {.threads = 64}).threads, 64u);
  EXPECT_EQ(stripShape(2048, 2048, 8, largeDevice(), {.threads = 32}).threads, 32u);
}

struct WishCase {
  const char* variable;
  unsigned StripWish::*wish;
  const char* expected;
  std::vector<std::pair<const char*, unsigned>> good;
  std::vector<const char*> bad;
};

const std::vector<WishCase>& wishCases() {
  static const std::vector<WishCase> cases = {
      {"RATSEG_STRIP_ROWS",
       &StripWish::rows,
       "a number from 1 to 64",
       {{"", 0}, {"1", 1}, {"16", 16}, {"64", 64}},
       {"0", "65", "-1", "8 ", "x", "100", "1000000000000"}},
      {"RATSEG_STRIP_PIXELS",
       &StripWish::pixels,
       "1 or 2",
       {{"", 0}, {"1", 1}, {"2", 2}},
       {"0", "3", "two"}},
      {"RATSEG_STRIP_THREADS",
       &StripWish::threads,
       "32, 64 or 128",
       {{"", 0}, {"32", 32}, {"64", 64}, {"128", 128}},
       {"0", "33", "256", "1024"}}};
  return cases;
}

TEST(StripWish, IsWhatTheEnvironmentSays) {
  for (const WishCase& c : wishCases()) {
    const EnvironmentVariable unset(c.variable, nullptr);
    EXPECT_EQ(stripWishFromEnvironment().*c.wish, 0u);
    for (const auto& [text, value] : c.good) {
      const EnvironmentVariable set(c.variable, text);
      EXPECT_EQ(stripWishFromEnvironment().*c.wish, value) << c.variable << "=" << text;
    }
  }
}

TEST(StripWishDeathTest, OtherValuesEndTheProcess) {
  for (const WishCase& c : wishCases()) {
    for (const char* text : c.bad) {
      const EnvironmentVariable set(c.variable, text);
      EXPECT_EXIT(stripWishFromEnvironment(), testing::ExitedWithCode(1),
                  std::string("^ERROR: ") + c.variable + " must be " + c.expected + ", but is \"" +
                      text + "\"\n$");
    }
  }
}

// Values in shared memory as long as three blocks find room, behind that in the rows themselves.
TEST(StripShape, KeepsBlocksWithinSharedMemory) {
  for (std::size_t n = 17; n <= 1024; ++n) {
    const StripShape s = stripShape(640, 480, n, largeDevice());
    ASSERT_LE(3 * s.sharedBytes, largeDevice().sharedMemPerBlockOptin) << n;
    ASSERT_EQ(s.threads, 32 * s.tileRows);
    ASSERT_EQ(s.sharedScratch, n <= 293) << n;
  }
}

}  // namespace
}  // namespace namespace_ratseg
