// The exact step of the shares, launched on the device under test, against the reference.

#include "algorithms/rat_segments/alg/kernels/exact_shares_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "device/runtime.h"
#include "reference/reference_shares.h"
#include "support/device_values.h"
#include "support/machine.h"
#include "support/random_trial.h"

namespace namespace_ratseg {
namespace {

constexpr LaunchShape kOneWarp = {{1, 1, 1}, {32, 1, 1}};

using Floats = std::vector<float>;

// An upper bound and the state before the step.
struct Shares {
  std::size_t pixels = 5000;
  float mu = 500.0f, eps = 10.0f, step = 4.0f;
  std::size_t ind_bgr = 0;
  Floats ratios, sigmas, means, gamma, before;
};

struct Stepped {
  Floats a, a_bar, gamma, alpha, beta;
};

Stepped step(const Shares& s) {
  const std::size_t n = s.ratios.size();
  Floats sums = s.means;
  for (float& x : sums) x *= static_cast<float>(s.pixels);
  const DeviceFloats a(s.before), a_bar(Floats(n, 7.0f)), gamma(s.gamma);
  const DeviceFloats alpha(Floats(n, 7.0f)), beta(Floats(n, 7.0f));
  const DeviceFloats sum_u(sums), ratios(s.ratios), sigmas(s.sigmas);
  ratSegKernels().ratseg_exact_shares(kOneWarp, a, a_bar, gamma, alpha, beta, a, gamma, sum_u,
                                      s.pixels, s.mu, s.eps, ratios, sigmas, s.ind_bgr, s.step, n);
  return {a.values(), a_bar.values(), gamma.values(), alpha.values(), beta.values()};
}

std::vector<double> expectedShares(const Shares& s) {
  ReferenceProblem p;
  p.w = s.pixels;
  p.h = 1;
  p.n = s.ratios.size();
  p.mu = static_cast<double>(s.mu);
  p.eps = static_cast<double>(s.eps);
  p.ind_bgr = s.ind_bgr;
  std::vector<double> q;
  for (std::size_t i = 0; i < p.n; ++i) {
    p.ratios.push_back(static_cast<double>(s.ratios[i]));
    p.sigmas.push_back(static_cast<double>(s.sigmas[i]));
    q.push_back(static_cast<double>(s.means[i]) -
                static_cast<double>(s.gamma[i]) / static_cast<double>(s.step));
  }
  return referenceExactShares(p, q, static_cast<double>(s.step));
}

Shares randomShares(Choices& choose, std::size_t n) {
  Shares s;
  s.pixels = choose.oneOf<std::size_t>({1, 300, 20000, 4000000});
  s.mu = choose.oneOf<float>({0.0f, 0.1f, 50.0f, 500.0f, 20000.0f, -1.0f, FLT_MAX});
  s.eps = choose.chance(0.1) ? 0.0f : choose.oneOf<float>({1e-3f, 0.5f, 10.0f, 1000.0f});
  s.step = choose.oneOf<float>({0.01f, 0.5f, 4.0f, 300.0f});
  s.ind_bgr = choose.number(0, n - 1);
  for (std::size_t i = 0; i < n; ++i) {
    s.ratios.push_back(choose.between(0.01f, 2.0f) / static_cast<float>(n));
    s.sigmas.push_back(choose.chance(0.1) ? 0.0f : choose.between(0.005f, 0.3f));
    s.means.push_back(choose.between(-0.1f, 1.2f));
    s.gamma.push_back(choose.between(-1.0f, 1.0f) * choose.oneOf<float>({0.0f, 0.1f, 5.0f}));
    s.before.push_back(choose.between(-1.0f, 3.0f));
  }
  return s;
}

class ShareStep : public DeviceTest {
 protected:
  void TearDown() override {
    if (IsSkipped()) return;
    EXPECT_EQ(cudaGetLastError(), cudaSuccess);
  }

  static void expectStep(const Shares& s) {
    const std::vector<double> expected = expectedShares(s);
    const Stepped got = step(s);
    EXPECT_EQ(got.a_bar, got.a);
    const auto gain = static_cast<double>(s.step);
    double size = 1.0;  // of what goes into the step
    for (const float g : s.gamma) size = std::max(size, std::abs(static_cast<double>(g)) / gain);
    for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_NEAR(got.a[i], expected[i], 1e-6 * size) << "share of label " << i;
      const double moved = expected[i] - static_cast<double>(s.means[i]);
      EXPECT_NEAR(got.gamma[i], static_cast<double>(s.gamma[i]) + gain * moved, 1e-6 * gain * size)
          << "gamma of label " << i;
    }
  }
};

TEST_F(ShareStep, FindsTheLeastValueForAnyNumberOfLabelsAndAnyParameters) {
  for (unsigned seed = 0; seed < 600; ++seed) {
    Choices choose(seed);
    const Shares s = randomShares(choose, choose.number(1, choose.oneOf<std::size_t>({4, 12})));
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", n " << s.ratios.size() << ", mu "
                                    << s.mu << ", eps " << s.eps << ", step " << s.step);
    expectStep(s);
  }
}

TEST_F(ShareStep, DoesNotDependOnWhereItStarts) {
  Choices choose(3);
  Shares s = randomShares(choose, 4);
  s.mu = 500.0f;
  s.eps = 10.0f;
  for (const float before : {-1e30f, -5.0f, 0.0f, 0.999999f, 1.0f, 2.0f, 1e30f}) {
    SCOPED_TRACE(testing::Message() << "background's share " << before);
    s.before[s.ind_bgr] = before;
    expectStep(s);
  }
}

// gamma_i = -alpha_i, and beta lies on the edge of the duals' set; the background has neither.
TEST_F(ShareStep, AlphaAndBetaFollowFromGamma) {
  for (unsigned seed = 0; seed < 50; ++seed) {
    Choices choose(seed);
    const Shares s = randomShares(choose, 5);
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    const Stepped got = step(s);
    for (std::size_t i = 0; i < 5; ++i) {
      if (i == s.ind_bgr) {
        EXPECT_EQ(got.alpha[i], 7.0f);
        EXPECT_EQ(got.beta[i], 7.0f);
        continue;
      }
      EXPECT_EQ(got.alpha[i], -got.gamma[i]);
      const auto alpha = static_cast<double>(got.alpha[i]);
      const double d = static_cast<double>(
          tile::parabolaWidth(static_cast<float>(s.pixels), s.mu, s.eps, s.sigmas[i]));
      const double edge = d < 1e-12 ? 0.0 : alpha * alpha / (4.0 * d);
      EXPECT_NEAR(got.beta[i], edge, 1e-6 * edge + 1e-37);
    }
  }
}

TEST_F(ShareStep, StrictSharesKeepTheirRatios) {
  Choices choose(5);
  Shares s = randomShares(choose, 4);
  s.eps = 10.0f;
  for (const float mu : {-1.0f, FLT_MAX}) {
    s.mu = mu;
    const Stepped got = step(s);
    const float B = 1.0f - got.a[s.ind_bgr];
    EXPECT_GT(B, 0.0f);
    for (std::size_t i = 0; i < 4; ++i) {
      if (i != s.ind_bgr) {
        EXPECT_NEAR(got.a[i], s.ratios[i] * B, 1e-6f);
      }
    }
  }
}

TEST_F(ShareStep, WithoutMuOnlyTheBarrierMovesTheShares) {
  Choices choose(6);
  Shares s = randomShares(choose, 4);
  s.mu = 0.0f;
  s.eps = 10.0f;
  const Stepped got = step(s);
  for (std::size_t i = 0; i < 4; ++i) {
    if (i == s.ind_bgr) {
      EXPECT_LT(got.gamma[i], 0.0f);
    } else {
      EXPECT_EQ(got.gamma[i], 0.0f);
      EXPECT_NEAR(got.a[i], s.means[i] - s.gamma[i] / s.step, 1e-6f);
    }
  }
}

// Without a barrier the foreground may be empty, but not less.
TEST_F(ShareStep, TheForegroundIsNeverNegative) {
  Shares s;
  s.eps = 0.0f;
  s.ratios = {0.5f, 0.5f, 0.0f};
  s.sigmas = {0.1f, 0.1f, 0.0f};
  s.means = {-0.2f, -0.2f, 1.4f};
  s.gamma = s.before = {0.0f, 0.0f, 0.0f};
  s.ind_bgr = 2;
  const Stepped got = step(s);
  EXPECT_EQ(got.a, (Floats{0.0f, 0.0f, 1.0f}));
}

TEST_F(ShareStep, WithoutAPriorSharesAreTheMeansAndGammaIsZero) {
  const DeviceFloats a({7, 7, 7}), a_bar({7, 7, 7}), gamma({1, -2, 7}), sum_u({20, 60, 7});
  ratSegKernels().ratseg_free_shares(kOneWarp, a, a_bar, gamma, sum_u, 80, 2);
  EXPECT_EQ(a.values(), (Floats{0.25f, 0.75f, 7}));
  EXPECT_EQ(a_bar.values(), (Floats{0.25f, 0.75f, 7}));
  EXPECT_EQ(gamma.values(), (Floats{0, 0, 7}));
}

}  // namespace
}  // namespace namespace_ratseg
