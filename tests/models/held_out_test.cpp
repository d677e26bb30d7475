#include "models/held_out.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;

// Samples of two classes; the forest gives the true class that probability, but the other one at
// each n-th sample. Colours cost nothing for the right class where they know it.
HeldOut samples(double sure, std::size_t wrongEach, bool coloursKnow, std::size_t strokes = 50) {
  HeldOut result;
  result.classCount = 2;
  result.strokes = strokes;
  for (std::size_t k = 0; k < 400; ++k) {
    const std::uint32_t own = k % 2;
    const bool wrong = (k / 2) % wrongEach == 0;
    const std::uint32_t said = wrong ? 1 - own : own;
    result.classes.push_back(own);
    for (std::uint32_t c = 0; c < 2; ++c) {
      result.probabilities.push_back(static_cast<float>(c == said ? sure : 1 - sure));
      result.colourCosts.push_back(coloursKnow ? (c == own ? 0.0f : 6.0f) : 3.0f);
    }
  }
  return result;
}

TEST(Calibration, CostsAreNegativeLogarithmsCutAtTheGreatest) {
  const float probabilities[] = {0.7f, 0.3f, 0};
  float costs[3];
  Calibration{1, 10}.costs(probabilities, 3, costs);
  // One part in a hundred is spread evenly.
  EXPECT_NEAR(costs[0], -std::log(0.99 * 0.7 + 0.01 / 3), 1e-5);
  EXPECT_NEAR(costs[2], -std::log(0.01 / 3), 1e-5);
  Calibration{1, 2}.costs(probabilities, 3, costs);
  EXPECT_EQ(costs[2], 2.0f);
}

TEST(Calibration, ATemperatureOfTwoTakesRoots) {
  const float probabilities[] = {0.9f, 0.1f};
  float costs[2];
  Calibration{2, 10}.costs(probabilities, 2, costs);
  const double a = std::sqrt(0.99 * 0.9 + 0.005), b = std::sqrt(0.99 * 0.1 + 0.005);
  EXPECT_NEAR(costs[0], -std::log(a / (a + b)), 1e-5);
}

TEST(Temperature, IsOneWhereTheForestIsAsSureAsRight) {
  EXPECT_EQ(fitTemperature(samples(0.9, 10, true), 10), 1.0f);
  EXPECT_EQ(fitTemperature({}, 10), 1.0f);
}

TEST(Temperature, MakesASureForestAsSureAsRight) {
  // Right in three of four, and sure as if in 99 of 100.
  const HeldOut trial = samples(0.99, 4, true);
  const Calibration calibration{fitTemperature(trial, 10), 10};
  float costs[2];
  const float said[] = {0.99f, 0.01f};
  calibration.costs(said, 2, costs);
  EXPECT_NEAR(std::exp(-costs[0]), 0.75, 0.05);
}

TEST(Temperature, IsNeverBelowOne) {
  EXPECT_EQ(fitTemperature(samples(0.6, 1000, true), 10), 1.0f);
}

TEST(Mix, IsHalfWithoutSamples) { EXPECT_EQ(fitMix({}, {1, 10}), 0.5f); }

TEST(Mix, GoesToTheModelThatIsRight) {
  EXPECT_GT(fitMix(samples(0.95, 1000, false), {1, 10}), 0.53f);
  EXPECT_LT(fitMix(samples(0.95, 2, true), {1, 10}), 0.47f);
}

TEST(Mix, StaysNearHalfWhereFewStrokesSpeak) {
  const float few = fitMix(samples(0.95, 1000, false, 1), {1, 10});
  EXPECT_GE(few, 0.5f);
  EXPECT_LE(few, 0.6f);
}

TEST(Confusion, CountsPartsOfEachClass) {
  HeldOut trial = samples(0.9, 1000000, false);
  for (std::size_t k = 0; k < trial.size(); ++k) {
    if (trial.classes[k] == 1 && k % 8 == 1)
      std::swap(trial.probabilities[2 * k], trial.probabilities[2 * k + 1]);
  }
  const auto parts = confusion(trial, {1, 10}, 0.5f);
  EXPECT_NEAR(parts[0], 0.995, 1e-9);  // the first sample is wrong
  EXPECT_NEAR(parts[2], 0.255, 0.011);
  EXPECT_NEAR(parts[2] + parts[3], 1, 1e-9);
}

TEST(CalibrationTest, CostsStayInTheirRangeAtEveryTemperature) {
  for (const float temperature : {1e-3f, 5.86e-3f, 1.0f, 1e3f}) {
    const Calibration calibration{temperature, 10};
    const float all[][2] = {{0, 0}, {1, 0}, {0.25f, 0.1f}, {1, 1}};
    for (const auto& probabilities : all) {
      float costs[2];
      calibration.costs(probabilities, 2, costs);
      for (const float cost : costs) EXPECT_TRUE(cost >= 0 && cost <= 10) << cost;
      if (probabilities[0] != probabilities[1]) {
        EXPECT_LT(costs[0], costs[1]);
      } else {
        EXPECT_NEAR(costs[0], std::log(2.0), 1e-3);
        EXPECT_EQ(costs[0], costs[1]);
      }
    }
  }
}

}  // namespace
}  // namespace namespace_ratseg
