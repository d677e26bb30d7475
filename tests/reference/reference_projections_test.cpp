#include "reference/reference_projections.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numeric>
#include <random>
#include <vector>

namespace namespace_ratseg {
namespace {

double squaredDistance(ReferencePoint a, ReferencePoint b) {
  return (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y);
}

// The minimiser of a unimodal function over [lo, hi].
double minimiser(double lo, double hi, const std::function<double(double)>& f) {
  for (int i = 0; i < 300; ++i) {
    const double a = lo + (hi - lo) / 3, b = hi - (hi - lo) / 3;
    if (f(a) <= f(b)) {
      hi = b;
    } else {
      lo = a;
    }
  }
  return (lo + hi) / 2;
}

// The projection onto the simplex by sorting: subtract the threshold at which the positive parts
// sum to 1.
std::vector<double> sortedSimplex(const std::vector<double>& v) {
  std::vector<double> sorted = v;
  std::sort(sorted.rbegin(), sorted.rend());
  double sum = 0, threshold = 0;
  for (std::size_t k = 0; k < sorted.size(); ++k) {
    sum += sorted[k];
    const double candidate = (sum - 1) / static_cast<double>(k + 1);
    if (sorted[k] > candidate) threshold = candidate;
  }
  std::vector<double> projected;
  for (double value : v) projected.push_back(std::max(value - threshold, 0.0));
  return projected;
}

TEST(ReferenceSimplex, AgreesWithTheProjectionBySorting) {
  std::mt19937 random(1);
  for (int trial = 0; trial < 2000; ++trial) {
    std::normal_distribution<double> value(0, trial % 2 == 0 ? 0.5 : 20);
    std::vector<double> v(1 + static_cast<std::size_t>(trial % 9));
    for (double& x : v) x = value(random);
    const std::vector<double> expected = sortedSimplex(v);
    referenceSimplex(v);
    for (std::size_t i = 0; i < v.size(); ++i) EXPECT_NEAR(v[i], expected[i], 1e-13);
  }
}

TEST(ReferenceSimplex, ResultIsOnTheSimplexAndNoPointOfItIsNearer) {
  std::mt19937 random(2);
  std::normal_distribution<double> value(0, 2);
  for (int trial = 0; trial < 200; ++trial) {
    std::vector<double> v(5);
    for (double& x : v) x = value(random);
    std::vector<double> p = v;
    referenceSimplex(p);
    EXPECT_NEAR(std::accumulate(p.begin(), p.end(), 0.0), 1, 1e-13);
    double dot = 0;
    for (std::size_t i = 0; i < v.size(); ++i) dot += (v[i] - p[i]) * p[i];
    for (std::size_t i = 0; i < v.size(); ++i) {
      EXPECT_GE(p[i], 0);
      EXPECT_LE(v[i] - p[i] - dot, 1e-12) << "towards corner " << i;  // <v - p, e_i - p> <= 0
    }
  }
}

TEST(ReferenceSimplex, RaisesAllZerosToEqualParts) {
  std::vector<double> v(4, 0.0);
  referenceSimplex(v);
  EXPECT_EQ(v, std::vector<double>(4, 0.25));
}

TEST(ReferenceSimplex, LiftsAZeroWhenTheOthersSumToLessThanOne) {
  std::vector<double> v = {0.3, 0.4, 0.0};
  referenceSimplex(v);
  EXPECT_NEAR(v[0], 0.4, 1e-15);
  EXPECT_NEAR(v[1], 0.5, 1e-15);
  EXPECT_NEAR(v[2], 0.1, 1e-15);
}

TEST(ReferenceSimplex, OneComponentBecomesOneAndNoneStaysNone) {
  std::vector<double> one = {-7};
  referenceSimplex(one);
  EXPECT_EQ(one, std::vector<double>{1});
  std::vector<double> none;
  referenceSimplex(none);
  EXPECT_TRUE(none.empty());
}

TEST(ReferenceDisc, KeepsTheInsideAndPullsTheOutsideToTheCircle) {
  EXPECT_EQ(referenceDisc({0.6, 0.8}, 1).x, 0.6);
  EXPECT_EQ(referenceDisc({0.6, 0.8}, 1).y, 0.8);
  EXPECT_NEAR(referenceDisc({6, -8}, 5).x, 3, 1e-15);
  EXPECT_NEAR(referenceDisc({6, -8}, 5).y, -4, 1e-15);
}

TEST(ReferenceDisc, RadiusZeroIsTheOriginAndFltMaxIsNoBound) {
  EXPECT_EQ(referenceDisc({6, -8}, 0).x, 0);
  EXPECT_EQ(referenceDisc({6, -8}, 0).y, 0);
  EXPECT_EQ(referenceDisc({6e30, -8}, FLT_MAX).x, 6e30);
  EXPECT_EQ(referenceDisc({6e30, -8}, FLT_MAX).y, -8);
}

TEST(ReferenceParabola, AgreesWithASearchForTheNearestPoint) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> exponent(-3, 3), sign(-1, 1);
  int outside = 0;
  for (int trial = 0; trial < 3000; ++trial) {
    const double d = std::pow(10, exponent(random));
    const ReferencePoint q = {std::copysign(std::pow(10, exponent(random)), sign(random)),
                              std::copysign(std::pow(10, exponent(random)), sign(random))};
    const ReferencePoint p = referenceParabola(q, d);
    if (q.y >= q.x * q.x / (4 * d)) {
      EXPECT_EQ(p.x, q.x);
      EXPECT_EQ(p.y, q.y);
      continue;
    }
    ++outside;
    EXPECT_NEAR(p.y, p.x * p.x / (4 * d), 1e-12 * p.y);
    const auto distance = [&](double s) {
      return squaredDistance(q, {std::copysign(s, q.x), s * s / (4 * d)});
    };
    // Right of the boundary point above or below q the distance only grows, and left of the
    // vertical through a point with y > 0 that is still inside, so it is unimodal here.
    const double from = q.y > 0 ? 2 * std::sqrt(d * q.y) : 0;
    const double best = distance(minimiser(std::min(from, std::abs(q.x)), std::abs(q.x), distance));
    EXPECT_LE(squaredDistance(q, p), best * (1 + 1e-12));
    EXPECT_GE(squaredDistance(q, p), best * (1 - 1e-12));
    EXPECT_GE(p.x * q.x, 0);
  }
  EXPECT_GT(outside, 1000);
}

TEST(ReferenceParabola, TheStepToTheBoundaryIsNormalToIt) {
  for (double d : {1e-9, 1e-3, 1.0, 5e3, 1e12}) {
    for (const ReferencePoint q : {ReferencePoint{0.3, -0.2},
                                   {-0.3, -40},
                                   {1e-7, -1e-9},
                                   {5, 0.5 / d},
                                   {-90, 0},
                                   {1e6, 1e3}}) {
      if (q.y >= q.x * q.x / (4 * d)) continue;
      const ReferencePoint p = referenceParabola(q, d);
      const double along = (q.x - p.x) + (q.y - p.y) * p.x / (2 * d);  // tangent (1, p.x / (2 d))
      const double scale =
          std::abs(q.x) + std::abs(p.x) + (std::abs(q.y) + p.y) * std::abs(p.x) / (2 * d);
      EXPECT_LE(std::abs(along), 1e-13 * scale) << "d " << d << " q " << q.x << " " << q.y;
    }
  }
}

TEST(ReferenceParabola, PointsOnTheAxisBelowGoToTheApex) {
  EXPECT_EQ(referenceParabola({0, -3}, 2).x, 0);
  EXPECT_EQ(referenceParabola({0, -3}, 2).y, 0);
}

TEST(ReferenceParabola, WithoutBoundOnXOnlyYIsClamped) {
  EXPECT_EQ(referenceParabola({-3, 2}, FLT_MAX).x, -3);
  EXPECT_EQ(referenceParabola({-3, 2}, FLT_MAX).y, 2);
  EXPECT_EQ(referenceParabola({-3, -2}, FLT_MAX).x, -3);
  EXPECT_EQ(referenceParabola({-3, -2}, FLT_MAX).y, 0);
}

TEST(ReferenceParabola, AVanishingWidthLeavesTheRayAboveTheApex) {
  EXPECT_EQ(referenceParabola({-3, 2}, 0).x, 0);
  EXPECT_EQ(referenceParabola({-3, 2}, 0).y, 2);
  EXPECT_EQ(referenceParabola({-3, -2}, 0.9e-12).x, 0);
  EXPECT_EQ(referenceParabola({-3, -2}, 0.9e-12).y, 0);
}

// The nearest point of the cone by search along both rays.
ReferencePoint searchedCone(ReferencePoint q, double lo, double hi) {
  const auto onRay = [&](double x, double y) {
    const auto distance = [&](double t) { return squaredDistance(q, {t * x, t * y}); };
    const double t = minimiser(0, 1e3, distance);
    return ReferencePoint{t * x, t * y};
  };
  if (q.y >= lo * q.x && q.y >= hi * q.x) return q;
  const ReferencePoint right = onRay(1, hi), left = onRay(-1, -lo);
  return squaredDistance(q, right) < squaredDistance(q, left) ? right : left;
}

TEST(ReferenceIntervalCone, AgreesWithASearchForTheNearestPoint) {
  std::mt19937 random(4);
  std::uniform_real_distribution<double> bound(0, 1), coordinate(-2, 2);
  for (int trial = 0; trial < 2000; ++trial) {
    double lo = bound(random), hi = trial % 5 == 0 ? lo : bound(random);
    if (lo > hi) std::swap(lo, hi);
    if (trial % 7 == 0) lo = 0;
    const ReferencePoint q = {coordinate(random), coordinate(random)};
    const ReferencePoint p = referenceIntervalCone(q, lo, hi), s = searchedCone(q, lo, hi);
    EXPECT_NEAR(p.x, s.x, 1e-6) << q.x << " " << q.y << " in " << lo << " " << hi;
    EXPECT_NEAR(p.y, s.y, 1e-6) << q.x << " " << q.y << " in " << lo << " " << hi;
  }
}

TEST(ReferenceIntervalCone, KeepsPointsOfTheCone) {
  EXPECT_EQ(referenceIntervalCone({-1, 0.5}, 0.2, 0.6).x, -1);
  EXPECT_EQ(referenceIntervalCone({-1, 0.5}, 0.2, 0.6).y, 0.5);
  EXPECT_EQ(referenceIntervalCone({-1, -0.2}, 0.2, 0.6).x, -1);
  EXPECT_EQ(referenceIntervalCone({-1, -0.2}, 0.2, 0.6).y, -0.2);
}

TEST(ReferenceIntervalCone, PointsOfThePolarConeGoToTheApex) {
  EXPECT_EQ(referenceIntervalCone({0.4, -1}, 0.2, 0.6).x, 0);
  EXPECT_EQ(referenceIntervalCone({0.4, -1}, 0.2, 0.6).y, 0);
}

TEST(ReferenceIntervalCone, BoundsOfZeroKeepYAboveZeroAndClampItBelow) {
  for (double x : {-2.0, 0.0, 3.0}) {
    EXPECT_EQ(referenceIntervalCone({x, 1.5}, 0, 0).x, x);
    EXPECT_EQ(referenceIntervalCone({x, 1.5}, 0, 0).y, 1.5);
    EXPECT_EQ(referenceIntervalCone({x, -1.5}, 0, 0).x, x);
    EXPECT_EQ(referenceIntervalCone({x, -1.5}, 0, 0).y, 0);
  }
}

TEST(ReferenceBarrierProx, AgreesWithASearchForTheMinimiser) {
  for (double E : {1e-9, 1e-3, 0.2, 30.0}) {
    for (double at : {-5.0, 0.0, 0.7, 1.0, 1.3, 20.0}) {
      const double a = referenceBarrierProx(at, E);
      const auto objective = [&](double z) { return (1 - z - at) * (1 - z - at) / 2 + E / z; };
      const double z = minimiser(1e-9, 40, objective);
      EXPECT_NEAR(1 - a, z, 1e-6) << "at " << at << " E " << E;
      // z^2 (z - (1 - at)) = E, as exactly as a can be rounded.
      const double root = 1 - a, gap = at - a;
      const double rounding = 1e-15 * (1 + std::abs(a)) * (2 * root * std::abs(gap) + root * root);
      EXPECT_NEAR(root * root * gap, E, rounding);
    }
  }
}

TEST(ReferenceBarrierProx, WithoutBarrierOnlyTheBoundOfOneIsLeft) {
  EXPECT_EQ(referenceBarrierProx(0.25, 0), 0.25);
  EXPECT_EQ(referenceBarrierProx(1, 0), 1);
  EXPECT_EQ(referenceBarrierProx(1.75, 0), 1);
}

}  // namespace
}  // namespace namespace_ratseg
