// The reference solver against the stored results of all cases.
//
// Labelings agree within 2e-5, vectors within 5e-5 of each value's own size. Nearly all of that is
// the proportions: the files hold them rounded to seven decimals, the stored results came from the
// fractions before. (With the fractions put back, the labelings agree within 4e-8 and the vectors
// within 1e-7, the rounding of the stored results to single precision.) No coarser scale is needed
// for values near zero, which double precision resolves; 1e-15 is left for exact zeros.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

#include "reference/case_problem.h"
#include "reference/reference_solver.h"
#include "support/reference_case.h"

namespace namespace_ratseg {
namespace {

// gtest wants at least one name: where the folder is missing, the one test says SKIPPED.
std::vector<std::string> namesOrMissing() {
  std::vector<std::string> names = referenceCaseNames();
  if (names.empty()) names.push_back("missing");
  return names;
}

class ReferenceCases : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (referenceCaseNames().empty()) GTEST_SKIP() << "no cases in " << referenceCaseFolder();
    expected_ = loadReferenceCase(GetParam());
  }

  void expectResult(const ReferenceSolver& s) const {
    const std::vector<double> u = s.u();
    double most = 0;
    for (std::size_t k = 0; k < u.size(); ++k) {
      most = std::max(most, std::abs(u[k] - static_cast<double>(expected_.u[k])));
    }
    EXPECT_LT(most, 2e-5);
    expectVector("a", s.a, expected_.a);
    expectVector("gamma", s.gamma, expected_.gamma);
    expectVector("alpha", s.alpha, expected_.alpha);
    expectVector("beta", s.beta, expected_.beta);
    expectVector("sum_u", s.sum_u, expected_.sum_u);
  }

  ReferenceCase expected_;

 private:
  static void expectVector(const char* name, const std::vector<double>& found,
                           const std::vector<double>& expected) {
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_NEAR(found[i], expected[i], 5e-5 * std::abs(expected[i]) + 1e-15)
          << name << "[" << i << "]";
    }
  }
};

TEST_P(ReferenceCases, ReachTheStoredResult) {
  ReferenceSolver s(problemOf(expected_));
  s.run(expected_.iterations);
  expectResult(s);
}

TEST_P(ReferenceCases, ReachTheStoredResultInUpToThreeBands) {
  ReferenceProblem p = problemOf(expected_);
  p.bands = {{0, 1}};
  if (p.h > 2) p.bands.push_back({1, p.h / 2 + 1});
  if (p.h > 1) p.bands.push_back({p.bands.back().ymax, p.h});
  ReferenceSolver s(p);
  s.run(expected_.iterations);
  expectResult(s);
}

TEST_P(ReferenceCases, WithoutCoefficientTheWeightMayAsWellBeAbsent) {
  ReferenceProblem p = problemOf(expected_);
  const bool allOnes = p.weight == std::vector<double>(p.w * p.h, 1);
  EXPECT_EQ(allOnes, expected_.weightcoeff == 0);
  if (!allOnes) return;
  p.weight.clear();
  ReferenceSolver s(p);
  s.run(expected_.iterations);
  expectResult(s);
}

INSTANTIATE_TEST_SUITE_P(Stored, ReferenceCases, testing::ValuesIn(namesOrMissing()),
                         [](const auto& param) { return param.param; });

}  // namespace
}  // namespace namespace_ratseg
