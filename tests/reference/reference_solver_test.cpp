#include "reference/reference_solver.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <vector>

#include "reference/problems.h"

namespace namespace_ratseg {
namespace {

using Values = std::vector<double>;

// A problem without neighbours or prior: one pixel per entry of a column, lambda 0.
ReferenceProblem pixels(std::size_t count, std::size_t n, Values rho) {
  ReferenceProblem p = randomReferenceProblem(count, 1, n, 0);
  p.weight.clear();
  p.rho = std::move(rho);
  p.lambda = 0;
  return p;
}

TEST(ReferenceStart, PixelwiseBestLabelInUAndZeroElsewhere) {
  // Two pixels, three labels; pixel 1 has a tie, which the lower label wins.
  const ReferenceSolver s(pixels(2, 3, {0.5, 2, 0.1, 1, 0.3, 1}));
  EXPECT_EQ(s.u(), (Values{0, 0, 1, 1, 0, 0}));
  EXPECT_EQ(s.u_bar(), Values(6, 0.0));
  EXPECT_EQ(s.px(), Values(6, 0.0));
  EXPECT_EQ(s.py(), Values(6, 0.0));
  for (const Values* v : {&s.a, &s.a_bar, &s.gamma, &s.sum_u, &s.alpha, &s.beta}) {
    EXPECT_EQ(*v, Values(3, 0.0));
  }
}

TEST(ReferenceStart, ForcedLabelsWinAndWhereAllAreForbiddenLabelZeroDoes) {
  const ReferenceSolver s(pixels(2, 2, {FLT_MAX, -5, FLT_MAX, -FLT_MAX}));
  EXPECT_EQ(s.u(), (Values{1, 0, 0, 1}));
}

TEST(ReferenceStart, IsZeroWhenAskedTo) {
  ReferenceProblem p = pixels(2, 2, {1, 2, 3, 4});
  p.initLocalSolution = false;
  EXPECT_EQ(ReferenceSolver(p).u(), Values(4, 0.0));
}

TEST(ReferenceStart, MissingBoundsAreThreeSigmasAroundTheRatioClampedToZeroAndOne) {
  ReferenceProblem p = randomReferenceProblem(2, 2, 4, 1);
  p.ratios = {0.5, 0.1, 0.9, 0};
  p.sigmas = {0.1, 0.1, 0.1, 0};
  const ReferenceSolver s(p);
  const Values mins = {0.2, 0, 0.6, 0}, maxs = {0.8, 0.4, 1, 0};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_NEAR(s.problem().mins[i], mins[i], 1e-15);
    EXPECT_NEAR(s.problem().maxs[i], maxs[i], 1e-15);
  }
}

TEST(ReferenceStart, ASpreadOfZeroMakesBothMissingBoundsTheRatio) {
  ReferenceProblem p = randomReferenceProblem(2, 2, 3, 1);
  p.ratios = {0.7, 1.4, 0};
  p.sigmas = {0, 0, 0};
  const ReferenceSolver s(p);
  EXPECT_EQ(s.problem().mins, (Values{0.7, 1, 0}));
  EXPECT_EQ(s.problem().maxs, (Values{0.7, 1, 0}));
}

TEST(ReferenceStart, RefusesProblemsThatDoNotFitTogether) {
  const auto refused = [](auto change) {
    ReferenceProblem p = randomReferenceProblem(3, 4, 2, 1);
    change(p);
    EXPECT_THROW(ReferenceSolver{p}, std::invalid_argument);
  };
  refused([](ReferenceProblem& p) { p.w = 0; });
  refused([](ReferenceProblem& p) { p.rho.pop_back(); });
  refused([](ReferenceProblem& p) { p.weight.pop_back(); });
  refused([](ReferenceProblem& p) { p.ratios.pop_back(); });
  refused([](ReferenceProblem& p) { p.mins.assign(3, 0); });
  refused([](ReferenceProblem& p) { p.maxs = {-1, -1}; });
  refused([](ReferenceProblem& p) { p.ind_bgr = 2; });
  refused([](ReferenceProblem& p) { p.lambda = -1; });
  refused([](ReferenceProblem& p) { p.weight[0] = -1; });
  refused([](ReferenceProblem& p) { p.dt_multiplier = 0; });
  refused([](ReferenceProblem& p) { p.ratios[0] = -0.1; });
  refused([](ReferenceProblem& p) { p.kind_prior = 3, p.eps = -1; });
  refused([](ReferenceProblem& p) { p.bands = {{0, 2}}; });
  refused([](ReferenceProblem& p) { p.bands = {{0, 2}, {3, 4}}; });
  refused([](ReferenceProblem& p) { p.bands = {{0, 2}, {2, 2}, {2, 4}}; });
}

TEST(ReferenceRun, NoIterationsChangeNothing) {
  ReferenceSolver s(randomReferenceProblem(3, 3, 3, 3));
  s.run(0);
  EXPECT_EQ(s.u_bar(), Values(27, 0.0));
  EXPECT_EQ(s.a, Values(3, 0.0));
}

TEST(ReferenceRun, ContinuesWhereItStopped) {
  ReferenceSolver once(randomReferenceProblem(4, 3, 3, 3)), twice = once;
  once.run(7);
  twice.run(3);
  twice.run(4);
  EXPECT_EQ(once.u(), twice.u());
  EXPECT_EQ(once.alpha, twice.alpha);
}

TEST(ReferenceDualLength, LastColumnAndLastRowHaveNoDifference) {
  ReferenceProblem p = randomReferenceProblem(2, 2, 1, 0);
  p.weight.clear();
  p.lambda = 100;
  ReferenceSolver s(p);
  s.bands[0].u_bar = {1, 4, 16, 64, 1e9, 1e9};  // the halo row is never read
  s.dualLength();
  EXPECT_EQ(s.px(), (Values{1.5, 0, 24, 0}));
  EXPECT_EQ(s.py(), (Values{7.5, 30, 0, 0}));
}

TEST(ReferenceDualLength, StepIsHalfTheReciprocalMultiplierAndTheRadiusHalfOfLambdaTimesWeight) {
  ReferenceProblem p = randomReferenceProblem(2, 1, 1, 0);
  p.dt_multiplier = 4;
  p.lambda = 3;
  p.weight = {0.5, 1};
  ReferenceSolver s(p);
  s.bands[0].u_bar = {0, 2, 0, 0};
  s.dualLength();
  EXPECT_DOUBLE_EQ(s.px()[0], 0.25);  // 1/4 / 2 * 2
  for (int i = 0; i < 9; ++i) s.dualLength();
  EXPECT_DOUBLE_EQ(s.px()[0], 0.75);  // 0.5 * 3 / 2
}

TEST(ReferenceDualLength, LambdaZeroSetsTheFieldToZero) {
  ReferenceProblem p = randomReferenceProblem(3, 3, 2, 0);
  p.lambda = 0;
  p.weight.assign(9, FLT_MAX);
  ReferenceSolver s(p);
  s.bands[0].px.assign(s.bands[0].px.size(), 5);
  s.dualLength();
  EXPECT_EQ(s.px(), Values(18, 0.0));
  EXPECT_EQ(s.py(), Values(18, 0.0));
}

TEST(ReferenceDualLength, LambdaOfFltMaxLeavesTheFieldUnbounded) {
  ReferenceProblem p = randomReferenceProblem(2, 1, 1, 0);
  p.weight.clear();
  p.lambda = FLT_MAX;
  ReferenceSolver s(p);
  s.bands[0].u_bar = {0, 1e6, 0, 0};
  for (int i = 0; i < 10; ++i) s.dualLength();
  EXPECT_EQ(s.px()[0], 5e6);
}

TEST(ReferenceDualLength, AWeightOfFltMaxUnboundsItsPixelOnlyHoweverSmallLambda) {
  ReferenceProblem p = randomReferenceProblem(3, 1, 1, 0);
  p.weight = {FLT_MAX, 1, 1};
  p.lambda = 1e-37;
  ReferenceSolver s(p);
  s.bands[0].u_bar = {0, 100, 0, 0, 0, 0};
  s.dualLength();
  EXPECT_EQ(s.px()[0], 50);
  EXPECT_DOUBLE_EQ(s.px()[1], -0.5e-37);
}

TEST(ReferenceDualLength, NoWeightCountsAsOne) {
  ReferenceProblem absent = randomReferenceProblem(5, 4, 3, 3), ones = absent;
  absent.weight.clear();
  ones.weight.assign(20, 1);
  ReferenceSolver a(absent), b(ones);
  a.run(20);
  b.run(20);
  EXPECT_EQ(a.u(), b.u());
}

TEST(ReferenceDivergence, IsTheNegativeAdjointOfTheForwardDifferences) {
  for (const auto& [w, h] : {std::pair<std::size_t, std::size_t>{5, 4}, {1, 6}, {6, 1}, {1, 1}}) {
    ReferenceProblem p = randomReferenceProblem(w, h, 2, 0);
    ReferenceSolver s(p);
    ReferenceBandState& b = s.bands[0];
    b.u_bar = randomValues(b.u_bar.size(), -1, 1, 7);
    b.px = randomValues(b.px.size(), -1, 1, 8);
    b.py = randomValues(b.py.size(), -1, 1, 9);
    const Values u = s.u_bar(), px = s.px(), py = s.py();
    double gradient = 0, divergence = 0;
    for (std::size_t i = 0; i < 2; ++i) {
      for (std::size_t y = 0; y < h; ++y) {
        for (std::size_t x = 0; x < w; ++x) {
          const std::size_t k = (i * h + y) * w + x;
          gradient += s.forwardX(b, i, x, y) * px[k] + s.forwardY(b, i, x, y) * py[k];
          divergence += s.divergence(b, i, x, y) * u[k];
        }
      }
    }
    EXPECT_NEAR(gradient, -divergence, 1e-13);
    EXPECT_EQ(gradient == 0, w * h == 1);
  }
}

TEST(ReferenceDivergence, BordersReadNeitherTheirOwnOuterComponentNorTheHalo) {
  ReferenceSolver s(randomReferenceProblem(2, 2, 1, 0));
  s.bands[0].px = {1e9, 1e9, 1, 2, 4, 8};
  s.bands[0].py = {1e9, 1e9, 16, 32, 64, 128};
  EXPECT_EQ(s.divergence(s.bands[0], 0, 0, 0), 1 + 16);
  EXPECT_EQ(s.divergence(s.bands[0], 0, 1, 0), -1 + 32);
  EXPECT_EQ(s.divergence(s.bands[0], 0, 0, 1), 4 - 16);
  EXPECT_EQ(s.divergence(s.bands[0], 0, 1, 1), -4 - 32);
}

TEST(ReferenceLabeling, StepIsAFifthOfTheMultiplierAndTheBarIsExtrapolated) {
  ReferenceProblem p = pixels(1, 2, {0.1, 0.3});
  p.dt_multiplier = 2;
  ReferenceSolver s(p);
  s.bands[0].u = {0.5, 0, 0.5, 0};
  s.gamma = {0.2, 0.2};
  s.primalLabeling();
  // 0.5 + 2/5 (0.2 - 0.1), 0.5 + 2/5 (0.2 - 0.3): they sum to 1 already.
  EXPECT_NEAR(s.u()[0], 0.54, 1e-15);
  EXPECT_NEAR(s.u()[1], 0.46, 1e-15);
  EXPECT_NEAR(s.u_bar()[0], 0.58, 1e-15);
  EXPECT_NEAR(s.u_bar()[1], 0.42, 1e-15);
}

TEST(ReferenceLabeling, AllLabelsForbiddenGiveEqualParts) {
  ReferenceSolver s(pixels(1, 4, Values(4, FLT_MAX)));
  s.run(3);
  EXPECT_EQ(s.u(), Values(4, 0.25));
}

TEST(ReferenceLabeling, AForcedLabelEntersTheProjectionAtOneAndSharesTheExcess) {
  ReferenceSolver s(pixels(1, 3, {-FLT_MAX, 0, 0}));
  s.bands[0].u = {0, 0, 0.5, 0, 0.5, 0};
  s.primalLabeling();
  // (1, 0.5, 0.5) less the excess of 1 / 3 each.
  EXPECT_NEAR(s.u()[0], 2.0 / 3, 1e-15);
  EXPECT_NEAR(s.u()[1], 1.0 / 6, 1e-15);
  EXPECT_NEAR(s.u()[2], 1.0 / 6, 1e-15);
}

TEST(ReferenceLabeling, AForbiddenLabelIsLiftedWhenTheOthersSumToLessThanOne) {
  ReferenceSolver s(pixels(1, 3, {2, 3, FLT_MAX}));
  s.primalLabeling();
  // (1 - 0.4, -0.6, 0) -> + 1/3 -> (14/15, 0, 1/3) -> less 2/15 each.
  EXPECT_NEAR(s.u()[0], 0.8, 1e-15);
  EXPECT_EQ(s.u()[1], 0);
  EXPECT_NEAR(s.u()[2], 0.2, 1e-15);
}

TEST(ReferenceLabeling, OneLabelIsEverywhereOneAfterTheFirstStep) {
  ReferenceProblem p = randomReferenceProblem(3, 2, 1, 0);
  p.initLocalSolution = false;
  ReferenceSolver s(p);
  s.run(1);
  EXPECT_EQ(s.u(), Values(6, 1.0));
}

TEST(ReferenceCoupling, GammaMovesByHalfTheGapBetweenShareAndMeasure) {
  ReferenceProblem p = randomReferenceProblem(2, 2, 2, 0);
  p.dt_multiplier = 0.5;
  ReferenceSolver s(p);
  s.a_bar = {0.75, 0.5};
  s.sum_u = {1, 3};
  s.dualCoupling();
  EXPECT_EQ(s.gamma, (Values{0.5, -0.25}));  // (0.75 - 1/4) / (2 * 0.5), (0.5 - 3/4) / 1
}

TEST(ReferenceCoupling, SumsAreThoseOfTheOverRelaxedLabelingWithoutTheHalo) {
  ReferenceSolver s(randomReferenceProblem(2, 1, 2, 0));
  s.bands[0].u_bar = {1, 2, 1e9, 1e9, 4, 8, 1e9, 1e9};
  s.sumLabels();
  EXPECT_EQ(s.sum_u, (Values{3, 12}));
}

// A solver of 2 x 2 pixels with shares and duals that make each update easy to follow.
ReferenceSolver shares(int kind_prior, double mu) {
  ReferenceProblem p = randomReferenceProblem(2, 2, 3, kind_prior);
  p.ratios = {0.25, 0.75, 9};
  p.sigmas = {0.5, 0.25, 9};
  p.mu = mu;
  p.eps = 2;
  ReferenceSolver s(p);
  s.a = {0.1, 0.2, 0.5};
  s.a_bar = {0.5, 0.25, 0.2};
  s.gamma = {0.01, 0.02, 0.03};
  s.alpha = {0.1, -0.1, 77};
  s.beta = {0.3, 0.4, 77};
  return s;
}

TEST(ReferencePrior, NoneMovesTheSharesAgainstGammaAlone) {
  ReferenceSolver s = shares(0, 5);
  s.dualPrior();
  s.primalShares();
  EXPECT_EQ(s.alpha, (Values{0.1, -0.1, 77}));
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_DOUBLE_EQ(s.a[i], shares(0, 5).a[i] - s.gamma[i]);
    EXPECT_DOUBLE_EQ(s.a_bar[i], 2 * s.a[i] - shares(0, 5).a[i]);
  }
}

TEST(ReferencePrior, AnUnknownKindCountsAsNone) {
  ReferenceSolver unknown(randomReferenceProblem(3, 2, 3, 7)),
      none(randomReferenceProblem(3, 2, 3, 0));
  unknown.run(5);
  none.run(5);
  EXPECT_EQ(unknown.u(), none.u());
  EXPECT_EQ(unknown.a, none.a);
}

TEST(ReferencePrior, IntervalUpdates) {
  ReferenceSolver s = shares(1, 5);
  s.dualPrior();
  // Label 0: (0.1 + 0.5, 0.3 - 0.8) against [0, 1]; on the ray (1, 1): 0.05.
  EXPECT_NEAR(s.alpha[0], 0.05, 1e-15);
  EXPECT_NEAR(s.beta[0], 0.05, 1e-15);
  // Label 1: (0.15, -0.4) against [0, 1]; the apex.
  EXPECT_EQ(s.alpha[1], 0);
  EXPECT_EQ(s.beta[1], 0);
  s.primalShares();
  EXPECT_NEAR(s.a[0], 0.1 - (0.01 + 0.05) / 2, 1e-15);
  EXPECT_NEAR(s.a[1], 0.2 - 0.02 / 2, 1e-15);
  EXPECT_NEAR(s.a[2], 0.5 - (0.03 + 0.05 + 0) / 3, 1e-15);
}

TEST(ReferencePrior, LowerBoundUpdates) {
  ReferenceSolver s = shares(2, 8);
  s.dualPrior();
  EXPECT_NEAR(s.alpha[0], 0.1 + (0.5 - 0.25 * 0.8) / 1.25, 1e-15);
  EXPECT_NEAR(s.alpha[1], -0.1 + (0.25 - 0.75 * 0.8) / 1.75, 1e-15);
  EXPECT_EQ(s.beta, (Values{0.3, 0.4, 77}));
  const double alpha0 = s.alpha[0], alpha1 = s.alpha[1];
  s.primalShares();
  EXPECT_NEAR(s.a[0], 0.1 - (4 * 0.01 + 8 * alpha0) / (4 + 8), 1e-15);
  const double slope = 4 * 0.03 + 8 * (0.25 * alpha0 + 0.75 * alpha1);
  EXPECT_NEAR(s.a[2], 0.5 - slope / (4 + 8 * (0.25 + 0.75)), 1e-15);
}

TEST(ReferencePrior, LowerBoundWithoutWeightLeavesAlphaAlone) {
  ReferenceSolver s = shares(2, 0);
  s.dualPrior();
  EXPECT_EQ(s.alpha, (Values{0.1, -0.1, 77}));
}

TEST(ReferencePrior, UpperBoundUpdates) {
  ReferenceSolver s = shares(3, 4);
  s.dualPrior();
  // c = 0.5^2 * 4 * 2 / 4^2 = 1/8, so beta = alpha^2 / 8 on the boundary, and the step from
  // (0.1 + 0.3 / 1.25, 0.3 - 0.8 / 1.25) is normal to it.
  const double x = s.alpha[0], y = s.beta[0];
  EXPECT_NEAR(y, x * x / 8, 1e-15);
  EXPECT_NEAR((0.34 - x) + (-0.34 - y) * x / 4, 0, 1e-15);
  const double slope = 4 * (0.03 + 0.25 * x + y + 0.75 * s.alpha[1] + s.beta[1]);
  s.primalShares();
  EXPECT_NEAR(s.a[0], 0.1 - (0.01 + x) / 2, 1e-15);
  // The background's step is 1 / 16, and z = 1 - a solves z^2 (z - (1 - at)) = 2 / 16 * 2.
  const double at = 0.5 - slope / (4 + 4 * 1.25 + 4 * 1.75), z = 1 - s.a[2];
  EXPECT_NEAR(z * z * (z - (1 - at)), 0.25, 1e-15);
}

TEST(ReferencePrior, UpperBoundWithoutWeightLeavesOnlyBeta) {
  ReferenceSolver s = shares(3, 0);
  s.beta = {0.9, 0.3, 77};
  s.dualPrior();
  EXPECT_EQ(s.alpha, (Values{0, 0, 77}));
  EXPECT_NEAR(s.beta[0], 0.9 - 0.8 / 1.25, 1e-15);
  EXPECT_EQ(s.beta[1], 0);
}

TEST(ReferencePrior, UpperBoundOfNegativeOrFltMaxWeightLeavesAlphaFree) {
  for (double mu : {-1.0, static_cast<double>(FLT_MAX)}) {
    ReferenceSolver s = shares(3, mu);
    s.dualPrior();
    EXPECT_NEAR(s.alpha[0], 0.34, 1e-15);
    EXPECT_EQ(s.beta[0], 0);
  }
}

TEST(ReferencePrior, UpperBoundWithoutSpreadLeavesAlphaFree) {
  ReferenceProblem p = randomReferenceProblem(2, 2, 3, 3);
  p.sigmas.assign(3, 0);
  ReferenceSolver s(p);
  s.a_bar = {1, 0, 0.5};
  s.dualPrior();
  EXPECT_NEAR(s.alpha[0], (1 - 0.5 * 0.5) / 1.5, 1e-15);
  EXPECT_EQ(s.beta[0], 0);
}

TEST(ReferencePrior, TheBackgroundsDualsAreNeverWritten) {
  for (int kind = 0; kind <= 3; ++kind) {
    ReferenceSolver s = shares(kind, 5);
    s.run(3);
    EXPECT_EQ(s.alpha[2], 77);
    EXPECT_EQ(s.beta[2], 77);
  }
}

TEST(ReferencePrior, TheBackgroundMayBeAnyLabel) {
  for (int kind = 0; kind <= 3; ++kind) {
    ReferenceProblem last = randomReferenceProblem(4, 3, 3, kind), first = last;
    const auto rotated = [](const Values& v, std::size_t plane) {
      Values r(v.end() - static_cast<std::ptrdiff_t>(plane), v.end());
      r.insert(r.end(), v.begin(), v.end() - static_cast<std::ptrdiff_t>(plane));
      return r;
    };
    last.ratios = {0.3, 0.7, 0};
    first.rho = rotated(last.rho, 12);
    first.ratios = rotated(last.ratios, 1);
    first.ind_bgr = 0;
    ReferenceSolver a(last), b(first);
    a.run(10);
    b.run(10);
    const Values expected = rotated(a.u(), 12), u = b.u();
    for (std::size_t k = 0; k < u.size(); ++k) ASSERT_NEAR(u[k], expected[k], 1e-12) << kind;
  }
}

}  // namespace
}  // namespace namespace_ratseg
