#include "algorithms/rat_segments/alg/dataterm/distinct_colours.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace namespace_ratseg {
namespace {

TEST(DistinctColours, AreListedInOrderOfAppearanceWithTheirCounts) {
  const std::vector<float4> list = {{1, 0, 0, 1}, {0, 1, 0, 1}, {1, 0, 0, 0.5f},
                                    {0, 0, 1, 1}, {0, 1, 0, 1}, {1, 0, 0, 1}};
  const DistinctColours distinct(list.data(), list.size());
  ASSERT_EQ(distinct.colours.size(), 3u);
  EXPECT_EQ(distinct.colours[1].y, 1.0f);
  EXPECT_EQ(distinct.index, (std::vector<std::uint32_t>{0, 1, 0, 2, 1, 0}));
  EXPECT_EQ(distinct.count, (std::vector<std::uint32_t>{3, 2, 1}));
}

TEST(DistinctColours, OfNothingAreNone) {
  const DistinctColours distinct(nullptr, 0);
  EXPECT_TRUE(distinct.colours.empty());
  EXPECT_TRUE(distinct.index.empty());
}

TEST(DistinctColours, EveryEntryFindsItsColourAmongMany) {
  std::mt19937 generator(7);
  std::vector<float4> list(50000);
  for (float4& c : list) {
    c = {static_cast<float>(generator() % 64), static_cast<float>(generator() % 64),
         static_cast<float>(generator() % 16), 0};
  }
  const DistinctColours distinct(list.data(), list.size());
  std::vector<std::uint32_t> counted(distinct.colours.size());
  for (std::size_t k = 0; k < list.size(); ++k) {
    const float4& c = distinct.colours[distinct.index[k]];
    ASSERT_TRUE(c.x == list[k].x && c.y == list[k].y && c.z == list[k].z) << k;
    ++counted[distinct.index[k]];
  }
  EXPECT_EQ(counted, distinct.count);
  EXPECT_GT(distinct.colours.size(), 10000u);
}

// Each colour twice in a row, so that the newest one is looked for when the table has just grown.
TEST(DistinctColours, OfOneChannelAreToldApart) {
  constexpr std::size_t kColours = 20000;
  for (const int channel : {0, 1, 2}) {
    std::vector<float4> list;
    for (std::size_t k = 0; k < 2 * kColours; ++k) {
      const auto value = static_cast<float>(k / 2);
      list.push_back(
          {channel == 0 ? value : 1, channel == 1 ? value : 1, channel == 2 ? value : 1, 1});
    }
    const DistinctColours distinct(list.data(), list.size());
    EXPECT_EQ(distinct.colours.size(), kColours) << "channel " << channel;
    EXPECT_EQ(distinct.count, std::vector<std::uint32_t>(kColours, 2)) << "channel " << channel;
  }
}

}  // namespace
}  // namespace namespace_ratseg
