// The energy of docs/math.md and the claim that the iteration minimises it.

#include "reference/reference_energy.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <vector>

#include "reference/problems.h"
#include "reference/reference_projections.h"

namespace namespace_ratseg {
namespace {

using Values = std::vector<double>;

// All pixels alike: the labeling is one vector of shares, and the length term is 0.
ReferenceProblem uniform(int kind_prior, const Values& costs) {
  ReferenceProblem p = randomReferenceProblem(4, 3, costs.size(), kind_prior);
  p.rho.clear();
  for (double cost : costs) p.rho.insert(p.rho.end(), 12, cost);
  return p;
}

Values labelingOf(const ReferenceProblem& p, const Values& shares) {
  Values u;
  for (double share : shares) u.insert(u.end(), p.w * p.h, share);
  return u;
}

Values converged(const ReferenceProblem& p, std::size_t iterations) {
  ReferenceSolver s(p);
  s.run(iterations);
  return s.u();
}

// The labeling with each pixel at its cheapest label.
Values cheapest(const ReferenceProblem& p) { return ReferenceSolver(p).u(); }

TEST(ReferenceEnergy, DataTermSkipsForbiddenAndForcedLabels) {
  ReferenceProblem p = randomReferenceProblem(2, 1, 2, 0);
  p.rho = {3, FLT_MAX, -2, -FLT_MAX};
  EXPECT_DOUBLE_EQ(referenceDataEnergy(p, {0.5, 0.25, 0.5, 0.75}), 0.5);
}

TEST(ReferenceEnergy, LengthTermCountsEachBoundaryByBothOfItsLabels) {
  ReferenceProblem p = randomReferenceProblem(3, 2, 2, 0);
  p.weight.clear();
  p.lambda = 5;
  // A vertical boundary of two pixels between two labels: 2 edges of cost lambda.
  EXPECT_DOUBLE_EQ(referenceLengthEnergy(p, {1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1}), 10);
  p.weight = {0.5, 1, 1, 0.1, 1, 1};
  EXPECT_DOUBLE_EQ(referenceLengthEnergy(p, {1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1}), 3);
}

TEST(ReferenceEnergy, LengthTermIsTheEuclideanNormOfTheForwardDifferences) {
  ReferenceProblem p = randomReferenceProblem(2, 2, 1, 0);
  p.weight.clear();
  p.lambda = 2;
  EXPECT_DOUBLE_EQ(referenceLengthEnergy(p, {0, 3, 4, 3}), 5 + 0 + 1);
}

TEST(ReferenceEnergy, WithoutBoundOnTheFieldABoundaryCostsInfinitelyMuch) {
  ReferenceProblem p = randomReferenceProblem(2, 1, 1, 0);
  p.weight = {FLT_MAX, 1};
  EXPECT_EQ(referenceLengthEnergy(p, {0, 1}), INFINITY);
  EXPECT_EQ(referenceLengthEnergy(p, {1, 1}), 0);
  p.lambda = 0;
  EXPECT_EQ(referenceLengthEnergy(p, {0, 1}), 0);
}

TEST(ReferenceEnergy, PriorTermsOfEachKind) {
  ReferenceProblem p = uniform(3, {0, 0, 0});
  p.ratios = {0.25, 0.75, 0};
  p.sigmas = {0.5, 0.1, 0};
  p.mu = 6;
  p.eps = 3;
  p.mins = {0.2, 0.7, 0};
  p.maxs = {0.3, 0.8, 0};
  const Values on = {0.1, 0.3, 0.6}, off = {0.2, 0.2, 0.6};
  EXPECT_NEAR(referencePriorEnergy(p, on), 3 * 2 / 0.4, 1e-12);
  const double quadratic = 0.01 / 0.25 / 0.4 + 0.01 / 0.01 / 0.4;
  EXPECT_NEAR(referencePriorEnergy(p, off), 36.0 / 12 * quadratic + 3 * 2 / 0.4, 1e-12);
  EXPECT_EQ(referencePriorEnergy(p, {0, 0, 1}), INFINITY);
  EXPECT_EQ(referencePriorEnergy(p, {0, 0, 1.1}), INFINITY);
  p.mu = 0;
  EXPECT_NEAR(referencePriorEnergy(p, off), 3 * 2 / 0.4, 1e-12);
  p.mu = -1;
  EXPECT_EQ(referencePriorEnergy(p, off), INFINITY);
  p.mu = 1;
  for (int kind : {1, 2}) {
    p.kind_prior = kind;
    EXPECT_EQ(referencePriorEnergy(p, on, 1e-12), 0);
    EXPECT_EQ(referencePriorEnergy(p, off, 1e-12), INFINITY);
  }
  p.kind_prior = 0;
  EXPECT_EQ(referencePriorEnergy(p, off), 0);
  p.kind_prior = 1;
  p.mins = p.maxs = {0.5, 0.5, 0};
  EXPECT_EQ(referencePriorEnergy(p, {-0.1, -0.1, 1.2}, 1e-12), INFINITY);  // no foreground below 0
}

TEST(ReferenceEnergy, UpperBoundLiesAboveMuTimesTheDeviationAndTouchesIt) {
  ReferenceProblem p = uniform(3, {0, 0});
  p.ratios = {0.5, 0};
  p.sigmas = {0.1, 0};
  p.mu = 2;
  p.eps = 1;
  double least = INFINITY;
  for (int k = 1; k <= 1000; ++k) {
    const double B = k / 1000.0, q = 0.7;  // z = (q - r) / sigma = 2
    const double energy = referencePriorEnergy(p, {q * B, 1 - B});
    EXPECT_GE(energy, 2 * 2 * (1 - 1e-12));
    least = std::min(least, energy);
  }
  EXPECT_NEAR(least, 2 * 2, 1e-12);                                 // at
  EXPECT_NEAR(referencePriorEnergy(p, {0.35, 0.5}), 2 * 2, 1e-12);  // B = 2 eps / (mu |z|)
}

TEST(ReferenceMinimum, WithoutRegulariserAndPriorIsThePixelwiseBestLabel) {
  ReferenceProblem p = randomReferenceProblem(6, 5, 4, 0);
  p.lambda = 0;
  const Values best = cheapest(p);
  ReferenceProblem upper = p;
  upper.kind_prior = 3;
  upper.mu = upper.eps = 0;
  const Values none = converged(p, 3000), zero = converged(upper, 3000);
  for (std::size_t k = 0; k < best.size(); ++k) {
    EXPECT_NEAR(none[k], best[k], 1e-6);
    EXPECT_NEAR(zero[k], best[k], 1e-6);
  }
}

// The least energy over all shares (a_0, a_1, 1 - a_0 - a_1), by grids that close in on it.
Values leastShares(const ReferenceProblem& p) {
  double B = 0.5, q = 0.5;
  for (double width = 0.5; width > 1e-9; width *= 0.7) {
    double least = INFINITY, bestB = B, bestQ = q;
    for (int i = -10; i <= 10; ++i) {
      for (int j = -10; j <= 10; ++j) {
        const double tryB = B + width * i / 10, tryQ = q + width * j / 10;
        if (tryB <= 0 || tryB > 1 || tryQ < 0 || tryQ > 1) continue;
        const Values shares = {tryQ * tryB, (1 - tryQ) * tryB, 1 - tryB};
        const double energy = referenceEnergy(p, labelingOf(p, shares));
        if (energy >= least) continue;
        least = energy;
        bestB = tryB;
        bestQ = tryQ;
      }
    }
    B = bestB;
    q = bestQ;
  }
  return {q * B, (1 - q) * B, 1 - B};
}

TEST(ReferenceMinimum, UpperBoundArrivesAtTheSharesOfLeastEnergy) {
  for (double mu : {0.5, 2.0, 6.0}) {
    for (double dt : {1.0, 3.0}) {
      ReferenceProblem p = uniform(3, {0.6, 0.1, 0.05});
      p.ratios = {0.7, 0.3, 0};
      p.sigmas = {0.3, 0.2, 0};
      p.mu = mu;
      p.eps = 0.2;
      p.dt_multiplier = dt;
      const Values expected = leastShares(p), found = referenceShares(p, converged(p, 20000));
      EXPECT_GT(expected[0], 0.01);
      for (std::size_t i = 0; i < 3; ++i)
        EXPECT_NEAR(found[i], expected[i], 2e-5) << mu << " " << dt;
    }
  }
}

TEST(ReferenceMinimum, UpperBoundsMultipliersAreTheSlopesOfTheEnergyPerPixel) {
  ReferenceProblem p = uniform(3, {0.6, 0.1, 0.05});
  p.ratios = {0.7, 0.3, 0};
  p.sigmas = {0.3, 0.2, 0};
  ReferenceSolver s(p);
  s.run(20000);
  const double B = 1 - s.a[2];
  for (std::size_t i = 0; i < 2; ++i) {
    const double deviation = s.a[i] - p.ratios[i] * B;
    const double slope = p.mu * p.mu / (2 * p.eps) * deviation / (p.sigmas[i] * p.sigmas[i] * B);
    EXPECT_NEAR(s.alpha[i], slope / 12, 1e-6);
    EXPECT_NEAR(s.gamma[i], -s.alpha[i], 1e-6);
    EXPECT_GT(std::abs(slope), 0.1);
  }
}

TEST(ReferenceMinimum, LowerBoundMakesTheSharesEqualTheRatiosWhateverMuAndSigmas) {
  for (double mu : {0.5, 40.0}) {
    ReferenceProblem p = uniform(2, {0.6, 0.1, 0.5});
    p.ratios = {0.7, 0.3, 0};
    p.mu = mu;
    p.sigmas.assign(3, mu);
    // 0.7 * 0.6 + 0.3 * 0.1 < 0.5, so all of the image is foreground.
    const Values found = referenceShares(p, converged(p, 20000));
    EXPECT_NEAR(found[0], 0.7, 1e-6);
    EXPECT_NEAR(found[1], 0.3, 1e-6);
    EXPECT_NEAR(found[2], 0, 1e-6);
  }
}

TEST(ReferenceMinimum, IntervalKeepsTheSharesBetweenItsBounds) {
  ReferenceProblem p = uniform(1, {0.6, 0.1, 0.5});
  p.mins = {0.2, 0.3, 0};
  p.maxs = {0.9, 0.65, 0};
  const Values found = referenceShares(p, converged(p, 20000));
  EXPECT_NEAR(found[0], 0.35, 1e-6);
  EXPECT_NEAR(found[1], 0.65, 1e-6);
  EXPECT_NEAR(found[2], 0, 1e-6);
}

// The energy is convex, so a point that no small step towards another labeling improves is its
// minimum.
void expectMinimum(const ReferenceProblem& p, const Values& u, double tolerance) {
  const double least = referenceEnergy(p, u);
  for (unsigned seed = 0; seed < 40; ++seed) {
    Values v = randomValues(u.size(), seed % 2 == 0 ? 0 : -8, 1, 100 + seed);
    const std::size_t plane = p.w * p.h;
    for (std::size_t k = 0; k < plane; ++k) {
      Values pixel(p.n);
      for (std::size_t i = 0; i < p.n; ++i) pixel[i] = v[i * plane + k];
      referenceSimplex(pixel);
      for (std::size_t i = 0; i < p.n; ++i) v[i * plane + k] = pixel[i];
    }
    for (double t : {1e-3, 0.03, 0.5}) {
      Values mixed(u.size());
      for (std::size_t k = 0; k < u.size(); ++k) mixed[k] = (1 - t) * u[k] + t * v[k];
      EXPECT_GE(referenceEnergy(p, mixed), least - tolerance) << "seed " << seed << " t " << t;
    }
  }
}

TEST(ReferenceMinimum, NoneAndUpperBoundArriveAtTheLeastEnergy) {
  for (int kind : {0, 3}) {
    const ReferenceProblem p = randomReferenceProblem(6, 5, 3, kind);
    const Values u = converged(p, 20000);
    expectMinimum(p, u, 1e-7);
    EXPECT_LT(referenceEnergy(p, u), referenceEnergy(p, cheapest(p)) - 0.01);
  }
}

TEST(ReferenceMinimum, TheGapToTheLeastEnergyShrinksAsTheIterationGoesOn) {
  const ReferenceProblem p = randomReferenceProblem(8, 8, 3, 3);
  const double least = referenceEnergy(p, converged(p, 20000));
  double gap = INFINITY;
  for (std::size_t iterations : {10u, 100u, 1000u, 4000u}) {
    const double next = referenceEnergy(p, converged(p, iterations)) - least;
    EXPECT_GE(next, -1e-9);
    EXPECT_LT(next, gap / 3) << iterations;
    gap = next;
  }
}

TEST(ReferenceMinimum, DoesNotDependOnTheStart) {
  ReferenceProblem p = randomReferenceProblem(5, 4, 3, 3);
  const double fromBest = referenceEnergy(p, converged(p, 20000));
  p.initLocalSolution = false;
  EXPECT_NEAR(referenceEnergy(p, converged(p, 20000)), fromBest, 1e-8);
}

}  // namespace
}  // namespace namespace_ratseg
