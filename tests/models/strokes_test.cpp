#include "models/strokes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

std::vector<Stroke> strokes(std::size_t w, const std::vector<std::uint8_t>& marks) {
  return strokesOf({w, marks.size() / w, marks.data()});
}

TEST(Strokes, HangTogetherAtCornersAndHaveOneLabel) {
  const auto found = strokes(4, {1, 0, 0, 2,  //
                                 0, 1, 0, 2,  //
                                 0, 0, 3, 0});
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[0].label, 0u);
  EXPECT_THAT(found[0].pixels, UnorderedElementsAre(0, 5));
  EXPECT_EQ(found[1].label, 1u);
  EXPECT_THAT(found[1].pixels, UnorderedElementsAre(3, 7));
  EXPECT_THAT(found[2].pixels, ElementsAre(10));
}

TEST(Strokes, GoFromOneEndToTheOther) {
  const auto found = strokes(9, {0, 1, 1, 1, 1, 1, 1, 0, 1});
  EXPECT_THAT(found[0].pixels,
              testing::AnyOf(ElementsAre(1, 2, 3, 4, 5, 6), ElementsAre(6, 5, 4, 3, 2, 1)));
}

TEST(Samples, WholeStrokesShareAFold) {
  std::vector<std::uint8_t> marks(100 * 9);
  for (std::size_t row = 0; row < 5; ++row) {
    for (std::size_t x = 0; x < 40 + 10 * row; ++x) marks[2 * row * 100 + x] = 1;
  }
  const auto samples = samplesOf(strokes(100, marks), 1000, 4);
  EXPECT_EQ(samples.size(), 300u);
  std::map<std::size_t, std::set<std::uint32_t>> folds;
  std::set<std::uint32_t> used;
  for (const Sample& sample : samples) {
    folds[sample.pixel / 100].insert(sample.fold);
    used.insert(sample.fold);
  }
  for (const auto& [row, of] : folds) EXPECT_EQ(of.size(), 1u) << row;
  EXPECT_THAT(used, ElementsAre(0, 1, 2, 3));
}

TEST(Samples, ASingleStrokeIsCutIntoPieces) {
  std::vector<std::uint8_t> marks(40, 1);
  const auto samples = samplesOf(strokes(40, marks), 1000, 4);
  std::map<std::uint32_t, std::size_t> sizes;
  for (const Sample& sample : samples) ++sizes[sample.fold];
  EXPECT_THAT(sizes, ElementsAre(testing::Pair(0, 10), testing::Pair(1, 10), testing::Pair(2, 10),
                                 testing::Pair(3, 10)));
}

TEST(Samples, ASinglePixelIsNeverHeldOut) {
  const auto samples = samplesOf(strokes(4, {1, 0, 2, 2}), 1000, 4);
  ASSERT_EQ(samples.size(), 3u);
  EXPECT_EQ(samples[0].fold, kNeverHeldOut);
  EXPECT_NE(samples[1].fold, kNeverHeldOut);
  EXPECT_NE(samples[1].fold, samples[2].fold);
}

TEST(Samples, AreThinnedEvenlyAndSorted) {
  std::vector<std::uint8_t> marks(1000, 1);
  std::fill_n(marks.begin(), 30, 2);
  const auto samples = samplesOf(strokes(1000, marks), 97, 4);
  std::size_t first = 0;
  std::size_t last = 0;
  for (const Sample& sample : samples) {
    EXPECT_TRUE(last == 0 || sample.pixel > last);
    last = sample.pixel;
    first += sample.label == 1 ? 1 : 0;
  }
  EXPECT_EQ(first, 30u);
  EXPECT_EQ(samples.size(), 30u + 97u);
}

}  // namespace
}  // namespace namespace_ratseg
