// Energies and bound from sums: the plain arithmetic of the certificate.

#include "algorithms/rat_segments/alg/certificate/certificate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

#include "algorithms/rat_segments/alg/certificate/certificate_kernels.h"
#include "algorithms/rat_segments/alg/rat_seg.h"

namespace namespace_ratseg {
namespace {

using Values = std::vector<double>;

// Two foreground labels and the background, on 100 pixels.
SharePrior prior(int kind) {
  SharePrior p;
  p.kind = kind;
  p.n = 3;
  p.background = 2;
  p.pixels = 100;
  p.mu = 6;
  p.eps = 3;
  p.ratios = {0.25, 0.75, 0};
  p.sigmas = {0.5, 0.1, 0};
  p.mins = {0.2, 0.7, 0};
  p.maxs = {0.3, 0.8, 0};
  return p;
}

const Values kOn = {0.1, 0.3, 0.6};   // as the ratios have it
const Values kOff = {0.2, 0.2, 0.6};  // not within mins and maxs

TEST(PriorEnergy, OfTheUpperBoundIsQuadraticOverTheForegroundAndABarrier) {
  const SharePrior p = prior(Params::kind_prior_upperBound);
  EXPECT_NEAR(priorEnergy(p, kOn), 3 * 2 / 0.4, 1e-12);
  const double quadratic = 0.01 / 0.25 / 0.4 + 0.01 / 0.01 / 0.4;
  EXPECT_NEAR(priorEnergy(p, kOff), 36.0 / 12 * quadratic + 3 * 2 / 0.4, 1e-12);
  EXPECT_EQ(priorEnergy(p, {0, 0, 1}), HUGE_VAL);
}

TEST(PriorEnergy, OfTheUpperBoundWithoutMuIsTheBarrier) {
  SharePrior p = prior(Params::kind_prior_upperBound);
  p.mu = 0;
  EXPECT_NEAR(priorEnergy(p, kOff), 3 * 2 / 0.4, 1e-12);
}

TEST(PriorEnergy, OfStrictSharesIsInfiniteOffTheRatios) {
  for (double mu : {-1.0, static_cast<double>(FLT_MAX)}) {
    SharePrior p = prior(Params::kind_prior_upperBound);
    p.mu = mu;
    EXPECT_EQ(priorEnergy(p, kOff), HUGE_VAL);
    EXPECT_NEAR(priorEnergy(p, kOn), 3 * 2 / 0.4, 1e-9);
  }
  SharePrior p = prior(Params::kind_prior_upperBound);
  p.sigmas = {0, 0.1, 0};
  EXPECT_EQ(priorEnergy(p, kOff), HUGE_VAL);
  EXPECT_TRUE(std::isfinite(priorEnergy(p, {0.1, 0.3, 0.6})));
}

TEST(PriorEnergy, OfIntervalAndLowerBoundIsZeroOrInfinite) {
  for (int kind : {Params::kind_prior_interval, Params::kind_prior_lowerBound}) {
    EXPECT_EQ(priorEnergy(prior(kind), kOn), 0);
    EXPECT_EQ(priorEnergy(prior(kind), kOff), HUGE_VAL);
  }
  SharePrior p = prior(Params::kind_prior_lowerBound);
  p.mu = 0;
  EXPECT_EQ(priorEnergy(p, kOff), 0);
  EXPECT_EQ(priorEnergy(prior(Params::kind_prior_none), kOff), 0);
}

// The least over a grid of shares of N gamma a + K(a; alpha, beta) + R.
double leastOnGrid(const SharePrior& p, const ShareDuals& d) {
  constexpr int kSteps = 400;
  double least = HUGE_VAL;
  for (int i = 0; i <= kSteps; ++i) {
    for (int j = 0; i + j <= kSteps; ++j) {
      const double a[3] = {i / 400.0, j / 400.0, (kSteps - i - j) / 400.0};
      const double B = a[0] + a[1];
      double value = 100 * (d.gamma[0] * a[0] + d.gamma[1] * a[1] + d.gamma[2] * a[2]);
      for (int k = 0; k < 2; ++k) {
        const double e = a[k] - p.ratios[k] * B;
        if (p.kind == Params::kind_prior_interval)
          value += 100 * (d.alpha[k] * a[k] - d.beta[k] * B);
        if (p.kind == Params::kind_prior_lowerBound) value += p.mu * d.alpha[k] * e;
        if (p.kind == Params::kind_prior_upperBound)
          value += 100 * (d.alpha[k] * e - d.beta[k] * B);
      }
      if (p.kind == Params::kind_prior_upperBound) value += B > 0 ? 2 * p.eps / B : HUGE_VAL;
      least = std::min(least, value);
    }
  }
  return least;
}

TEST(ShareBound, IsTheLeastOverAllSharesForEveryPrior) {
  const ShareDuals duals[] = {
      {{0.1, -0.2, 0.05}, {0.03, -0.02, 7}, {9, 9, 7}},
      {{0.5, 0.6, -0.3}, {0.0, 0.1, 7}, {8, 8, 7}},
      {{-0.4, 0.2, 0.3}, {-0.02, 0.3, 7}, {30, 8, 7}},
      {{0.9, 0.8, -0.9}, {0.0, 0.0, 7}, {-0.0, 0.0, 7}},
  };
  for (int kind : {0, 1, 2, 3}) {
    for (const ShareDuals& d : duals) {
      const SharePrior p = prior(kind);
      const double bound = shareBound(p, d);
      const double least = leastOnGrid(p, d);
      EXPECT_LE(bound, least + 1e-9) << kind;
      EXPECT_GE(bound, least - 0.01 * (1 + std::abs(least))) << kind;
    }
  }
}

TEST(ShareBound, RaisesBetaToTheEdgeOfItsSet) {
  SharePrior p = prior(Params::kind_prior_upperBound);
  const double edge = 0.5 * 0.5 * 100 * 3 / 36 * 0.2 * 0.2;
  ShareDuals d = {{0.1, 0.2, 0.5}, {0.2, 0, 0}, {edge, 0, 0}};
  const double bound = shareBound(p, d);
  d.beta[0] = edge - 0.1;
  EXPECT_DOUBLE_EQ(shareBound(p, d), bound);
  d.beta[0] = edge + 0.1;
  EXPECT_LT(shareBound(p, d), bound);
  p.kind = Params::kind_prior_interval;
  d = {{0.1, 0.2, 0.5}, {0.2, -0.3, 0}, {0.06, -0.21, 0}};
  EXPECT_DOUBLE_EQ(shareBound(p, {d.gamma, d.alpha, {-1, -1, 0}}), shareBound(p, d));
}

TEST(ShareBound, OfOneLabelIsItsGamma) {
  SharePrior p;
  p.kind = Params::kind_prior_upperBound;
  p.n = 1;
  p.pixels = 8;
  p.eps = 3;
  EXPECT_EQ(shareBound(p, {{0.25}, {5}, {5}}), 2);
}

// Sums of a labeling with the shares on `shares`, all data and length terms given.
Values sumsOf(const Values& shares, double data, double length) {
  Values sums(certificateSums(3));
  sums[kData] = data;
  sums[kDataSize] = std::abs(data);
  sums[kLength] = length;
  for (std::size_t i = 0; i < 3; ++i) {
    sums[kCertificateTerms + i] = 100 * shares[i];
    sums[kCertificateTerms + 3 + i] = 100 * shares[i];
  }
  return sums;
}

const ShareDuals kZero = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};

TEST(Certificate, GapIsInPartsOfTheMagnitudesOfTheEnergysTerms) {
  Values sums = sumsOf(kOn, -50, 10);
  sums[kReduced] = -46;
  const Certificate c = certificate(prior(Params::kind_prior_none), sums, kZero);
  EXPECT_DOUBLE_EQ(c.energy, -40);
  EXPECT_DOUBLE_EQ(c.bound, -46);
  EXPECT_DOUBLE_EQ(c.gap, 6.0 / 60);
}

TEST(Certificate, GapIsZeroWhereRoundingPutsTheBoundAbove) {
  Values sums = sumsOf(kOn, 0, 0);
  EXPECT_EQ(certificate(prior(Params::kind_prior_none), sums, kZero).gap, 0);
  sums[kReduced] = 1e-9;
  EXPECT_EQ(certificate(prior(Params::kind_prior_none), sums, kZero).gap, 0);
  sums[kReduced] = -1;
  EXPECT_EQ(certificate(prior(Params::kind_prior_none), sums, kZero).gap, HUGE_VAL);
}

TEST(Certificate, BoundPaysForTheDualFieldsExcess) {
  Values sums = sumsOf(kOn, 50, 10);
  sums[kReduced] = 46;
  sums[kExcess] = 0.5;
  EXPECT_DOUBLE_EQ(certificate(prior(Params::kind_prior_none), sums, kZero).bound,
                   46 - 0.5 * std::sqrt(2.0));
}

TEST(Certificate, HardLabelingHasItsOwnEnergy) {
  Values sums = sumsOf(kOn, 50, 10);
  sums[kReduced] = 46;
  sums[kHardData] = 52;
  sums[kHardLength] = 11;
  const SharePrior p = prior(Params::kind_prior_none);
  EXPECT_DOUBLE_EQ(certificate(p, sums, kZero).labelingEnergy, 63);
  EXPECT_DOUBLE_EQ(certificate(p, sums, kZero).labelingGap, 17.0 / 60);
  sums[kHardUnallowed] = 1;
  EXPECT_EQ(certificate(p, sums, kZero).labelingEnergy, HUGE_VAL);
  EXPECT_EQ(certificate(p, sums, kZero).labelingGap, HUGE_VAL);
}

TEST(Certificate, LabelsThatAreNotAllowedMakeTheEnergyInfiniteAndNoGap) {
  Values sums = sumsOf(kOn, 50, 10);
  sums[kReduced] = -1;
  sums[kUnallowed] = 1e-9;
  const Certificate c = certificate(prior(Params::kind_prior_none), sums, kZero);
  EXPECT_EQ(c.energy, HUGE_VAL);
  EXPECT_EQ(c.gap, HUGE_VAL);
  EXPECT_EQ(c.labelingGap, HUGE_VAL);
}

// Shares (0.2, 0.2, 0.6) must become (0.1, 0.3, 0.6): half of the labeling is kept, and the rest,
// 0.5 of the image, gives label 1 its 0.2 and the background its 0.3.
TEST(Certificate, HardConstraintIsMetByMixingInLabelingsOfOneLabelEach) {
  Values sums = sumsOf(kOff, 50, 10);
  const Values costs = {1000, 90, 40};
  std::copy(costs.begin(), costs.end(), sums.end() - 3);
  const double mixed = 0.5 * 60 + 0.2 * 90 + 0.3 * 40;
  EXPECT_NEAR(certificate(prior(Params::kind_prior_lowerBound), sums, kZero).energy, mixed, 1e-9);
  SharePrior strict = prior(Params::kind_prior_upperBound);
  strict.mu = -1;
  EXPECT_NEAR(certificate(strict, sums, kZero).energy, mixed + 3 * 2 / 0.4, 1e-9);
  sums[kSpecial] = 1;  // then there is no labeling of one label everywhere
  EXPECT_EQ(certificate(strict, sums, kZero).energy, HUGE_VAL);
}

// (0.5, 0.5) of the foreground must come into [0.2, 0.3] and [0.7, 0.8]: the nearest is (0.3, 0.7).
TEST(Certificate, IntervalIsMetAtItsNearestShares) {
  Values sums = sumsOf(kOff, 50, 10);
  const Values costs = {1000, 90, 40};
  std::copy(costs.begin(), costs.end(), sums.end() - 3);
  const double kept = 0.12 / 0.2;
  const double mixed = kept * 60 + (0.28 - kept * 0.2) * 90 + (0.6 - kept * 0.6) * 40;
  EXPECT_NEAR(certificate(prior(Params::kind_prior_interval), sums, kZero).energy, mixed, 1e-9);
}

TEST(Certificate, SharesThatNoLabelingHasLeaveNoEnergy) {
  SharePrior p = prior(Params::kind_prior_lowerBound);
  p.ratios = {0.25, 0.7, 0};
  EXPECT_EQ(certificate(p, sumsOf(kOff, 50, 10), kZero).energy, HUGE_VAL);
  p.ratios = {0.25, 0.75 + 1e-7, 0};  // but for rounding
  EXPECT_TRUE(std::isfinite(certificate(p, sumsOf(kOff, 50, 10), kZero).energy));
}

TEST(Certificate, BoundaryWithoutBoundIsMixedAway) {
  Values sums = sumsOf(kOff, 50, HUGE_VAL);
  const Values costs = {1000, 90, 40};
  std::copy(costs.begin(), costs.end(), sums.end() - 3);
  EXPECT_NEAR(certificate(prior(Params::kind_prior_none), sums, kZero).energy,
              0.2 * 1000 + 0.2 * 90 + 0.6 * 40, 1e-9);
}

}  // namespace
}  // namespace namespace_ratseg
