#include "app/labeling_shares.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace namespace_ratseg {
namespace {

std::string shares(const std::vector<int>& labeling, const Proportions& wished,
                   bool balanced = false) {
  std::ostringstream out;
  printShares(out, labeling, wished, balanced);
  return out.str();
}

TEST(LabelingShares, AreThoseOfTheForegroundBesideTheWishedOnesAndThoseOfTheImage) {
  EXPECT_EQ(shares({2, 0, 0, 0, 1, 2, 2, 2, 2, 2}, {{0.7f, 0.3f, 0}, {0.02f, 0.1f, 0}}),
            "Shares of the labeling:\n"
            "                           of foreground      wished      spread     of image\n"
            "    label 0                     0.750000         0.7        0.02     0.300000\n"
            "    label 1                     0.250000         0.3         0.1     0.100000\n"
            "    label 2 (background)               -           -           -     0.600000\n");
}

TEST(LabelingShares, OfAForegroundWithoutPixelsAreNone) {
  EXPECT_EQ(shares({1, 1}, {{0.5f, 0}, {0, 0}}),
            "Shares of the labeling:\n"
            "                           of foreground      wished      spread     of image\n"
            "    label 0                            -         0.5           0     0.000000\n"
            "    label 1 (background)               -           -           -     1.000000\n"
            "    no pixel has a foreground label\n");
}

TEST(LabelingShares, OfALabelWithoutPixelsAreZero) {
  EXPECT_EQ(shares({1}, {{-1e30f, 1, 0}, {1, 0.125f, 0}}),
            "Shares of the labeling:\n"
            "                           of foreground      wished      spread     of image\n"
            "    label 0                     0.000000      -1e+30           1     0.000000\n"
            "    label 1                     1.000000           1       0.125     1.000000\n"
            "    label 2 (background)               -           -           -     0.000000\n");
}

TEST(LabelingShares, ThatMissTheirMeansByMoreThanThreeSpreadsAreNamed) {
  // 0.75 and 0.25 of the foreground
  const std::vector<int> labeling = {0, 0, 0, 1, 2};
  const auto notes = [&](float first, float second, float spread, float other) {
    const Proportions wished = {{first, second, 0}, {spread, other, 0}};
    const std::string table = shares(labeling, wished);
    const std::string all = shares(labeling, wished, true);
    EXPECT_TRUE(all.starts_with(table));
    return all.substr(table.size());
  };
  EXPECT_EQ(notes(0.5f, 0.5f, 0.0625f, 0.1f), "    label 0 is 4.0 spreads from its mean\n");
  EXPECT_EQ(notes(1, 0, -0.05f, 0.01f),
            "    label 0 is 5.0 spreads from its mean\n"
            "    label 1 is 25.0 spreads from its mean\n");
  EXPECT_EQ(notes(0.75f, 0.25f, 0.001f, 0.001f), "");
  EXPECT_EQ(notes(0.5f, 0.5f, 0, 0), "");
  EXPECT_EQ(shares({2, 2}, {{0.5f, 0.5f, 0}, {0.01f, 0.01f, 0}}, true),
            shares({2, 2}, {{0.5f, 0.5f, 0}, {0.01f, 0.01f, 0}}));
}

}  // namespace
}  // namespace namespace_ratseg
