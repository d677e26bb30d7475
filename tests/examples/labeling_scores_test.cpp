#include "labeling_scores.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace namespace_ratseg {
namespace {

using testing::DoubleEq;
using testing::ElementsAre;

const std::vector<std::uint8_t> kNoMarks(8, 0);

TEST(ScoreLabeling, AccuracyIsTheFractionOfPixelsWithTheirTrueLabel) {
  EXPECT_DOUBLE_EQ(*scoreLabeling("a", {0, 1, 2, 2}, {0, 1, 1, 2}, kNoMarks, 2).accuracy, 0.75);
}

TEST(ScoreLabeling, MarkedPixelsDoNotCount) {
  const auto score = scoreLabeling("a", {0, 1, 2, 2}, {0, 1, 1, 1}, {1, 0, 0, 2}, 2);
  EXPECT_DOUBLE_EQ(*score.accuracy, 0.5);
  EXPECT_THAT(score.shares, ElementsAre(DoubleEq(0.5), DoubleEq(0.5)));
}

TEST(ScoreLabeling, NoAccuracyWithoutATruthOrWithoutPixelsToCount) {
  EXPECT_FALSE(scoreLabeling("a", {0, 1}, {}, {0, 1}, 2).accuracy);
  EXPECT_FALSE(scoreLabeling("a", {0, 1}, {0, 1}, {1, 1}, 2).accuracy);
}

TEST(ScoreLabeling, SharesLeaveOtherLabelsOut) {
  const auto score = scoreLabeling("a", {0, 1, 1, 1, 2, 2, -1}, {0, 0, 0, 0, 0, 0, 0}, kNoMarks, 2);
  EXPECT_THAT(score.shares, ElementsAre(DoubleEq(0.25), DoubleEq(0.75)));
}

TEST(ScoreLabeling, SharesAreZeroWithoutSuchLabels) {
  EXPECT_THAT(scoreLabeling("a", {2, 2}, {2, 2}, kNoMarks, 2).shares, ElementsAre(0, 0));
}

TEST(ScoreTable, HasALineForTheTruthAndForEachLabeling) {
  EXPECT_EQ(scoreTable({0.25, 0.75}, {{"one", 0.5, {0, 1}}, {"the other", 1, {0.12345, 0.9}}},
                       "foreground"),
            "           accuracy    share of the foreground of label\n"
            "                            0         1\n"
            "truth                  0.2500    0.7500\n"
            "one          0.5000    0.0000    1.0000\n"
            "the other    1.0000    0.1235    0.9000\n"
            "Accuracy is counted where there are no scribbles.\n");
}

TEST(ScoreTable, HasSharesOnlyWhereTheTruthIsUnknown) {
  EXPECT_EQ(scoreTable({}, {{"one", {}, {0, 1}}}, "image"),
            "         share of the image of label\n"
            "              0         1\n"
            "one      0.0000    1.0000\n");
}

}  // namespace
}  // namespace namespace_ratseg
