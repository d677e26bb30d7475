// The per-pixel kernels, launched on the device under test.

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "algorithms/rat_segments/alg/kernels/labeling_kernels.h"
#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "device/runtime.h"
#include "support/device_values.h"
#include "support/machine.h"

namespace namespace_ratseg {
namespace {

std::vector<float> randomFloats(std::size_t count, unsigned seed, float lo = 0.0f,
                                float hi = 1.0f) {
  std::mt19937 generator(seed);
  std::vector<float> values(count);
  for (float& v : values) {
    v = lo + (hi - lo) * static_cast<float>(generator() >> 8) * 0x1p-24f;
  }
  return values;
}

std::vector<float2> randomVectors(std::size_t count, unsigned seed, float lo, float hi) {
  const std::vector<float> parts = randomFloats(2 * count, seed, lo, hi);
  std::vector<float2> values(count);
  for (std::size_t k = 0; k < count; ++k) values[k] = {parts[2 * k], parts[2 * k + 1]};
  return values;
}

// A band of rows [ymin, ymax) of a w x h image with n labels.
struct Band {
  std::size_t w, h, n, ymin, ymax;

  std::size_t rows() const { return ymax - ymin; }
  std::size_t plane() const { return w * (rows() + 1); }
  std::size_t uAt(std::size_t x, std::size_t y, std::size_t i) const {
    return i * plane() + y * w + x;
  }
  std::size_t pAt(std::size_t x, std::size_t y, std::size_t i) const {
    return i * plane() + (y + 1) * w + x;
  }
  LaunchShape shape() const {
    LaunchShape s;
    s.block = {16, 2, 1};
    s.grid = {static_cast<unsigned>((w + 15) / 16), static_cast<unsigned>((rows() + 1) / 2), 1};
    s.sharedBytes = 16 * 2 * 4 * n;
    return s;
  }
};

const std::vector<Band>& bands() {
  // 1 x 1, one row, one column, one lane more and less than a tile, first, middle and last bands
  static const std::vector<Band> list = {
      {1, 1, 3, 0, 1},  {40, 1, 3, 0, 1}, {1, 9, 3, 0, 9},    {15, 5, 2, 0, 5},
      {16, 5, 2, 0, 5}, {17, 5, 2, 0, 5}, {18, 5, 1, 0, 5},   {33, 8, 4, 0, 3},
      {33, 8, 4, 3, 6}, {33, 8, 4, 6, 8}, {5, 70, 3, 20, 50}, {130, 4, 7, 1, 2},
  };
  return list;
}

class LabelingKernels : public DeviceTest {
 protected:
  void TearDown() override {
    if (IsSkipped()) return;
    EXPECT_EQ(cudaGetLastError(), cudaSuccess);
  }
};

// p after one dual step, in double, straight from the formula.
void expectDualStep(const Band& b, const std::vector<float>& u, const std::vector<float2>& before,
                    const std::vector<float>& weight, float lambda, float dt,
                    const std::vector<float2>& after) {
  for (std::size_t i = 0; i < b.n; ++i) {
    for (std::size_t x = 0; x < b.w; ++x) {
      ASSERT_EQ(after[i * b.plane() + x].x, before[i * b.plane() + x].x) << "halo row is kept";
      for (std::size_t y = 0; y < b.rows(); ++y) {
        const double here = u[b.uAt(x, y, i)];
        const double dx = x + 1 < b.w ? u[b.uAt(x + 1, y, i)] - here : 0.0;
        const double dy = b.ymin + y + 1 < b.h ? u[b.uAt(x, y + 1, i)] - here : 0.0;
        const float2 q = before[b.pAt(x, y, i)];
        double px = q.x + dt / 2.0 * dx;
        double py = q.y + dt / 2.0 * dy;
        const double g = weight.empty() ? 1.0 : weight[y * b.w + x];
        const bool unbounded = lambda >= FLT_MAX || (g >= FLT_MAX && lambda > 0);
        if (!unbounded) {
          const double r = g * lambda / 2.0;
          const double shrink = r == 0.0 ? 0.0 : 1.0 / std::max(std::hypot(px, py) / r, 1.0);
          px *= shrink;
          py *= shrink;
        }
        const float2 got = after[b.pAt(x, y, i)];
        ASSERT_NEAR(got.x, px, 2e-6) << "x " << x << " y " << y << " label " << i;
        ASSERT_NEAR(got.y, py, 2e-6) << "x " << x << " y " << y << " label " << i;
      }
    }
  }
}

void testDualStep(const Band& b, float lambda, std::vector<float> weight) {
  SCOPED_TRACE(testing::Message() << b.w << "x" << b.h << " rows " << b.ymin << "-" << b.ymax
                                  << " lambda " << lambda);
  const std::vector<float> u = randomFloats(b.plane() * b.n, 1);
  const std::vector<float2> p = randomVectors(b.plane() * b.n, 2, -0.5f, 0.5f);
  const DeviceValues<float2> dp(p);
  const DeviceFloats du(u);
  const DeviceFloats dw(weight.empty() ? std::vector<float>(1) : weight);
  float* weightHat = weight.empty() ? nullptr : static_cast<float*>(dw);
  ratSegKernels().ratseg_dual_p(b.shape(), dp, du, weightHat, lambda, 0.75f, b.w, b.h, b.ymin,
                                b.ymax, b.n);
  expectDualStep(b, u, p, weight, lambda, 0.75f, dp.values());
}

TEST_F(LabelingKernels, DualStepFollowsTheFormulaOnEveryBandAndBorder) {
  for (const Band& b : bands()) {
    testDualStep(b, 0.9f, randomFloats(b.w * b.rows(), 3, 0.1f, 1.0f));
    testDualStep(b, 0.9f, {});
  }
}

TEST_F(LabelingKernels, DualStepWithoutLambdaSetsPToZero) {
  for (const Band& b : bands()) testDualStep(b, 0.0f, randomFloats(b.w * b.rows(), 3));
}

TEST_F(LabelingKernels, DualStepWithoutLambdaForgetsWhatIsNotANumber) {
  const Band b = {20, 3, 2, 0, 3};
  std::vector<float> u = randomFloats(b.plane() * b.n, 1);
  u[b.uAt(5, 1, 0)] = std::numeric_limits<float>::quiet_NaN();
  u[b.uAt(9, 2, 1)] = std::numeric_limits<float>::infinity();
  const DeviceFloats du(u);
  const DeviceValues<float2> dp(randomVectors(b.plane() * b.n, 2, -0.5f, 0.5f));
  ratSegKernels().ratseg_dual_p(b.shape(), dp, du, nullptr, 0.0f, 1.0f, b.w, b.h, 0, 3, b.n);
  const std::vector<float2> p = dp.values();
  for (std::size_t k = 0; k < 60; ++k) {
    ASSERT_EQ(p[b.pAt(k % 20, k / 20, 0)].x, 0.0f);
    ASSERT_EQ(p[b.pAt(k % 20, k / 20, 0)].y, 0.0f);
    ASSERT_EQ(p[b.pAt(k % 20, k / 20, 1)].x, 0.0f);
    ASSERT_EQ(p[b.pAt(k % 20, k / 20, 1)].y, 0.0f);
  }
}

TEST_F(LabelingKernels, DualStepWithoutLambdaIsZeroWhateverTheWeight) {
  const Band b = {20, 3, 1, 0, 3};
  const DeviceFloats du(randomFloats(b.plane(), 1));
  const DeviceFloats dw(std::vector<float>(60, std::numeric_limits<float>::infinity()));
  const DeviceValues<float2> dp(randomVectors(b.plane(), 2, -0.5f, 0.5f));
  ratSegKernels().ratseg_dual_p(b.shape(), dp, du, dw, 0.0f, 1.0f, b.w, b.h, 0, 3, 1);
  const std::vector<float2> p = dp.values();
  for (std::size_t k = b.w; k < p.size(); ++k) {
    ASSERT_EQ(p[k].x, 0.0f);
    ASSERT_EQ(p[k].y, 0.0f);
  }
}

TEST_F(LabelingKernels, AWeightOfFltMaxIsNoBoundHoweverSmallLambdaIs) {
  const Band b = {20, 3, 1, 0, 3};
  const DeviceFloats du(std::vector<float>(b.plane(), 0.5f));
  const DeviceFloats dw(std::vector<float>(60, FLT_MAX));
  const DeviceValues<float2> dp(std::vector<float2>(b.plane(), {30.0f, -40.0f}));
  ratSegKernels().ratseg_dual_p(b.shape(), dp, du, dw, 1e-38f, 1.0f, b.w, b.h, 0, 3, 1);
  for (const float2& p : dp.values()) {
    ASSERT_EQ(p.x, 30.0f);
    ASSERT_EQ(p.y, -40.0f);
  }
}

TEST_F(LabelingKernels, DualStepWithLambdaAtFltMaxIsUnbounded) {
  for (const Band& b : bands()) testDualStep(b, FLT_MAX, randomFloats(b.w * b.rows(), 3));
}

TEST_F(LabelingKernels, AWeightOfFltMaxFreesItsPixel) {
  const Band b = {20, 3, 2, 0, 3};
  std::vector<float> weight(60, 0.01f);
  weight[25] = FLT_MAX;
  testDualStep(b, 0.5f, weight);
  testDualStep(b, 0.0f, weight);  // but not without lambda
}

TEST_F(LabelingKernels, AWeightOfZeroHoldsItsPixelAtZero) {
  const Band b = {20, 3, 2, 0, 3};
  std::vector<float> weight(60, 1.0f);
  weight[25] = 0.0f;
  testDualStep(b, 0.5f, weight);
}

// The projection of the mean-subtraction scheme in double.
std::vector<double> project(std::vector<double> v) {
  std::vector<bool> active(v.size(), true);
  for (std::size_t pass = 0; pass < v.size(); ++pass) {
    double sum = 0.0;
    double count = 0.0;
    for (std::size_t j = 0; j < v.size(); ++j) {
      active[j] = pass == 0 || v[j] > 0.0;
      if (active[j]) sum += v[j], count += 1.0;
    }
    const double m = count > 0.0 ? (sum - 1.0) / count : 0.0;
    bool clamped = false;
    for (std::size_t j = 0; j < v.size(); ++j) {
      if (!active[j]) continue;
      v[j] -= m;
      if (v[j] < 0.0) v[j] = 0.0, clamped = true;
    }
    if (!clamped) break;
  }
  return v;
}

struct PrimalData {
  std::vector<float> u, u_bar, gamma, rho;
  std::vector<float2> p;
};

PrimalData randomPrimalData(const Band& b) {
  PrimalData d;
  d.u = randomFloats(b.plane() * b.n, 11);
  d.u_bar = randomFloats(b.plane() * b.n, 12);
  d.p = randomVectors(b.plane() * b.n, 13, -1.0f, 1.0f);
  d.gamma = randomFloats(b.n, 14, -1.0f, 1.0f);
  d.rho = randomFloats(b.w * b.rows() * b.n, 15, 0.0f, 3.0f);
  return d;
}

void testPrimalStep(const Band& b, PrimalData d, float theta_bar, float dt) {
  SCOPED_TRACE(testing::Message() << b.w << "x" << b.h << " rows " << b.ymin << "-" << b.ymax);
  const DeviceFloats du(d.u);
  const DeviceFloats dub(d.u_bar);
  const DeviceValues<float2> dp(d.p);
  const DeviceFloats dg(d.gamma);
  const DeviceFloats dr(d.rho);
  const float constGamma = 1.5f * static_cast<float>(b.w * b.h);
  ratSegKernels().ratseg_prim_u(b.shape(), du, dub, dp, dg, constGamma, dr, theta_bar, dt, b.w, b.h,
                                b.ymin, b.ymax, b.n);
  const std::vector<float> u = du.values();
  const std::vector<float> u_bar = dub.values();
  const double tau = dt / (1.5 + 4.0);
  for (std::size_t x = 0; x < b.w; ++x) {
    for (std::size_t i = 0; i < b.n; ++i) {
      ASSERT_EQ(u[b.uAt(x, b.rows(), i)], d.u[b.uAt(x, b.rows(), i)]) << "halo row is kept";
    }
    for (std::size_t y = 0; y < b.rows(); ++y) {
      std::vector<double> v(b.n);
      for (std::size_t i = 0; i < b.n; ++i) {
        const float2 q = d.p[b.pAt(x, y, i)];
        double div = 0.0;
        if (x + 1 < b.w) div += q.x;
        if (x > 0) div -= d.p[b.pAt(x - 1, y, i)].x;
        if (b.ymin + y + 1 < b.h) div += q.y;
        if (b.ymin + y > 0) div -= d.p[b.pAt(x, y, i) - b.w].y;
        const double r = d.rho[i * b.w * b.rows() + y * b.w + x];
        v[i] = r >= FLT_MAX    ? 0.0
               : r <= -FLT_MAX ? 1.0
                               : d.u[b.uAt(x, y, i)] + tau * (div + d.gamma[i] * 1.5 - r);
      }
      const std::vector<double> fresh = project(v);
      for (std::size_t i = 0; i < b.n; ++i) {
        const std::size_t k = b.uAt(x, y, i);
        ASSERT_NEAR(u[k], fresh[i], 3e-6) << "x " << x << " y " << y << " label " << i;
        ASSERT_NEAR(u_bar[k], fresh[i] + theta_bar * (fresh[i] - d.u[k]), 6e-6);
      }
    }
  }
}

TEST_F(LabelingKernels, PrimalStepFollowsTheFormulaOnEveryBandAndBorder) {
  for (const Band& b : bands()) testPrimalStep(b, randomPrimalData(b), 1.0f, 1.0f);
}

TEST_F(LabelingKernels, PrimalStepScalesWithDtAndOverRelaxesByTheta) {
  const Band b = {33, 8, 4, 3, 6};
  testPrimalStep(b, randomPrimalData(b), 0.25f, 0.5f);
  testPrimalStep(b, randomPrimalData(b), 0.0f, 2.0f);
}

TEST_F(LabelingKernels, ForbiddenAndForcedLabelsEnterTheProjectionAtZeroAndOne) {
  for (const Band& b : bands()) {
    PrimalData d = randomPrimalData(b);
    for (std::size_t k = 0; k < d.rho.size(); ++k) {
      if (k % 5 == 1) d.rho[k] = FLT_MAX;
      if (k % 7 == 2) d.rho[k] = -FLT_MAX;
      if (k % 11 == 3) d.rho[k] = std::numeric_limits<float>::infinity();
    }
    testPrimalStep(b, d, 1.0f, 1.0f);
  }
}

TEST_F(LabelingKernels, EveryLabelForbiddenGivesEqualParts) {
  const Band b = {5, 3, 4, 0, 3};
  PrimalData d = randomPrimalData(b);
  std::fill(d.rho.begin(), d.rho.end(), FLT_MAX);
  const DeviceFloats du(d.u);
  const DeviceFloats dub(d.u_bar);
  const DeviceValues<float2> dp(d.p);
  const DeviceFloats dg(d.gamma);
  const DeviceFloats dr(d.rho);
  ratSegKernels().ratseg_prim_u(b.shape(), du, dub, dp, dg, 15.0f, dr, 1.0f, 1.0f, b.w, b.h, 0, 3,
                                4);
  for (std::size_t i = 0; i < 4; ++i) {
    for (std::size_t k = 0; k < 15; ++k) EXPECT_EQ(du.values()[i * b.plane() + k], 0.25f);
  }
}

TEST_F(LabelingKernels, OneLabelIsOneEverywhere) {
  const Band b = {18, 5, 1, 0, 5};
  const PrimalData d = randomPrimalData(b);
  const DeviceFloats du(d.u);
  const DeviceFloats dub(d.u_bar);
  const DeviceValues<float2> dp(d.p);
  const DeviceFloats dg(d.gamma);
  const DeviceFloats dr(d.rho);
  ratSegKernels().ratseg_prim_u(b.shape(), du, dub, dp, dg, 90.0f, dr, 1.0f, 1.0f, b.w, b.h, 0, 5,
                                1);
  const std::vector<float> u = du.values();
  for (std::size_t k = 0; k < 90; ++k) ASSERT_NEAR(u[k], 1.0f, 1e-6f);
}

TEST_F(LabelingKernels, NegativeRadiiDoNotBind) {
  const Band b = {20, 3, 2, 0, 3};
  const std::vector<float> u = randomFloats(b.plane() * b.n, 1);
  const std::vector<float2> p = randomVectors(b.plane() * b.n, 2, -5.0f, 5.0f);
  const DeviceFloats du(u);
  const DeviceValues<float2> bound(p);
  const DeviceValues<float2> free(p);
  ratSegKernels().ratseg_dual_p(b.shape(), bound, du, nullptr, -0.5f, 1.0f, b.w, b.h, 0, 3, b.n);
  ratSegKernels().ratseg_dual_p(b.shape(), free, du, nullptr, FLT_MAX, 1.0f, b.w, b.h, 0, 3, b.n);
  const std::vector<float2> got = bound.values(), expected = free.values();
  for (std::size_t k = 0; k < got.size(); ++k) {
    ASSERT_EQ(got[k].x, expected[k].x);
    ASSERT_EQ(got[k].y, expected[k].y);
  }
}

TEST_F(LabelingKernels, ManyLabelsFitASmallBlock) {
  Band b = {3, 2, 1024, 0, 2};
  const PrimalData d = randomPrimalData(b);
  const DeviceFloats du(d.u);
  const DeviceFloats dub(d.u_bar);
  const DeviceValues<float2> dp(d.p);
  const DeviceFloats dg(d.gamma);
  const DeviceFloats dr(d.rho);
  const LaunchShape shape = {{1, 2, 1}, {8, 1, 1}, 8 * 4 * 1024};
  ratSegKernels().ratseg_prim_u(shape, du, dub, dp, dg, 6.0f, dr, 1.0f, 1.0f, 3, 2, 0, 2, 1024);
  const std::vector<float> u = du.values();
  for (std::size_t k = 0; k < 6; ++k) {
    double sum = 0.0;
    for (std::size_t i = 0; i < 1024; ++i) sum += u[i * b.plane() + k];
    EXPECT_NEAR(sum, 1.0, 1e-4);
  }
}

TEST_F(LabelingKernels, HaloCopiesMoveOneRowPerLabel) {
  const std::size_t w = 5, n = 3, above = 4, below = 2;
  const std::vector<float> upper = randomFloats(w * (above + 1) * n, 21);
  const std::vector<float> lower = randomFloats(w * (below + 1) * n, 22);
  const LaunchShape shape = {{1, 3, 1}, {32, 1, 1}, 0};

  const DeviceFloats dst(upper);
  const DeviceFloats src(lower);
  ratSegKernels().ratseg_copyFirstToLast(shape, dst, src, w, above, below, n);
  std::vector<float> expected = upper;
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t x = 0; x < w; ++x) {
      expected[i * w * (above + 1) + above * w + x] = lower[i * w * (below + 1) + x];
    }
  }
  EXPECT_EQ(dst.values(), expected);

  const std::vector<float2> top = randomVectors(w * (above + 1) * n, 23, 0, 1);
  const std::vector<float2> bottom = randomVectors(w * (below + 1) * n, 24, 0, 1);
  const DeviceValues<float2> to(bottom);
  const DeviceValues<float2> from(top);
  ratSegKernels().ratseg_copyLastToFirst(shape, to, from, w, below, above, n);
  const std::vector<float2> got = to.values();
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t row = 0; row <= below; ++row) {
      for (std::size_t x = 0; x < w; ++x) {
        const std::size_t k = i * w * (below + 1) + row * w + x;
        const float2 want = row == 0 ? top[i * w * (above + 1) + above * w + x] : bottom[k];
        ASSERT_EQ(got[k].x, want.x);
        ASSERT_EQ(got[k].y, want.y);
      }
    }
  }
}

TEST_F(LabelingKernels, LocalSolutionMarksTheLowestOfEqualLabels) {
  const Band b = {20, 3, 4, 0, 3};
  std::vector<float> rho(60 * b.n, 2.0f);
  std::fill(rho.begin(), rho.begin() + 60, 3.0f);
  const DeviceFloats du(std::vector<float>(b.plane() * b.n));
  const DeviceFloats dr(rho);
  ratSegKernels().ratseg_setLocalSolution_kernel(b.shape(), du, dr, b.w, b.h, 0, 3, b.n);
  const std::vector<float> u = du.values();
  for (std::size_t i = 0; i < b.n; ++i) {
    for (std::size_t k = 0; k < 60; ++k) ASSERT_EQ(u[i * b.plane() + k], i == 1 ? 1.0f : 0.0f);
  }
}

TEST_F(LabelingKernels, LocalSolutionMarksTheLeastCost) {
  const Band b = {33, 8, 4, 3, 6};
  const std::vector<float> rho = randomFloats(b.w * b.rows() * b.n, 31);
  const DeviceFloats du(std::vector<float>(b.plane() * b.n, 9.0f));
  const DeviceFloats dr(rho);
  ratSegKernels().ratseg_setLocalSolution_kernel(b.shape(), du, dr, b.w, b.h, b.ymin, b.ymax, b.n);
  const std::vector<float> u = du.values();
  const std::size_t pixels = b.w * b.rows();
  for (std::size_t k = 0; k < pixels; ++k) {
    std::size_t best = 0;
    for (std::size_t i = 1; i < b.n; ++i) {
      if (rho[i * pixels + k] < rho[best * pixels + k]) best = i;
    }
    for (std::size_t i = 0; i < b.n; ++i) {
      ASSERT_EQ(u[i * b.plane() + k], i == best ? 1.0f : 0.0f);
    }
  }
  for (std::size_t x = 0; x < b.w; ++x) {
    EXPECT_EQ(u[b.uAt(x, b.rows(), 0)], 9.0f) << "halo row is kept";
  }
}

// A wide tile and single pixels give the same bits: tails and borders are no seams.
TEST(LabelingTiles, WidthChangesNoBit) {
  const Band b = {40, 3, 5, 0, 3};
  const PrimalData d = randomPrimalData(b);
  std::vector<float> scratch(16 * b.n);
  std::vector<float> wide = d.u, wideBar = d.u_bar, single = d.u, singleBar = d.u_bar;
  tile::ratseg_prim_u<16>(wide.data(), wideBar.data(), d.p.data(), d.gamma.data(), 120.0f,
                          d.rho.data(), 1.0f, 1.0f, b.w, b.h, 0, 3, b.n, 7, 1, true, true,
                          scratch.data());
  std::vector<float2> wideP = d.p, singleP = d.p;
  const std::vector<float> weight = randomFloats(120, 5);
  tile::ratseg_dual_p<16>(wideP.data(), d.u.data(), weight.data(), 0.9f, 1.0f, b.w, b.h, 0, 3, b.n,
                          7, 1, true);
  for (std::size_t x = 7; x < 23; ++x) {
    tile::ratseg_prim_u<1>(single.data(), singleBar.data(), d.p.data(), d.gamma.data(), 120.0f,
                           d.rho.data(), 1.0f, 1.0f, b.w, b.h, 0, 3, b.n, x, 1, true, true,
                           scratch.data());
    tile::ratseg_dual_p<1>(singleP.data(), d.u.data(), weight.data(), 0.9f, 1.0f, b.w, b.h, 0, 3,
                           b.n, x, 1, true);
  }
  EXPECT_EQ(wide, single);
  EXPECT_EQ(wideBar, singleBar);
  for (std::size_t k = 0; k < wideP.size(); ++k) {
    ASSERT_EQ(wideP[k].x, singleP[k].x);
    ASSERT_EQ(wideP[k].y, singleP[k].y);
  }
}

}  // namespace
}  // namespace namespace_ratseg
