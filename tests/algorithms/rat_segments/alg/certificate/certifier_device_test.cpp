// The certificate's sums on every backend: awkward sizes, bands, and special costs, against the
// reference on the state that the run left.

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/certificate/certificate_launch.h"
#include "algorithms/rat_segments/alg/certificate/certifier.h"
#include "support/certified_run.h"
#include "support/device_values.h"
#include "support/machine.h"
#include "support/random_trial.h"

namespace namespace_ratseg {
namespace {

class CertifierDevice : public DeviceTest {
 protected:
  static void expectReferences(const SolverProblem& p, const std::vector<int>& gpu) {
    SCOPED_TRACE(std::to_string(p.par.w) + "x" + std::to_string(p.par.h) + "x" +
                 std::to_string(p.par.n) + ", " + std::to_string(gpu.size()) + " bands");
    const CertifiedRun c = certifiedRun(p, gpu, kNeverMet, 0);
    const ReferenceCertificate r = referenceCertificate(c.problem, c.state);
    expectFigures(c.statistics, r, 1e-10);
    expectFigure(c.statistics.labelingEnergy, r.labelingEnergy, 1e-9 * std::abs(r.labelingEnergy),
                 "energy of the labeling");
  }
};

// A pixel, rows, columns, and widths around those of the tiles of the host and of the warps and
// blocks of a GPU.
TEST_F(CertifierDevice, FiguresOfAwkwardSizesAreTheReferences) {
  struct Size {
    std::size_t w, h, n;
  };
  for (const Size& s :
       {Size{1, 1, 1}, Size{1, 1, 3}, Size{1, 9, 2}, Size{9, 1, 2}, Size{7, 5, 4}, Size{8, 5, 4},
        Size{9, 5, 4}, Size{31, 4, 3}, Size{32, 4, 3}, Size{63, 3, 3}, Size{64, 3, 3},
        Size{65, 3, 3}, Size{72, 3, 3}, Size{127, 3, 2}, Size{129, 3, 2}, Size{300, 2, 2},
        Size{5, 40, 3}, Size{20, 20, 70}}) {
    expectReferences(randomProblem(s.w, s.h, s.n, 5), {0});
  }
}

TEST_F(CertifierDevice, FiguresOfManyRowsPerPartAreTheReferences) {
  expectReferences(randomProblem(2, 5000, 2), {0});
}

TEST_F(CertifierDevice, FiguresOfBandsAreTheReferencesOnEveryEngine) {
  for (int engine : {Params::engine_plain, Params::engine_auto, Params::engine_strips}) {
    SolverProblem p = randomProblem(33, 17, 4);
    p.par.engine = engine;
    expectReferences(p, {0});
    expectReferences(p, {0, 0});
    expectReferences(p, {0, 0, 0});
    p = randomProblem(33, 3, 4);
    p.par.engine = engine;
    expectReferences(p, {0, 0, 0});
  }
}

// sum_x min_i ( rho_i - div p_i - gamma_i ) of a whole image.
double sumOfLeastReducedCosts(const std::vector<float>& rho, const std::vector<float2>& p,
                              const std::vector<float>& gamma, std::size_t w, std::size_t h) {
  double sum = 0.0;
  for (std::size_t y = 0; y < h; ++y) {
    for (std::size_t x = 0; x < w; ++x) {
      double least = HUGE_VAL;
      for (std::size_t i = 0; i < gamma.size(); ++i) {
        const float2* q = &p[i * w * (h + 1) + (y + 1) * w + x];
        double d = x + 1 < w ? static_cast<double>(q[0].x) : 0.0;
        d -= x > 0 ? static_cast<double>(q[-1].x) : 0.0;
        d += y + 1 < h ? static_cast<double>(q[0].y) : 0.0;
        d -= y > 0 ? static_cast<double>((q - w)->y) : 0.0;
        const double c = static_cast<double>(rho[i * w * h + y * w + x]);
        least = std::min(least, c - d - static_cast<double>(gamma[i]));
      }
      sum += least;
    }
  }
  return sum;
}

// Also of a dual field with components across the image's border, which no iteration leaves.
TEST_F(CertifierDevice, ReducedCostsLeaveOutComponentsAcrossTheBorder) {
  constexpr std::size_t h = 3;
  constexpr std::size_t n = 2;
  for (std::size_t w : {1u, 2u, 8u, 9u, 64u, 65u, 72u, 130u}) {
    Choices choose(static_cast<unsigned>(w));
    std::vector<float> u(w * (h + 1) * n, 0.5f), rho(w * h * n);
    std::vector<float2> p(w * (h + 1) * n);
    for (float& x : rho) x = choose.between(-1.0f, 1.0f);
    for (float2& q : p) q = {choose.between(-2.0f, 2.0f), choose.between(-2.0f, 2.0f)};
    const std::vector<float> gamma = {0.25f, -0.5f};
    const DeviceFloats du(u), drho(rho), dgamma(gamma);
    const DeviceValues<float2> dp(p);
    const DeviceValues<double> parts(std::vector<double>(certificateSums(n)));
    CertificateBand band;
    band.u = du;
    band.p = dp;
    band.rho = drho;
    band.gamma = dgamma;
    band.lambda = 2.0f;
    band.w = w;
    band.h = band.ymax = h;
    band.n = n;
    certificateKernels().ratseg_certificate({{1, 1, 1}, {64, 1, 1}, certificateSharedBytes(64, n)},
                                            band, parts);
    const std::vector<double> sums = parts.values();
    EXPECT_NEAR(sums[kReduced], sumOfLeastReducedCosts(rho, p, gamma, w, h), 1e-9) << w;
    double excess = 0.0;  // of those of the band's own rows; what is added is a little more
    for (std::size_t k = 0; k < p.size(); ++k) {
      const double length = std::hypot(static_cast<double>(p[k].x), static_cast<double>(p[k].y));
      if (k % (w * (h + 1)) >= w) excess += std::max(length - 1.0, 0.0);
    }
    EXPECT_GE(sums[kExcess], excess);
    EXPECT_LE(sums[kExcess], 2.0 * excess);
  }
}

// Every one of the strip engine's six turns of its arrays is handed over and taken back.
TEST_F(CertifierDevice, StripEngineGoesOnAfterAnyCheck) {
  for (const std::vector<int>& gpu : {std::vector<int>{0}, std::vector<int>{0, 0, 0}}) {
    SolverProblem p = randomProblem(33, 17, 4);
    p.par.engine = Params::engine_strips;
    p.par.Nsteps = 60;
    p.par.outModulo = 61;
    const CertifiedRun whole = certifiedRun(p, gpu, kNeverMet, 0);
    for (std::size_t modulo : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 25u}) {
      const CertifiedRun parts = certifiedRun(p, gpu, kNeverMet, modulo);
      EXPECT_EQ(parts.statistics.iterations, 60u);
      for (std::size_t k = 0; k < whole.state.u.size(); ++k) {
        ASSERT_NEAR(parts.state.u[k], whole.state.u[k], 2e-5) << modulo;
      }
      EXPECT_NEAR(parts.statistics.energy, whole.statistics.energy, 1e-4);
    }
  }
}

TEST_F(CertifierDevice, FiguresOfEveryPriorAreTheReferences) {
  for (int kind = 0; kind < 4; ++kind) {
    SolverProblem p = randomProblem(24, 18, 4);
    p.par.kind_prior = kind;
    expectReferences(p, {0});
    p.weight.clear();
    p.par.mu = -1.0f;
    expectReferences(p, {0});
  }
}

// The first four pixels: one label is forced, two are, one is forbidden, all are.
TEST_F(CertifierDevice, FiguresWithForcedAndForbiddenLabelsAreTheReferences) {
  const std::size_t plane = 12 * 6;
  for (int pixels : {1, 2, 4}) {
    for (std::size_t label : {0u, 1u, 2u}) {
      SolverProblem p = randomProblem(12, 6, 3);
      p.par.kind_prior = Params::kind_prior_none;
      // Costs below 0 make the sum before the projection great: what is forbidden then stays at 0.
      for (float& x : p.rho) x -= 4.0f;
      p.rho[label * plane] = FLT_MAX;
      if (pixels > 1) p.rho[label * plane + 1] = -FLT_MAX;
      for (std::size_t i = 0; pixels > 2 && i < 3; ++i) p.rho[i * plane + 2] = FLT_MAX;
      if (pixels > 2) p.rho[3] = p.rho[plane + 3] = -FLT_MAX;
      expectReferences(p, {0});
    }
  }
}

TEST_F(CertifierDevice, ForbiddenLabelsThatStayAtZeroLeaveTheEnergyFinite) {
  SolverProblem p = randomProblem(12, 6, 3);
  p.par.kind_prior = Params::kind_prior_none;
  for (float& x : p.rho) x -= 4.0f;
  p.rho[5] = FLT_MAX;
  EXPECT_TRUE(std::isfinite(certifiedRun(p, {0}, kNeverMet, 0).statistics.energy));
  for (float& x : p.rho) x = x < FLT_MAX ? x + 8.0f : x;
  EXPECT_EQ(certifiedRun(p, {0}, kNeverMet, 0).statistics.energy, HUGE_VAL);
}

}  // namespace
}  // namespace namespace_ratseg
