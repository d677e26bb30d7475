#include "app/dataterm/scribble_problem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace namespace_ratseg {
namespace {

using testing::DoubleEq;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ScribbleColours, AreThoseOfTheMarkedPixelsByLabel) {
  const std::vector<RGB> image = {{1, 0, 0, 1}, {2, 0, 0, 1}, {3, 0, 0, 1}, {4, 0, 0, 1}};
  const auto colours = scribbleColours({2, 2, {2, 0, 1, 2}}, image.data(), 3);
  ASSERT_EQ(colours.size(), 3u);
  ASSERT_EQ(colours[0].size(), 1u);
  EXPECT_EQ(colours[0][0].x, 3);
  ASSERT_EQ(colours[1].size(), 2u);
  EXPECT_EQ(colours[1][0].x, 1);
  EXPECT_EQ(colours[1][1].x, 4);
  EXPECT_THAT(colours[2], IsEmpty());
}

TEST(CountLabels, IsTheHighestMark) { EXPECT_EQ(countLabels({2, 1, {0, 3}}, {}), 3u); }

TEST(CountLabels, IsMoreWhereTheTruthHasMore) {
  EXPECT_EQ(countLabels({2, 1, {0, 3}}, LabelPicture{2, 1, {0, 4}}), 5u);
  EXPECT_EQ(countLabels({2, 1, {0, 3}}, LabelPicture{2, 1, {0, 1}}), 3u);
  EXPECT_EQ(countLabels({2, 1, {0, 3}}, LabelPicture{2, 1, {0, 255}}), 256u);
}

TEST(Shares, AreOfTheForegroundAndLeaveTheBackgroundOut) {
  EXPECT_THAT(shares({6, 1, {0, 0, 0, 1, 2, 2}}, 3, false),
              ElementsAre(DoubleEq(0.75), DoubleEq(0.25)));
}

TEST(Shares, OfTheImageCountAllLabels) {
  EXPECT_THAT(shares({8, 1, {0, 0, 0, 0, 1, 1, 2, 2}}, 3, true),
              ElementsAre(DoubleEq(0.5), DoubleEq(0.25), DoubleEq(0.25)));
}

TEST(Shares, OfALabelThatDoesNotOccurAreZero) {
  EXPECT_THAT(shares({2, 1, {0, 0}}, 3, false), ElementsAre(DoubleEq(1), DoubleEq(0)));
}

TEST(Shares, DoNotExistWithoutForeground) {
  EXPECT_THAT(shares({2, 1, {2, 2}}, 3, false), IsEmpty());
}

}  // namespace
}  // namespace namespace_ratseg
