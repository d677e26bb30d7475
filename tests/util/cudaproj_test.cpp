#include "util/cudaproj.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

namespace namespace_ratseg {
namespace {

// The nearest point of the simplex by sorting, in double.
std::vector<double> nearestOnSimplex(const std::vector<double>& v) {
  std::vector<double> sorted = v;
  std::sort(sorted.begin(), sorted.end(), std::greater<>());
  double sum = 0.0;
  double shift = 0.0;
  for (std::size_t k = 0; k < sorted.size(); ++k) {
    sum += sorted[k];
    const double t = (sum - 1.0) / static_cast<double>(k + 1);
    if (sorted[k] > t) shift = t;
  }
  std::vector<double> projected;
  for (double x : v) projected.push_back(std::max(x - shift, 0.0));
  return projected;
}

template <int LANES>
void expectNearestOnSimplex(int n, float spread) {
  std::mt19937 generator(static_cast<unsigned>(n) + 17u);
  std::vector<float> v(static_cast<std::size_t>(n) * LANES);
  for (float& x : v) x = spread * (static_cast<float>(generator() >> 8) * 0x1p-24f - 0.5f);
  std::vector<float> projected = v;
  projectOntoSimplex<LANES>(projected.data(), n);
  for (int l = 0; l < LANES; ++l) {
    std::vector<double> lane;
    for (int j = 0; j < n; ++j) lane.push_back(v[static_cast<std::size_t>(j * LANES + l)]);
    const std::vector<double> expected = nearestOnSimplex(lane);
    for (int j = 0; j < n; ++j) {
      ASSERT_NEAR(projected[static_cast<std::size_t>(j * LANES + l)],
                  expected[static_cast<std::size_t>(j)], 2e-6 * (1.0 + spread))
          << "n " << n << " lane " << l << " component " << j;
    }
  }
}

TEST(ProjectOntoSimplex, FindsTheNearestPoint) {
  for (const int n : {1, 2, 3, 5, 8, 17, 70}) {
    for (const float spread : {0.1f, 2.0f, 20.0f}) {
      expectNearestOnSimplex<1>(n, spread);
      expectNearestOnSimplex<16>(n, spread);
    }
  }
}

TEST(ProjectOntoSimplex, LeavesPointsOfTheSimplex) {
  float v[] = {0.25f, 0.5f, 0.25f};
  projectOntoSimplex<1>(v, 3);
  EXPECT_EQ(v[0], 0.25f);
  EXPECT_EQ(v[1], 0.5f);
  EXPECT_EQ(v[2], 0.25f);
}

TEST(ProjectOntoSimplex, RaisesAllZerosToEqualParts) {
  float v[] = {0.0f, 0.0f, 0.0f, 0.0f};
  projectOntoSimplex<1>(v, 4);
  for (float x : v) EXPECT_EQ(x, 0.25f);
}

TEST(ProjectOntoSimplex, WithoutComponentsDoesNothing) {
  float v[] = {7.0f};
  projectOntoSimplex<1>(v, 0);
  projectOntoSimplex<1>(v, -3);
  EXPECT_EQ(v[0], 7.0f);
}

TEST(ProjectOntoSimplex, ComponentsAtZeroAreNotActiveAfterTheFirstPass) {
  // First pass: mean (3 + 0 - 3 - 1) / 3, which clamps the last component only.
  float v[] = {3.0f, 0.0f, -3.0f};
  projectOntoSimplex<1>(v, 3);
  EXPECT_EQ(v[0], 1.0f);
  EXPECT_EQ(v[1], 0.0f);
  EXPECT_EQ(v[2], 0.0f);
}

// A lane that settled early stays as it is while others go on.
TEST(ProjectOntoSimplex, LanesDoNotInfluenceEachOther) {
  const float settled[] = {0.2f, 0.3f, 0.6f};
  const float wild[] = {9.0f, -8.0f, 8.5f};
  float alone[3];
  std::copy(settled, settled + 3, alone);
  projectOntoSimplex<1>(alone, 3);
  float both[6];
  for (int j = 0; j < 3; ++j) {
    both[2 * j] = settled[j];
    both[2 * j + 1] = wild[j];
  }
  projectOntoSimplex<2>(both, 3);
  for (int j = 0; j < 3; ++j) EXPECT_EQ(both[2 * j], alone[j]);
}

// The nearest point of y = x^2 / (4 d) by bisection on the cubic t^3/(8 d^2) + t (1 - y/(2 d)) = x.
double nearestOnParabola(double x, double y, double d) {
  const double target = std::abs(x);
  const auto slope = [&](double t) {
    return t * t * t / (8.0 * d * d) + t * (1.0 - y / (2.0 * d)) - target;
  };
  double low = y > 2.0 * d ? std::sqrt(8.0 * d * d * (y / (2.0 * d) - 1.0) / 3.0) : 0.0;
  double high = low + target + 1.0;
  while (slope(high) < 0.0) high *= 2.0;
  for (int k = 0; k < 300; ++k) {
    const double t = (low + high) / 2.0;
    (slope(t) < 0.0 ? low : high) = t;
  }
  return x >= 0.0 ? low : -low;
}

TEST(ProjectOntoParabola, FindsTheNearestPointInEveryBranch) {
  for (const float d : {1e-9f, 1e-6f, 1e-3f, 0.1f, 1.0f, 30.0f, 1e4f, 1e8f}) {
    for (const float x : {0.0f, 1e-6f, 1e-3f, 0.05f, 0.7f, 3.0f, 200.0f}) {
      for (const float y : {-300.0f, -2.0f, -0.3f, -1e-3f, 0.0f, 1e-5f, 0.01f, 0.4f, 5.0f}) {
        for (const float sign : {1.0f, -1.0f}) {
          const float sx = sign * x;
          const double limit = static_cast<double>(sx) * sx / (4.0 * static_cast<double>(d));
          if (y >= limit * (1.0 - 1e-6)) continue;  // inside
          const float2 p = projectOntoParabola(sx, y, d);
          const double expected = nearestOnParabola(sx, y, d);
          // The series far below is the least exact.
          EXPECT_NEAR(p.x, expected, 5e-4 * std::abs(expected) + 1e-14 * d)
              << "x " << sx << " y " << y << " d " << d;
          EXPECT_NEAR(p.y, static_cast<double>(p.x) * p.x / (4.0 * static_cast<double>(d)),
                      1e-5 * std::abs(p.y) + 1e-30);
        }
      }
    }
  }
}

TEST(ProjectOntoParabola, IsExactNearTheVertex) {
  const float d = 2.0f;
  for (const float x : {1e-4f, 0.003f, 0.0099f}) {
    for (const float y : {-0.0099f, -0.005f, -1e-4f, 0.0f}) {
      const double expected = nearestOnParabola(x, y, d);
      EXPECT_NEAR(projectOntoParabola(x, y, d).x, expected, 3e-7 * expected)
          << "x " << x << " y " << y;
    }
  }
}

// Beside the thresholds of the series the exact point and the series round differently here and
// there, which tells them apart.
using Formula = float (*)(float x, float y, float d);

float seriesNearTheApex(float x, float y, float d) {
  const float X = x / d, Y = y / d;
  return x * (1.0f + Y / 2.0f + (2.0f * Y * Y - X * X) / 8.0f + Y * (Y * Y - 2.0f * X * X) / 8.0f);
}

float seriesFarAbove(float x, float y, float d) {
  const float k = std::sqrt(d / (y * y * y));
  const float A = k * y, B = std::abs(x) * k;
  const float S =
      1.0f + B / 2.0f - (3.0f * B * B + 8.0f * A * A) / 8.0f + B * (B * B + 2.0f * A * A) / 2.0f;
  return x >= 0.0f ? 2.0f * y * y * k * S : -(2.0f * y * y * k * S);
}

float seriesFarBelow(float x, float y, float d) {
  const float k = -d / (y * y * y);
  return (k * (2.0f * x * y * y)) * (1.0f - k * (x * x + 2.0f * y * y));
}

float exactlyNearest(float x, float y, float d) {
  return static_cast<float>(nearestOnParabola(x, y, d));
}

// Of points that lie outside the parabola, how many are projected as formula says, and how many as
// the exact point says, where these two differ.
struct Votes {
  int formula = 0, exact = 0;
};

void vote(Votes& votes, Formula formula, float x, float y, float d) {
  if (y >= x * (x * (1.0f / (4.0f * d)))) return;
  const float series = formula(x, y, d);
  const float exact = exactlyNearest(x, y, d);
  if (series == exact) return;
  const float got = projectOntoParabola(x, y, d).x;
  votes.formula += got == series;
  votes.exact += got == exact;
}

void expectOnly(int some, int none) {
  EXPECT_GT(some, 20);
  EXPECT_EQ(none, 0);
}

// Each of the two conditions |x| <= 0.005 d, |y| <= 0.005 d, from just inside and just outside.
TEST(ProjectOntoParabola, TheSeriesNearTheApexEndsAtItsThresholds) {
  Votes inside, outsideX, outsideY;
  for (int k = 0; k < 1000; ++k) {
    const float d = 0.5f + 0.01f * static_cast<float>(k);
    const float y = -0.001f * d;
    vote(inside, seriesNearTheApex, 0.00499f * d, y, d);
    vote(inside, seriesNearTheApex, 0.003f * d, -0.00499f * d, d);
    vote(outsideX, seriesNearTheApex, 0.00501f * d, y, d);
    vote(outsideY, seriesNearTheApex, 0.003f * d, -0.00501f * d, d);
  }
  expectOnly(inside.formula, inside.exact);
  expectOnly(outsideX.exact, outsideX.formula);
  expectOnly(outsideY.exact, outsideY.formula);
}

// Conditions d x^2 <= 2.5e-5 y^3, d <= 2.5e-5 y, y > 0.
TEST(ProjectOntoParabola, TheSeriesFarAboveEndsAtItsThresholds) {
  Votes inside, outsideX, outsideD;
  for (int k = 0; k < 1000; ++k) {
    const float y = 0.5f + 0.01f * static_cast<float>(k);
    const float narrow = 1e-5f * y;
    const float edge = std::sqrt(2.5e-5f * y * y * y / narrow);
    vote(inside, seriesFarAbove, 0.999f * edge, y, narrow);
    vote(inside, seriesFarAbove, -0.999f * edge, y, narrow);
    vote(outsideX, seriesFarAbove, 1.001f * edge, y, narrow);
    const float wide = 2.505e-5f * y;
    const float x = 0.99f * std::sqrt(2.5e-5f * y * y * y / wide);
    vote(outsideD, seriesFarAbove, x, y, wide);
    vote(inside, seriesFarAbove, x, y, 2.495e-5f * y);
  }
  expectOnly(inside.formula, inside.exact);
  expectOnly(outsideX.exact, outsideX.formula);
  expectOnly(outsideD.exact, outsideD.formula);
}

// Conditions d x^2 <= 0.005 (-y^3), d <= 0.005 (-y), y < 0.
TEST(ProjectOntoParabola, TheSeriesFarBelowEndsAtItsThresholds) {
  Votes inside, outsideX, outsideD;
  for (int k = 0; k < 1000; ++k) {
    const float y = -0.5f - 0.01f * static_cast<float>(k);
    const float d = -0.004f * y;
    const float edge = std::sqrt(-0.005f * y * y * y / d);
    vote(inside, seriesFarBelow, 0.999f * edge, y, d);
    vote(outsideX, seriesFarBelow, 1.001f * edge, y, d);
    vote(inside, seriesFarBelow, -0.5f * y, y, -0.00499f * y);
    vote(outsideD, seriesFarBelow, -0.5f * y, y, -0.00501f * y);
  }
  expectOnly(inside.formula, inside.exact);
  expectOnly(outsideX.exact, outsideX.formula);
  expectOnly(outsideD.exact, outsideD.formula);
}

TEST(ProjectOntoParabola, KeepsPointsInside) {
  for (const float y : {0.5f, 0.25f}) {  // 0.25 lies on the parabola
    const float2 p = projectOntoParabola(1.0f, y, 1.0f);
    EXPECT_EQ(p.x, 1.0f);
    EXPECT_EQ(p.y, y);
  }
  const float2 justInside = projectOntoParabola(3.0f, 2.5f, 1.0f);
  EXPECT_EQ(justInside.x, 3.0f);
  EXPECT_EQ(justInside.y, 2.5f);
}

TEST(ProjectOntoParabola, OfInfiniteWidthClampsYOnly) {
  const float2 below = projectOntoParabola(3.0f, -2.0f, FLT_MAX);
  EXPECT_EQ(below.x, 3.0f);
  EXPECT_EQ(below.y, 0.0f);
  const float2 above = projectOntoParabola(3.0f, 2.0f, FLT_MAX);
  EXPECT_EQ(above.x, 3.0f);
  EXPECT_EQ(above.y, 2.0f);
}

TEST(ProjectOntoParabola, OfNoWidthIsTheUpperAxis) {
  for (const float d : {0.0f, 9e-13f}) {
    const float2 p = projectOntoParabola(3.0f, -2.0f, d);
    EXPECT_EQ(p.x, 0.0f);
    EXPECT_EQ(p.y, 0.0f);
    EXPECT_EQ(projectOntoParabola(3.0f, 2.0f, d).y, 2.0f);
  }
}

TEST(ProjectOntoParabola, HasWidthFromOneTrillionthOn) {
  EXPECT_GT(projectOntoParabola(3.0f, 2.0f, 1.01e-12f).x, 1e-6f);
  EXPECT_EQ(projectOntoParabola(3.0f, 2.0f, 0.99e-12f).x, 0.0f);
}

TEST(ProjectOntoIntervalCone, FindsTheNearestPoint) {
  const auto inside = [](double x, double y, double lo, double hi) {
    return y >= lo * x - 1e-6 && y >= hi * x - 1e-6;
  };
  std::mt19937 generator(5);
  const auto uniform = [&] { return static_cast<double>(generator()) * 0x1p-31 - 1.0; };
  for (int k = 0; k < 300; ++k) {
    double lo = std::abs(uniform());
    double hi = std::abs(uniform());
    if (lo > hi) std::swap(lo, hi);
    const double x = 3.0 * uniform();
    const double y = 3.0 * uniform();
    const float2 p = projectOntoIntervalCone(static_cast<float>(x), static_cast<float>(y),
                                             static_cast<float>(lo), static_cast<float>(hi));
    // Candidates: the point itself, the two rays' nearest points, the apex.
    double best = inside(x, y, lo, hi) ? 0.0 : std::hypot(x, y);
    for (const double slope : {lo, hi}) {
      const double s = (x + slope * y) / (1.0 + slope * slope);
      if (inside(s, slope * s, lo, hi)) best = std::min(best, std::hypot(x - s, y - slope * s));
    }
    EXPECT_TRUE(inside(p.x, p.y, lo, hi)) << "case " << k;
    EXPECT_NEAR(std::hypot(x - p.x, y - p.y), best, 1e-5) << "case " << k;
  }
}

}  // namespace
}  // namespace namespace_ratseg
