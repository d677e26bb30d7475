#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "reference/problems.h"
#include "reference/reference_solver.h"

namespace namespace_ratseg {
namespace {

using Values = std::vector<double>;

double distance(const Values& a, const Values& b) {
  if (a.size() != b.size()) return INFINITY;
  double most = 0;
  for (std::size_t k = 0; k < a.size(); ++k) most = std::max(most, std::abs(a[k] - b[k]));
  return most;
}

TEST(ReferenceBands, AnySplitGivesWhatOneBandGives) {
  const std::vector<std::vector<ReferenceBand>> splits = {
      {{0, 4}, {4, 7}},
      {{0, 1}, {1, 6}, {6, 7}},
      {{0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6}, {6, 7}},
  };
  for (int kind = 0; kind <= 3; ++kind) {
    ReferenceProblem p = randomReferenceProblem(5, 7, 3, kind);
    ReferenceSolver whole(p);
    whole.run(30);
    for (const auto& split : splits) {
      p.bands = split;
      ReferenceSolver banded(p);
      banded.run(30);
      EXPECT_LT(distance(banded.u(), whole.u()), 1e-12);
      EXPECT_LT(distance(banded.u_bar(), whole.u_bar()), 1e-12);
      EXPECT_LT(distance(banded.px(), whole.px()), 1e-12);
      EXPECT_LT(distance(banded.py(), whole.py()), 1e-12);
      EXPECT_LT(distance(banded.a, whole.a), 1e-12);
      EXPECT_LT(distance(banded.gamma, whole.gamma), 1e-12);
    }
  }
}

// Two labels, one column, bands of 2 and 3 rows; all variables hold their own numbers.
ReferenceSolver numbered(bool copyEngineP, bool copyEngineU) {
  ReferenceProblem p = randomReferenceProblem(1, 5, 2, 0);
  p.bands = {{0, 2, false, copyEngineU}, {2, 5, copyEngineP, false}};
  ReferenceSolver s(p);
  s.bands[0].px = {10, 11, 12, 20, 21, 22};
  s.bands[0].py = {110, 111, 112, 120, 121, 122};
  s.bands[0].u_bar = {30, 31, 32, 40, 41, 42};
  s.bands[1].px = {50, 51, 52, 53, 60, 61, 62, 63};
  s.bands[1].py = {150, 151, 152, 153, 160, 161, 162, 163};
  s.bands[1].u_bar = {70, 71, 72, 73, 80, 81, 82, 83};
  return s;
}

TEST(ReferenceBands, TheLastRowOfTheDualFieldBecomesTheNextBandsHalo) {
  ReferenceSolver s = numbered(false, false);
  s.exchangeDual();
  EXPECT_EQ(s.bands[1].px, (Values{12, 51, 52, 53, 22, 61, 62, 63}));
  EXPECT_EQ(s.bands[1].py, (Values{112, 151, 152, 153, 122, 161, 162, 163}));
  EXPECT_EQ(s.bands[0].px, (Values{10, 11, 12, 20, 21, 22}));
}

TEST(ReferenceBands, TheCopyEngineTakesTheDualFieldsRowBeforeTheLast) {
  ReferenceSolver s = numbered(true, false);
  s.exchangeDual();
  EXPECT_EQ(s.bands[1].px, (Values{11, 51, 52, 53, 21, 61, 62, 63}));
  EXPECT_EQ(s.bands[1].py, (Values{111, 151, 152, 153, 121, 161, 162, 163}));
}

TEST(ReferenceBands, TheFirstRowOfTheLabelingBecomesThePreviousBandsHalo) {
  ReferenceSolver s = numbered(false, false);
  s.exchangeLabeling();
  EXPECT_EQ(s.bands[0].u_bar, (Values{30, 31, 70, 40, 41, 80}));
  EXPECT_EQ(s.bands[1].u_bar, (Values{70, 71, 72, 73, 80, 81, 82, 83}));
}

TEST(ReferenceBands, TheCopyEngineOverwritesTheLastOwnRowOfTheLabeling) {
  ReferenceSolver s = numbered(false, true);
  s.exchangeLabeling();
  EXPECT_EQ(s.bands[0].u_bar, (Values{30, 70, 32, 40, 80, 42}));
}

TEST(ReferenceBands, WithOneRowTheCopyEngineHandsOnTheHaloAbove) {
  ReferenceProblem p = randomReferenceProblem(1, 3, 1, 0);
  p.bands = {{0, 1}, {1, 2, true, true}, {2, 3, true, false}};
  ReferenceSolver s(p);
  s.bands[0].px = {1, 2};
  s.bands[1].px = {3, 4};
  s.bands[2].px = {5, 6};
  s.exchangeDual();
  EXPECT_EQ(s.bands[1].px, (Values{1, 4}));
  EXPECT_EQ(s.bands[2].px, (Values{1, 6}));
}

TEST(ReferenceBands, OverwrittenRowsCountInTheSumsAndChangeTheResult) {
  ReferenceProblem p = randomReferenceProblem(5, 6, 3, 3);
  p.bands = {{0, 3}, {3, 6}};
  ReferenceSolver kernels(p);
  p.bands = {{0, 3, false, true}, {3, 6, true, false}};
  ReferenceSolver engine(p);
  kernels.run(1);
  engine.run(1);
  EXPECT_LT(distance(kernels.u(), engine.u()), 1e-15);
  kernels.sumLabels();
  engine.sumLabels();
  const Values bar = kernels.u_bar();
  for (std::size_t i = 0; i < 3; ++i) {
    double moved = 0;  // row 3 counts twice, row 2 not at all
    for (std::size_t x = 0; x < 5; ++x)
      moved += bar[(i * 6 + 3) * 5 + x] - bar[(i * 6 + 2) * 5 + x];
    EXPECT_NEAR(engine.sum_u[i], kernels.sum_u[i] + moved, 1e-12);
  }
  kernels.run(50);
  engine.run(50);
  EXPECT_GT(distance(kernels.u(), engine.u()), 1e-3);
}

}  // namespace
}  // namespace namespace_ratseg
