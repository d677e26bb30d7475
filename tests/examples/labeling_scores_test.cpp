#include "labeling_scores.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace namespace_ratseg {
namespace {

using testing::DoubleEq;
using testing::ElementsAre;

TEST(ScoreLabeling, AccuracyIsTheFractionOfPixelsWithTheirTrueLabel) {
  EXPECT_DOUBLE_EQ(scoreLabeling("a", {0, 1, 2, 2}, {0, 1, 1, 2}, 2).accuracy, 0.75);
}

TEST(ScoreLabeling, SharesLeaveOtherLabelsOut) {
  const auto score = scoreLabeling("a", {0, 1, 1, 1, 2, 2, -1}, {0, 0, 0, 0, 0, 0, 0}, 2);
  EXPECT_THAT(score.shares, ElementsAre(DoubleEq(0.25), DoubleEq(0.75)));
}

TEST(ScoreLabeling, SharesAreZeroWithoutSuchLabels) {
  EXPECT_THAT(scoreLabeling("a", {2, 2}, {2, 2}, 2).shares, ElementsAre(0, 0));
}

TEST(ScoreTable, HasALineForTheTruthAndForEachLabeling) {
  EXPECT_EQ(scoreTable({0.25, 0.75}, {{"one", 0.5, {0, 1}}, {"the other", 1, {0.12345, 0.9}}},
                       "foreground"),
            "           accuracy    share of the foreground of label\n"
            "                            0         1\n"
            "truth                  0.2500    0.7500\n"
            "one          0.5000    0.0000    1.0000\n"
            "the other    1.0000    0.1235    0.9000\n");
}

}  // namespace
}  // namespace namespace_ratseg
