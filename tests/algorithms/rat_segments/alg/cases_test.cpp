// The solver against the stored cases with double-precision results.

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "device/runtime.h"
#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

// |got - expected| <= 1e-4 of the vector's largest magnitude (at least 1e-3, so that vectors that
// vanish are compared absolutely at 1e-7).
void expectVectorNear(const std::vector<float>& got, const std::vector<double>& expected,
                      const char* name) {
  ASSERT_EQ(got.size(), expected.size());
  double scale = 1e-3;
  for (double x : expected) scale = std::max(scale, std::abs(x));
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_NEAR(got[i], expected[i], 1e-4 * scale) << name << "[" << i << "]";
  }
}

class CasesTest : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped()) return;
    names_ = referenceCaseNames();
    if (names_.empty()) GTEST_SKIP() << "no folder " << referenceCaseFolder();
  }

  void expectAllCases(const std::vector<int>& gpu) {
    for (const std::string& name : names_) {
      SCOPED_TRACE(name);
      const ReferenceCase c = loadReferenceCase(name);
      if (c.h < gpu.size()) continue;  // one row cannot be split
      const SolverResult result = solve(problemFromCase(c), gpu);
      float largest = 0.0f;
      for (std::size_t k = 0; k < c.u.size(); ++k) {
        largest = std::max(largest, std::abs(result.u[k] - c.u[k]));
      }
      EXPECT_LE(largest, 1e-4f) << "largest difference of u";
      expectVectorNear(result.a, c.a, "a");
      expectVectorNear(result.gamma, c.gamma, "gamma");
      expectVectorNear(result.alpha, c.alpha, "alpha");
      expectVectorNear(result.beta, c.beta, "beta");
      expectVectorNear(result.sum_u, c.sum_u, "sum_u");
    }
  }

  std::vector<std::string> names_;
};

// The same device may hold several bands, on the host and on a GPU alike.
TEST_F(CasesTest, OneBandGivesTheExpectedResults) { expectAllCases({0}); }
TEST_F(CasesTest, TwoBandsGiveTheExpectedResults) { expectAllCases({0, 0}); }
TEST_F(CasesTest, ThreeBandsGiveTheExpectedResults) { expectAllCases({0, 0, 0}); }

TEST_F(CasesTest, BandsOnSeveralDevicesGiveTheExpectedResults) {
  std::optional<HostMachine> machine;
  if (onHost()) machine.emplace(hostConfig(3));
  if (deviceCount() < 3) GTEST_SKIP() << "fewer than three GPUs";
  int reached = 0;
  cudaDeviceCanAccessPeer(&reached, 0, 1);
  if (reached == 0) GTEST_SKIP() << "no peer access, without which bands exchange other rows";
  expectAllCases({0, 1});
  expectAllCases({2, 0, 1});
}

}  // namespace
}  // namespace namespace_ratseg
