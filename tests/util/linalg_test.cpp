#include "util/linalg.h"

#include <gtest/gtest.h>

#include <cmath>

#include <cfloat>
#include <limits>

namespace namespace_ratseg {
namespace {

void expectPoint(const float2& p, float x, float y) {
  EXPECT_FLOAT_EQ(p.x, x);
  EXPECT_FLOAT_EQ(p.y, y);
}

TEST(ClampToDisc, KeepsPointsOfTheDisc) {
  expectPoint(clampToDisc(0.3f, -0.4f, 0.5f), 0.3f, -0.4f);
  expectPoint(clampToDisc(0.0f, 0.0f, 1.0f), 0.0f, 0.0f);
}

TEST(ClampToDisc, PullsPointsOutsideOntoTheCircle) {
  expectPoint(clampToDisc(3.0f, -4.0f, 1.0f), 0.6f, -0.8f);
  expectPoint(clampToDisc(3.0f, -4.0f, 2.5f), 1.5f, -2.0f);
}

TEST(ClampToDisc, RadiusZeroIsTheOrigin) {
  expectPoint(clampToDisc(3.0f, -4.0f, 0.0f), 0.0f, 0.0f);
  expectPoint(clampToDisc(0.0f, 0.0f, 0.0f), 0.0f, 0.0f);
  expectPoint(clampToDisc(INFINITY, 1.0f, 0.0f), 0.0f, 0.0f);
  expectPoint(clampToDisc(1.0f, -INFINITY, 0.0f), 0.0f, 0.0f);
}

TEST(ClampToDisc, RadiusZeroIsTheOriginOfWhateverIsNotANumberToo) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  constexpr float inf = std::numeric_limits<float>::infinity();
  expectPoint(clampToDisc(nan, inf, 0.0f), 0.0f, 0.0f);
  expectPoint(clampToDisc(-inf, nan, 0.0f), 0.0f, 0.0f);
}

TEST(ClampToDisc, RadiusFltMaxIsNoBound) {
  expectPoint(clampToDisc(1e30f, -1e30f, FLT_MAX), 1e30f, -1e30f);
}

}  // namespace
}  // namespace namespace_ratseg
