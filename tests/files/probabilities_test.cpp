#include "files/probabilities.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "files/file_error.h"

namespace namespace_ratseg {
namespace {

constexpr SampleType kFloats = {SampleKind::floating, 32};

std::string errorOf(const std::vector<float>& values, const SampleType& samples = kFloats) {
  try {
    checkProbabilities(values, 2, 2, samples);
  } catch (const FileError& error) {
    return error.what();
  }
  return "none";
}

TEST(Probabilities, SumToOneWithinAThousandth) {
  EXPECT_EQ(errorOf({0.3f, 1, 0.7009f, 0}), "none");
  EXPECT_EQ(
      errorOf({0.3f, 1, 0.702f, 0}),
      "has probabilities that sum to 1.002 at column 0, row 0 (1 of 2 pixels), not to 1 within "
      "0.001");
}

TEST(Probabilities, OfIntegersMayBeRounded) {
  const SampleType bytes = {SampleKind::unsignedInteger, 8};
  EXPECT_EQ(errorOf({84.f / 255, 1, 170.f / 255, 0}, bytes), "none");
  EXPECT_NE(errorOf({80.f / 255, 1, 170.f / 255, 0}, bytes), "none");
  std::vector<float> values = {51, 255};
  scaleToOne(values, bytes);
  EXPECT_THAT(values, testing::ElementsAre(0.2f, 1));
  scaleToOne(values, kFloats);
  EXPECT_THAT(values, testing::ElementsAre(0.2f, 1));
}

TEST(Probabilities, AreNumbersFrom0To1) {
  EXPECT_EQ(errorOf({0.5f, NAN, 0.5f, 1}),
            "has NaN for label 0 at column 1, row 0 (1 of 4 values)");
  EXPECT_EQ(errorOf({0.5f, 1, 0.5f, -1}),
            "has -1 for label 1 at column 1, row 0 (1 of 4 values); probabilities are from 0 to 1 "
            "(costs: -costs)");
  EXPECT_EQ(errorOf({0.5f, 1, INFINITY, 0}),
            "has inf for label 1 at column 0, row 0 (1 of 4 values); probabilities are from 0 to 1 "
            "(costs: -costs)");
}

TEST(Probabilities, BecomeCostsThatAreCut) {
  std::vector<float> values = {1, 0.5f, 1e-3f, 0, 1.0005f};
  probabilitiesToCosts(values, 5);
  EXPECT_THAT(values, testing::ElementsAre(0, std::log(2.0f), 5, 5, 0));
}

TEST(Costs, ThatLookLikeProbabilitiesAreSeen) {
  EXPECT_TRUE(lookLikeProbabilities({0.25f, 1, 0.75f, 0}, 2));
  EXPECT_FALSE(lookLikeProbabilities({0.25f, 1, 0.5f, 0}, 2));
  EXPECT_FALSE(lookLikeProbabilities({-0.25f, 1, 1.25f, 0}, 2));
  EXPECT_FALSE(lookLikeProbabilities({NAN, 1, 1, 0}, 2));
}

}  // namespace
}  // namespace namespace_ratseg
