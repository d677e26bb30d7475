#include "files/stretch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace namespace_ratseg {
namespace {

TEST(Stretch, RangeIsThatOfSortedValues) {
  std::mt19937 random(3);
  std::normal_distribution<float> normal(-2, 1e4f);
  for (std::size_t count : {1u, 2u, 999u, 1000u, 5001u}) {
    std::vector<float> values(count);
    for (float& value : values) value = normal(random);
    std::vector<float> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    values.push_back(NAN);
    values.push_back(std::numeric_limits<float>::infinity());
    const ValueRange range = rangeOf(values.data(), values.size());
    EXPECT_EQ(range.low, sorted[count / 1000]) << count;
    EXPECT_EQ(range.high, sorted[count - 1 - count / 1000]) << count;
  }
}

TEST(Stretch, RangeOfFewOtherValuesIsAllOfThem) {
  std::vector<float> values(5000, 3.0f);
  values[7] = 9;
  const ValueRange range = rangeOf(values.data(), values.size());
  EXPECT_EQ(range.low, 3);
  EXPECT_EQ(range.high, 9);
  const float none[] = {NAN, -std::numeric_limits<float>::infinity()};
  EXPECT_EQ(rangeOf(none, 2).low, rangeOf(none, 2).high);
}

TEST(Stretch, ValuesAreRoundedAndCut) {
  const float values[] = {-1, 0, 0.499f / 255, 0.501f / 255, 0.5f, 1, 1e30f};
  EXPECT_THAT(stretched(values, 7, {0, 1}), testing::ElementsAre(0, 0, 0, 1, 128, 255, 255));
  EXPECT_THAT(stretched(values, 2, {4, 4}), testing::ElementsAre(0, 0));
  const float wide[] = {-3e38f, 0, 3e38f};
  EXPECT_THAT(stretched(wide, 3, {-3e38f, 3e38f}), testing::ElementsAre(0, 128, 255));
}

TEST(Stretch, EachChannelIsMendedByItsOwnValues) {
  Raster raster;
  raster.w = 3;
  raster.h = 1;
  raster.channels = 3;
  const float inf = std::numeric_limits<float>::infinity();
  raster.values = {1, NAN, 5, -inf, 7, inf, NAN, inf, -inf};
  const MendedValues mended = mendValues(raster);
  EXPECT_EQ(mended.nans, 2u);
  EXPECT_EQ(mended.infinite, 4u);
  EXPECT_THAT(raster.values, testing::ElementsAre(1, 1, 5, 7, 7, 7, 0, 0, 0));
}

}  // namespace
}  // namespace namespace_ratseg
