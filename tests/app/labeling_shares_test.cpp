#include "app/labeling_shares.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace namespace_ratseg {
namespace {

std::string shares(const std::vector<int>& labeling, const Proportions& wished) {
  std::ostringstream out;
  printShares(out, labeling, wished);
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

}  // namespace
}  // namespace namespace_ratseg
