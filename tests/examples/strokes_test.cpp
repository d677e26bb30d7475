#include "strokes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace namespace_ratseg {
namespace {

constexpr int w = 80, h = 60;

// The left half is label 0, the right half label 1.
std::vector<std::uint8_t> halves() {
  std::vector<std::uint8_t> truth(static_cast<std::size_t>(w) * h);
  for (std::size_t i = 0; i < truth.size(); ++i) truth[i] = i % w < w / 2 ? 0 : 1;
  return truth;
}

TEST(Strokes, KeepTheirDistanceFromOtherLabelsAndBorders) {
  std::vector<std::uint8_t> scribbles(halves().size());
  Random random(1);
  drawStrokes(scribbles, halves(), w, h, 1, {6, 30, 10, 4}, random);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const int mark = scribbles[static_cast<std::size_t>(y) * w + x];
      EXPECT_TRUE(mark == 0 || mark == 2);
      // The pen's middle stays 4 pixels away, and it reaches one pixel further.
      if (mark == 2) {
        EXPECT_TRUE(x >= w / 2 + 3 && x < w - 3 && y >= 3 && y < h - 3) << x << ", " << y;
      }
    }
  }
  EXPECT_GT(std::count(scribbles.begin(), scribbles.end(), 2), 100);
}

TEST(Strokes, MayFindNoRoom) {
  std::vector<std::uint8_t> scribbles(halves().size());
  Random random(1);
  drawStrokes(scribbles, halves(), w, h, 0, {3, 30, 10, 25}, random);
  drawStrokes(scribbles, halves(), w, h, 7, {3, 30, 10, 2}, random);
  EXPECT_EQ(std::count(scribbles.begin(), scribbles.end(), 0), w * h);
}

TEST(Strokes, HaveAtMostTheirLength) {
  std::vector<std::uint8_t> scribbles(halves().size());
  Random random(2);
  drawStrokes(scribbles, halves(), w, h, 0, {1, 12, 12, 2}, random);
  // Twelve steps of length 1 with a pen three pixels wide.
  const auto marked = std::count(scribbles.begin(), scribbles.end(), 1);
  EXPECT_GE(marked, 3 * 8);
  EXPECT_LE(marked, 3 * 3 + 11 * 5);
}

}  // namespace
}  // namespace namespace_ratseg
