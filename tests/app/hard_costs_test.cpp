#include "app/hard_costs.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <limits>
#include <string>
#include <vector>

namespace namespace_ratseg {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Of three pixels and as many labels as there are planes.
std::string warnings(const std::vector<float>& dataterm, const std::vector<int>& labeling) {
  const HardCosts costs(dataterm.data(), 3, dataterm.size() / 3);
  testing::internal::CaptureStderr();
  costs.warnOfLabeling(labeling);
  return testing::internal::GetCapturedStderr();
}

const std::string kForbidden = " a label that the data term forbids there\n";
const std::string kNotForced = " another label than the one that the data term forces there\n";

TEST(HardCosts, OfOrdinaryCostsSayNothing) {
  EXPECT_EQ(warnings({0, 1, 1e30f, 0, 3e38f, -3e38f}, {0, 1, 1}), "");
}

TEST(HardCosts, CountPixelsWhoseLabelIsForbidden) {
  const std::vector<float> dataterm = {FLT_MAX, kInfinity, 0, 0, 0, FLT_MAX};
  EXPECT_EQ(warnings(dataterm, {0, 0, 0}), "ratseg: warning: 2 of 3 pixels have" + kForbidden);
  EXPECT_EQ(warnings(dataterm, {1, 1, 1}), "ratseg: warning: 1 of 3 pixels has" + kForbidden);
  EXPECT_EQ(warnings(dataterm, {1, 1, 0}), "");
}

TEST(HardCosts, CountPixelsThatHaveAnotherLabelThanTheForcedOnes) {
  const std::vector<float> dataterm = {-FLT_MAX, 0, 0, -kInfinity, -FLT_MAX, 0, 0, 0, 0};
  EXPECT_EQ(warnings(dataterm, {0, 1, 2}), "");
  EXPECT_EQ(warnings(dataterm, {1, 1, 0}), "");
  EXPECT_EQ(warnings(dataterm, {2, 1, 0}), "ratseg: warning: 1 of 3 pixels has" + kNotForced);
  EXPECT_EQ(warnings(dataterm, {2, 0, 0}), "ratseg: warning: 2 of 3 pixels have" + kNotForced);
}

TEST(HardCosts, OfBothKindsAreCountedApart) {
  EXPECT_EQ(warnings({-FLT_MAX, 0, 0, FLT_MAX, 0, 0}, {1, 0, 0}),
            "ratseg: warning: 1 of 3 pixels has" + kForbidden +
                "ratseg: warning: 1 of 3 pixels has" + kNotForced);
}

}  // namespace
}  // namespace namespace_ratseg
