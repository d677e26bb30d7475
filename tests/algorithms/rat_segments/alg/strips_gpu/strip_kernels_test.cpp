// The arithmetic of the strip engine's kernels, against the shared projections and their double
// precision forms, and the shapes of its launches.

#include "algorithms/rat_segments/alg/strips_gpu/strip_kernels.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_pixel_kernels.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_shares_kernels.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_tile_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

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
  float t[1];
  tile::stripThresholds<MOST>(n, t, [&](unsigned i, int) -> float& { return v[i]; });
  for (float& x : v) x = std::max(x - t[0], 0.0f);
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

// Pixels whose searches take one and several passes, side by side.
TEST(StripThreshold, PixelsOfAPairDoNotChangeEachOther) {
  const std::vector<std::vector<float>> pixels = {
      {0.3f, 0.2f, 0.1f, 0.0f}, {0.9f, -0.3f, -5.0f, 0.7f}, {9.0f, 0.0f, 0.0f, 0.0f}};
  for (const std::vector<float>& first : pixels) {
    for (const std::vector<float>& second : pixels) {
      std::vector<float> v[2] = {first, second};
      float t[2];
      tile::stripThresholds<8>(4, t, [&](unsigned i, int l) -> float& { return v[l][i]; });
      for (int l = 0; l < 2; ++l) {
        for (float& x : v[l]) x = std::max(x - t[l], 0.0f);
        expectProjection(l == 0 ? first : second, v[l]);
      }
    }
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
                                                             {32, 7, 3},
                                                             {33, 7, 3},
                                                             {62, 5, 3},
                                                             {66, 300, 3},
                                                             {124, 300, 3},
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
        if (s.labels == 0) {
          unsigned x = 0, y = 0;
          for (unsigned t = block; t < tile::stripTiles(b, s.tileRows); t += blocks) {
            if (tile::pixelOfThread(b, s.tileRows, t, thread, x, y)) ++seen[y * w + x];
          }
          continue;
        }
        const unsigned warp = (block * s.threads + thread) / 32;
        tile::StripPlace place;
        const bool has = s.pixels == 2 ? tile::stripOfThread<2>(b, warp, thread % 32, place)
                                       : tile::stripOfThread<1>(b, warp, thread % 32, place);
        for (unsigned y = place.y0; has && place.owns && y < place.y1; ++y) {
          for (int l = 0; l < s.pixels; ++l) ++seen[y * w + place.x + static_cast<unsigned>(l)];
        }
      }
    }
    for (unsigned k = 0; k < w * h; ++k) {
      ASSERT_EQ(seen[k], k / w >= b.rowBegin ? 1 : 0) << "pixel " << k;
    }
  }
}

// What a lane needs from the columns beside its own is what the lane beside it works out.
template <int PX>
void expectNeighboursInWarp(unsigned w) {
  StripBand b;
  b.w = w;
  b.h = b.rowEnd = 2;
  b.rows = 1;
  for (unsigned warp = 0; warp < 2 * stripWarpsOfRow(w / PX); ++warp) {
    tile::StripPlace place[32];
    for (unsigned lane = 0; lane < 32; ++lane) {
      ASSERT_TRUE(tile::stripOfThread<PX>(b, warp, lane, place[lane]));
      EXPECT_LE(place[lane].x + PX, w);
      EXPECT_EQ(place[lane].y0, place[0].y0);
      EXPECT_EQ(place[lane].y1, place[0].y1);
    }
    for (unsigned lane = 0; lane < 32; ++lane) {
      if (!place[lane].owns) continue;
      const unsigned x = place[lane].x;
      if (x > 0) {
        ASSERT_GT(lane, 0u) << "w " << w << ", x " << x;
        EXPECT_EQ(place[lane - 1].x, x - PX);
      }
      if (x + PX < w) {
        ASSERT_LT(lane, 31u) << "w " << w << ", x " << x;
        EXPECT_EQ(place[lane + 1].x, x + PX);
      }
    }
  }
}

TEST(StripShape, LanesStandBesideTheirNeighbours) {
  for (unsigned w = 1; w <= 200; ++w) {
    expectNeighboursInWarp<1>(w);
    if (w % 2 == 0) expectNeighboursInWarp<2>(w);
  }
}

TEST(StripShape, AWarpOfARowOf64PixelsIsAllItNeeds) {
  EXPECT_EQ(stripWarpsOfRow(1), 1u);
  EXPECT_EQ(stripWarpsOfRow(32), 1u);
  EXPECT_EQ(stripWarpsOfRow(33), 2u);
  EXPECT_EQ(stripWarpsOfRow(62), 2u);
  EXPECT_EQ(stripWarpsOfRow(63), 3u);
  EXPECT_EQ(stripWarpsOfRow(1024), 35u);
}

// Where single pixels would keep more than all schedulers busy.
TEST(StripShape, TakesPairsOfPixelsWhereRowsStartAtEvenOnes) {
  EXPECT_EQ(stripShape(512, 512, 3, largeDevice()).pixels, 2);
  EXPECT_EQ(stripShape(511, 512, 3, largeDevice()).pixels, 1);
  EXPECT_EQ(stripShape(512, 512, 9, largeDevice()).pixels, 1);
  EXPECT_EQ(stripShape(64, 64, 3, largeDevice()).pixels, 1);
  EXPECT_EQ(stripShape(64, 64, 3, largeDevice(), {.pixels = 2}).pixels, 2);
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

// 132 processors of 4 schedulers, which hold 3 warps of 8 labels and 4 of fewer.
TEST(StripShape, FillsTheDevice) {
  EXPECT_EQ(stripShape(64, 64, 3, largeDevice()).rows, 1u);
  EXPECT_EQ(stripShape(512, 512, 5, largeDevice()).rows, 3u);     // 1539 of 2112 warps at once
  EXPECT_EQ(stripShape(2048, 2048, 8, largeDevice()).rows, 23u);  // 3150 of twice 1584
  EXPECT_EQ(stripShape(16384, 16384, 8, largeDevice()).rows, 24u);
  EXPECT_EQ(stripShape(512, 512, 8, largeDevice()).rows, 3u);
  cudaDeviceProp smaller = largeDevice();
  smaller.multiProcessorCount = 60;
  EXPECT_EQ(stripShape(512, 512, 8, smaller).rows, 10u);  // 468 for 240 schedulers
}

TEST(StripShape, HasABlockForEachProcessorFirst) {
  EXPECT_EQ(stripShape(64, 64, 3, largeDevice()).threads, 64u);  // 192 warps
  EXPECT_EQ(stripShape(64, 32, 3, largeDevice()).threads, 32u);
  EXPECT_EQ(stripShape(2048, 2048, 8, largeDevice()).threads, 128u);
}

TEST(StripShape, TakesWhatIsWishedForWhereItCan) {
  const StripShape rows = stripShape(2048, 2048, 8, largeDevice(), {.rows = 5});
  EXPECT_EQ(rows.rows, 5u);
  EXPECT_EQ(rows.pixels, 2);
  EXPECT_EQ(rows.threads, 128u);
  EXPECT_EQ(stripShape(512, 512, 5, largeDevice(), {.pixels = 1}).pixels, 1);
  EXPECT_EQ(stripShape(2048, 2048, 8, largeDevice(), {.pixels = 2}).pixels, 2);
  EXPECT_EQ(stripShape(2047, 2048, 8, largeDevice(), {.pixels = 2}).pixels, 1);
  EXPECT_EQ(stripShape(2048, 2048, 9, largeDevice(), {.pixels = 2}).pixels, 1);
  EXPECT_EQ(stripShape(64, 64, 3, largeDevice(), {.threads = 128}).threads, 128u);
  EXPECT_EQ(stripShape(2048, 2048, 8, largeDevice(), {.threads = 32}).threads, 32u);
}

// Values in shared memory as long as three blocks find room, behind that in the rows themselves. No
// more blocks are launched than run at once: each works on tiles until there are none left.
TEST(StripShape, KeepsBlocksWithinSharedMemory) {
  const std::size_t ofProcessor = 228 << 10;
  for (std::size_t n = 17; n <= 1024; ++n) {
    const StripShape s = stripShape(640, 480, n, largeDevice());
    const std::size_t blocks = s.maxBlocks / 132;
    ASSERT_EQ(s.maxBlocks % 132, 0u);
    ASSERT_LE(blocks * (s.sharedBytes + 1024), ofProcessor) << n;
    ASSERT_TRUE(blocks == 4 || (blocks + 1) * (s.sharedBytes + 1024) > ofProcessor) << n;
    ASSERT_GE(blocks, 3u) << n;
    ASSERT_EQ(s.threads, 32 * s.tileRows);
    ASSERT_EQ(s.sharedScratch, n <= 290) << n;
  }
}

}  // namespace
}  // namespace namespace_ratseg
