// The per-label kernels, launched on the device under test, against the formulas in double.

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <vector>

#include "algorithms/rat_segments/alg/kernels/prior_kernels.h"
#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "device/runtime.h"
#include "support/device_values.h"
#include "support/machine.h"

namespace namespace_ratseg {
namespace {

class PriorKernels : public DeviceTest {
 protected:
  void TearDown() override {
    if (IsSkipped()) return;
    EXPECT_EQ(cudaGetLastError(), cudaSuccess);
  }

  static LaunchShape labels(std::size_t n) {
    return {{1, 1, 1}, {static_cast<unsigned>(n), 1, 1}, 0};
  }

  static void expectNear(const std::vector<float>& got, const std::vector<double>& expected,
                         double tolerance = 1e-6) {
    ASSERT_EQ(got.size(), expected.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
      EXPECT_NEAR(got[i], expected[i], tolerance * (1.0 + std::abs(expected[i]))) << "label " << i;
    }
  }
};

TEST_F(PriorKernels, SumKernelAddsIntoItsFirstArgument) {
  const DeviceFloats total({1, 2, 3});
  const DeviceFloats part({10, 20, 30});
  ratSegKernels().computeSumU_sumKernel(labels(3), total, part, 3);
  EXPECT_EQ(total.values(), (std::vector<float>{11, 22, 33}));
  EXPECT_EQ(part.values(), (std::vector<float>{10, 20, 30}));
}

TEST_F(PriorKernels, CopyGammaFillsItsFirstArgument) {
  const DeviceFloats to({1, 2, 3});
  const DeviceFloats from({10, 20, 30});
  ratSegKernels().ratseg_copyGamma(labels(3), to, from, 3);
  EXPECT_EQ(to.values(), (std::vector<float>{10, 20, 30}));
  EXPECT_EQ(from.values(), (std::vector<float>{10, 20, 30}));
}

TEST_F(PriorKernels, OnlyTheFirstNLabelsAreTouched) {
  const DeviceFloats to({1, 2, 3});
  const DeviceFloats from({10, 20, 30});
  ratSegKernels().ratseg_copyGamma(labels(32), to, from, 2);
  EXPECT_EQ(to.values(), (std::vector<float>{10, 20, 3}));
}

TEST_F(PriorKernels, LabelsWithoutAThreadStayAsTheyAre) {
  const DeviceFloats to({1, 2, 3});
  const DeviceFloats from({10, 20, 30});
  ratSegKernels().ratseg_copyGamma(labels(2), to, from, 3);
  EXPECT_EQ(to.values(), (std::vector<float>{10, 20, 3}));
}

// Of a grid only block 0 works, and a thread's label is its linear index in the block.
TEST_F(PriorKernels, EachLabelIsTheWorkOfOneThreadOfTheFirstBlock) {
  const DeviceFloats total({1, 2, 3, 4, 5, 6, 7, 8});
  const DeviceFloats part({10, 20, 30, 40, 50, 60, 70, 80});
  ratSegKernels().computeSumU_sumKernel({{2, 3, 2}, {2, 2, 2}, 0}, total, part, 7);
  EXPECT_EQ(total.values(), (std::vector<float>{11, 22, 33, 44, 55, 66, 77, 8}));
}

TEST_F(PriorKernels, GammaClimbsTheDifferenceOfShareAndLabeling) {
  const DeviceFloats gamma({0.5f, -1.0f});
  const DeviceFloats a({0.25f, 0.75f});
  const DeviceFloats sum_u({40.0f, 60.0f});
  ratSegKernels().ratseg_dual_gamma(labels(2), gamma, a, sum_u, 48.0f, 80, 0.5f, 2);
  // dt/2 (a - sum/80), whatever constGamma is
  expectNear(gamma.values(), {0.5 + 0.25 * (0.25 - 0.5), -1.0 + 0.25 * (0.75 - 0.75)});
}

struct Point {
  float alpha, beta;
};

// The dual step of the interval prior for one foreground label, behind another one and the
// background; the background share is ab.
Point intervalStep(Point from, float a, float ab, float lo, float hi, float dt) {
  const DeviceFloats alpha({0.5f, 5.0f, from.alpha});
  const DeviceFloats beta({0.25f, 6.0f, from.beta});
  const DeviceFloats shares({0.125f, ab, a});
  const DeviceFloats mins({0.0625f, -1.0f, lo});
  const DeviceFloats maxs({0.9f, 9.0f, hi});
  ratSegKernels().ratseg_dual_alphabeta__interval({{1, 1, 1}, {3, 1, 1}, 0}, alpha, beta, shares,
                                                  123.0f, mins, maxs, 1, dt, 3);
  EXPECT_EQ(alpha.values()[1], 5.0f) << "the background's entries are never written";
  EXPECT_EQ(beta.values()[1], 6.0f);
  return {alpha.values()[2], beta.values()[2]};
}

// With a = 0 and ab = 1 the step itself is zero: only the projection remains.
Point intervalProjection(float x, float y, float lo, float hi) {
  return intervalStep({x, y}, 0.0f, 1.0f, lo, hi, 1.0f);
}

TEST_F(PriorKernels, IntervalStepMovesByTheShares) {
  const Point p = intervalStep({0.125f, 8.0f}, 0.5f, 0.25f, 0.0f, 1.0f, 0.5f);
  EXPECT_FLOAT_EQ(p.alpha, 0.125f + 0.5f * 0.5f);
  EXPECT_FLOAT_EQ(p.beta, 8.0f + 0.5f * (0.25f - 1.0f));
}

TEST_F(PriorKernels, IntervalKeepsPointsOfTheCone) {
  const Point p = intervalProjection(1.0f, 0.5f, 0.25f, 0.5f);
  EXPECT_EQ(p.alpha, 1.0f);
  EXPECT_EQ(p.beta, 0.5f);
}

TEST_F(PriorKernels, IntervalProjectsOntoTheUpperRay) {
  // hi = 0.5, (2, 0): t = 2, x = 2/1.25
  const Point p = intervalProjection(2.0f, 0.0f, 0.25f, 0.5f);
  EXPECT_FLOAT_EQ(p.alpha, 1.6f);
  EXPECT_FLOAT_EQ(p.beta, 0.8f);
}

TEST_F(PriorKernels, IntervalProjectsOntoTheLowerRay) {
  // lo = 0.25, (-4, -2): t = -4.5, x = -4.5/1.0625
  const Point p = intervalProjection(-4.0f, -2.0f, 0.25f, 0.5f);
  EXPECT_FLOAT_EQ(p.alpha, -4.5f / 1.0625f);
  EXPECT_FLOAT_EQ(p.beta, 0.25f * (-4.5f / 1.0625f));
}

TEST_F(PriorKernels, IntervalSendsTheRestToTheApex) {
  const Point apex = intervalProjection(1.5f, -4.0f, 0.25f, 0.5f);
  EXPECT_EQ(apex.alpha, 0.0f);
  EXPECT_EQ(apex.beta, 0.0f);
}

TEST_F(PriorKernels, IntervalOfZeroWidthAtZeroClampsBetaOnly) {
  const Point kept = intervalProjection(-3.0f, 2.0f, 0.0f, 0.0f);
  EXPECT_EQ(kept.alpha, -3.0f);
  EXPECT_EQ(kept.beta, 2.0f);
  for (const float x : {3.0f, -3.0f}) {
    const Point p = intervalProjection(x, -2.0f, 0.0f, 0.0f);
    EXPECT_EQ(p.alpha, x);
    EXPECT_EQ(p.beta, 0.0f);
  }
}

TEST_F(PriorKernels, IntervalWithNegativeBoundsUsesTheOtherSide) {
  // hi < 0: the upper ray (1, hi) is taken for hi y + x <= 0.
  const Point p = intervalProjection(-4.0f, 0.0f, -1.0f, -0.5f);
  EXPECT_FLOAT_EQ(p.alpha, -4.0f / 1.25f);
  EXPECT_FLOAT_EQ(p.beta, -0.5f * (-4.0f / 1.25f));
}

TEST_F(PriorKernels, IntervalWithNegativeBoundsHasALowerRayOnTheOtherSide) {
  // hi y + x = 5.5 > 0 is not for a negative hi; lo y + x = 7
  const Point p = intervalProjection(4.0f, -3.0f, -1.0f, -0.5f);
  EXPECT_FLOAT_EQ(p.alpha, 3.5f);
  EXPECT_FLOAT_EQ(p.beta, -3.5f);
}

TEST_F(PriorKernels, IntervalTriesTheUpperRayFirst) {
  // With lo = -1 < 0 < hi = 0.5 both rays would take (2, 0).
  const Point p = intervalProjection(2.0f, 0.0f, -1.0f, 0.5f);
  EXPECT_FLOAT_EQ(p.alpha, 1.6f);
  EXPECT_FLOAT_EQ(p.beta, 0.8f);
}

TEST_F(PriorKernels, LowerBoundClimbsWithoutProjection) {
  const DeviceFloats alpha({-3.0f, 7.0f, 2.0f});
  const DeviceFloats a({0.5f, 0.2f, 0.1f});
  const DeviceFloats ratios({0.75f, 0.0f, 0.25f});
  const DeviceFloats sigmas({1, 1, 1});
  ratSegKernels().ratseg_dual_alphabeta__lowerBound(labels(3), alpha, a, 55.0f, 2.0f, ratios,
                                                    sigmas, 1, 0.5f, 3);
  expectNear(alpha.values(),
             {-3.0 + (0.5 - 0.75 * 0.8) * 0.5 / 1.75, 7.0, 2.0 + (0.1 - 0.25 * 0.8) * 0.5 / 1.25});
}

TEST_F(PriorKernels, LowerBoundWithoutMuDoesNothing) {
  for (const float mu : {0.0f, -1.0f}) {
    const DeviceFloats alpha({-3.0f, 2.0f});
    const DeviceFloats a({0.5f, 0.1f});
    const DeviceFloats ratios({0.75f, 0.0f});
    ratSegKernels().ratseg_dual_alphabeta__lowerBound(labels(2), alpha, a, 1.0f, mu, ratios, ratios,
                                                      1, 1.0f, 2);
    EXPECT_EQ(alpha.values(), (std::vector<float>{-3.0f, 2.0f}));
  }
}

// The dual step of the upper-bound prior for one foreground label, behind another one and the
// background.
Point upperStep(Point from, float a, float ab, float mu, float eps, float ratio, float sigma,
                float constAlpha, float dt) {
  const DeviceFloats alpha({0.5f, 5.0f, from.alpha});
  const DeviceFloats beta({0.25f, 6.0f, from.beta});
  const DeviceFloats shares({0.125f, ab, a});
  const DeviceFloats ratios({0.9f, -2.0f, ratio});
  const DeviceFloats sigmas({0.3f, -3.0f, sigma});
  ratSegKernels().ratseg_dual_alphabeta__upperBound({{1, 1, 1}, {3, 1, 1}, 0}, alpha, beta, shares,
                                                    constAlpha, mu, eps, ratios, sigmas, 1, dt, 3);
  EXPECT_EQ(alpha.values()[1], 5.0f) << "the background's entries are never written";
  EXPECT_EQ(beta.values()[1], 6.0f);
  return {alpha.values()[2], beta.values()[2]};
}

TEST_F(PriorKernels, UpperBoundStepIsPreconditioned) {
  // A point far inside the parabola stays where the step takes it: s = dt / (1 + r).
  const Point p = upperStep({0.0f, 9.0f}, 0.5f, 0.25f, 1.0f, 1.0f, 0.6f, 1.0f, 1.0f, 0.5f);
  const double s = 0.5 / 1.6;
  EXPECT_NEAR(p.alpha, s * (0.5 - 0.6 * 0.75), 1e-7);
  EXPECT_NEAR(p.beta, 9.0 - s * 0.75, 1e-6);
}

TEST_F(PriorKernels, UpperBoundStepIsAtMostDt) {
  // A negative ratio would give a longer step.
  const Point p = upperStep({0.0f, 9.0f}, 0.5f, 0.25f, 1.0f, 1.0f, -0.5f, 1.0f, 1.0f, 0.5f);
  EXPECT_NEAR(p.beta, 9.0 - 0.5 * 0.75, 1e-6);
}

TEST_F(PriorKernels, UpperBoundProjectsOntoTheParabola) {
  // c = sigma^2 constAlpha eps / mu^2 = 0.25 * 8 * 2 / 16 = 0.25, d = 1: y >= x^2 / 4
  const Point p = upperStep({3.0f, -1.0f}, 0.0f, 1.0f, 4.0f, 2.0f, 0.75f, 0.5f, 8.0f, 1.0f);
  EXPECT_NEAR(p.beta, p.alpha * p.alpha / 4.0, 1e-6);
  // Nearest: the gradient of the distance is normal to the curve, t^3/8 + t (1 + 0.5) - 3 = 0.
  const double t = p.alpha;
  EXPECT_NEAR(t * t * t / 8.0 + t * (1.0 - -1.0 / 2.0) - 3.0, 0.0, 1e-5);
}

TEST_F(PriorKernels, UpperBoundTreatsNegativeAndGreatestMuAsStrict) {
  for (const float mu : {-1.0f, FLT_MAX}) {
    const Point low = upperStep({3.0f, -1.0f}, 0.0f, 1.0f, mu, 2.0f, 0.5f, 0.5f, 8.0f, 1.0f);
    EXPECT_EQ(low.alpha, 3.0f);
    EXPECT_EQ(low.beta, 0.0f);
    const Point high = upperStep({3.0f, 0.5f}, 0.0f, 1.0f, mu, 2.0f, 0.5f, 0.5f, 8.0f, 1.0f);
    EXPECT_EQ(high.alpha, 3.0f);
    EXPECT_EQ(high.beta, 0.5f);
  }
}

TEST_F(PriorKernels, UpperBoundWithoutMuHoldsAlphaAtZero) {
  for (const float eps : {2.0f, 0.0f}) {  // even where eps / mu is no number
    const Point p = upperStep({3.0f, 2.0f}, 0.0f, 1.0f, 0.0f, eps, 0.5f, 0.5f, 8.0f, 1.0f);
    EXPECT_EQ(p.alpha, 0.0f);
    EXPECT_EQ(p.beta, 2.0f);
  }
}

TEST_F(PriorKernels, UpperBoundIsStrictWithoutSpread) {
  const Point p = upperStep({3.0f, -1.0f}, 0.0f, 1.0f, 4.0f, 2.0f, 0.75f, 0.0f, 8.0f, 1.0f);
  EXPECT_EQ(p.alpha, 3.0f);
  EXPECT_EQ(p.beta, 0.0f);
}

TEST_F(PriorKernels, PrimalStepWithoutPriorFollowsGamma) {
  const DeviceFloats a({0.5f, 0.25f});
  const DeviceFloats a_bar({0.0f, 0.0f});
  const DeviceFloats gamma({0.5f, -1.0f});
  ratSegKernels().ratseg_prim_a__gamma(labels(2), a, a_bar, gamma, 64.0f, 1.0f, 0.5f, 2);
  expectNear(a.values(), {0.5 - 0.5 * 0.5, 0.25 + 0.5});
  expectNear(a_bar.values(), {0.5 - 2 * 0.25, 0.25 + 2 * 0.5});
}

TEST_F(PriorKernels, OverRelaxationFollowsItsFactor) {
  const DeviceFloats a({0.5f});
  const DeviceFloats a_bar({0.0f});
  const DeviceFloats gamma({0.5f});
  ratSegKernels().ratseg_prim_a__gamma(labels(1), a, a_bar, gamma, 64.0f, 0.5f, 1.0f, 1);
  expectNear(a.values(), {0.0});
  expectNear(a_bar.values(), {-0.25});
}

TEST_F(PriorKernels, PrimalStepsDoNotKeepTheSharesWithinZeroAndOne) {
  const DeviceFloats a_bar({0, 0, 0});
  const DeviceFloats gamma({9, -9, 9});
  const DeviceFloats zero({0, 0, 0});
  const auto expectOutside = [](const DeviceFloats& shares) {
    EXPECT_LT(shares.values()[0], -1.0f);
    EXPECT_GT(shares.values()[1], 2.0f);
    EXPECT_LT(shares.values()[2], -1.0f);
  };
  const std::vector<float> start(3, 0.5f);
  const DeviceFloats a(start), b(start), c(start), d(start);
  ratSegKernels().ratseg_prim_a__gamma(labels(3), a, a_bar, gamma, 60, 1, 1, 3);
  expectOutside(a);
  ratSegKernels().ratseg_prim_a__interval(labels(3), b, a_bar, gamma, zero, zero, 60, 1, 2, 1, 1,
                                          3);
  expectOutside(b);
  ratSegKernels().ratseg_prim_a__lowerBound(labels(3), c, a_bar, gamma, zero, 60, 1, 1, zero, 2, 1,
                                            1, 3);
  expectOutside(c);
  ratSegKernels().ratseg_prim_a__upperBound(labels(3), d, a_bar, gamma, zero, zero, 60, 1, 1, 1,
                                            zero, 2, 1, 1, 3);
  expectOutside(d);
}

// What is left in a_bar when shares a become fresh ones.
std::vector<double> overRelaxed(const std::vector<double>& a, const std::vector<double>& fresh,
                                double theta_bar) {
  std::vector<double> a_bar(a.size());
  for (std::size_t i = 0; i < a.size(); ++i) a_bar[i] = fresh[i] + theta_bar * (fresh[i] - a[i]);
  return a_bar;
}

// Of three labels the second is the background.
TEST_F(PriorKernels, PrimalStepOfTheIntervalPrior) {
  const double cg = 60, ca = 20, dt = 0.5;
  const std::vector<double> a = {0.3, 0.4, 0.2}, g = {0.1, 0.3, -0.2}, al = {0.7, 9, -0.6},
                            be = {0.4, 9, 0.5};
  const DeviceFloats da({0.3f, 0.4f, 0.2f});
  const DeviceFloats dab({0, 0, 0});
  const DeviceFloats dg({0.1f, 0.3f, -0.2f});
  const DeviceFloats dal({0.7f, 9, -0.6f});
  const DeviceFloats dbe({0.4f, 9, 0.5f});
  ratSegKernels().ratseg_prim_a__interval(labels(3), da, dab, dg, dal, dbe, 60, 20, 1, 0.25f, 0.5f,
                                          3);
  std::vector<double> fresh(3);
  for (const int i : {0, 2}) fresh[i] = a[i] - (g[i] * cg + al[i] * ca) * dt / (ca + cg);
  fresh[1] = a[1] - (g[1] * cg + (be[0] + be[2]) * ca) * dt / (cg + 2 * ca);
  expectNear(da.values(), fresh);
  expectNear(dab.values(), overRelaxed(a, fresh, 0.25));
}

TEST_F(PriorKernels, PrimalStepOfTheLowerBoundPrior) {
  const double cg = 60, ca = 2, mu = 30, dt = 0.5;
  const std::vector<double> a = {0.3, 0.4, 0.2}, g = {0.1, 0.3, -0.2}, al = {0.7, 9, -0.6},
                            r = {0.25, 9, 0.75};
  const DeviceFloats da({0.3f, 0.4f, 0.2f});
  const DeviceFloats dab({0, 0, 0});
  const DeviceFloats dg({0.1f, 0.3f, -0.2f});
  const DeviceFloats dal({0.7f, 9, -0.6f});
  const DeviceFloats dr({0.25f, 9, 0.75f});
  ratSegKernels().ratseg_prim_a__lowerBound(labels(3), da, dab, dg, dal, 60, 2, 30, dr, 1, 0.25f,
                                            0.5f, 3);
  std::vector<double> fresh(3);
  for (const int i : {0, 2}) {
    fresh[i] = a[i] - (g[i] * cg + al[i] * mu * ca) * dt / (ca * mu + cg);
  }
  fresh[1] = a[1] - (g[1] * cg + (al[0] * r[0] + al[2] * r[2]) * ca * mu) * dt /
                        (cg + (r[0] + r[2]) * ca * mu);
  expectNear(da.values(), fresh);
  expectNear(dab.values(), overRelaxed(a, fresh, 0.25));
}

TEST_F(PriorKernels, PrimalStepOfTheUpperBoundPrior) {
  const double cg = 60, ca = 20, dt = 0.5, eps = 10;
  const std::vector<double> a = {0.3, 0.4, 0.2}, g = {0.1, 0.3, -0.2}, al = {0.7, 9, -0.6},
                            be = {0.4, 9, 0.5}, r = {0.25, 9, 0.75};
  const DeviceFloats da({0.3f, 0.4f, 0.2f});
  const DeviceFloats dab({0, 0, 0});
  const DeviceFloats dg({0.1f, 0.3f, -0.2f});
  const DeviceFloats dal({0.7f, 9, -0.6f});
  const DeviceFloats dbe({0.4f, 9, 0.5f});
  const DeviceFloats dr({0.25f, 9, 0.75f});
  ratSegKernels().ratseg_prim_a__upperBound(labels(3), da, dab, dg, dal, dbe, 60, 20, 500, 10, dr,
                                            1, 0.25f, 0.5f, 3);
  std::vector<double> fresh(3);
  for (const int i : {0, 2}) fresh[i] = a[i] - (g[i] * cg + al[i] * ca) * dt / (ca + cg);
  const double tau = dt / (cg + ca * (r[0] + 1) + ca * (r[2] + 1));
  const double stepped =
      a[1] - (g[1] * cg + ca * (al[0] * r[0] + be[0] + al[2] * r[2] + be[2])) * tau;
  // z^2 (z - (1 - stepped)) = eps tau (n-1) by bisection
  const double E = eps * tau * 2;
  double low = std::max(0.0, 1 - stepped), high = low + 10;
  for (int k = 0; k < 200; ++k) {
    const double z = (low + high) / 2;
    (z * z * (z - (1 - stepped)) < E ? low : high) = z;
  }
  fresh[1] = 1 - low;
  expectNear(da.values(), fresh, 2e-6);
  expectNear(dab.values(), overRelaxed(a, fresh, 0.25), 4e-6);
}

// The root z of z^2 (z - c) = E, c = 1 - at, over every branch of the closed form.
TEST(BarrierProx, SolvesItsCubic) {
  for (const float at : {-1000.0f, -10.0f, -1.0f, 0.0f, 0.5f, 0.999f, 1.0f, 1.001f, 2.0f, 10.0f}) {
    for (const float E : {1e-7f, 1e-4f, 0.01f, 1.0f, 100.0f}) {
      const double c = 1.0 - static_cast<double>(at);
      double low = std::max(0.0, c);
      double high = low + 10.0;
      for (int k = 0; k < 200; ++k) {
        const double z = (low + high) / 2;
        (z * z * (z - c) < static_cast<double>(E) ? low : high) = z;
      }
      const double z = 1.0 - static_cast<double>(tile::barrierProx(at, E));
      EXPECT_NEAR(z, low, 2e-7 * (1.0 + std::abs(c))) << "at " << at << " E " << E;
    }
  }
}

TEST(BarrierProx, WithoutBarrierIsTheStepKeptAtMostOne) {
  EXPECT_FLOAT_EQ(tile::barrierProx(0.25f, 0.0f), 0.25f);
  EXPECT_FLOAT_EQ(tile::barrierProx(1.0f, 0.0f), 1.0f);
  EXPECT_FLOAT_EQ(tile::barrierProx(3.0f, 0.0f), 1.0f);
}

}  // namespace
}  // namespace namespace_ratseg
