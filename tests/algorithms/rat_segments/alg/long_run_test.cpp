// Every engine and instruction set of the host against the double-precision reference and against
// each other after 1000 iterations, where rounding has had time to add up: the stored cases and 200
// random problems. Seeds are fixed, so every run tries the same problems.

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "reference/case_problem.h"
#include "reference/reference_solver.h"
#include "support/engines.h"
#include "support/machine.h"
#include "support/random_trial.h"

namespace namespace_ratseg {
namespace {

constexpr std::size_t kSteps = 1000;
constexpr double kLargest = 2e-4;
constexpr double kMean = 1e-6;
constexpr double kMargin = 1e-3;  // labels are equal where the best one leads by more

struct Labeling {
  std::size_t pixels, n;
  std::vector<double> u;

  std::size_t best(std::size_t pixel) const {
    std::size_t best = 0;
    for (std::size_t i = 1; i < n; ++i) {
      if (u[i * pixels + pixel] > u[best * pixels + pixel]) best = i;
    }
    return best;
  }

  // By how much the best label leads.
  double margin(std::size_t pixel) const {
    const std::size_t first = best(pixel);
    double second = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
      if (i != first) second = std::max(second, u[i * pixels + pixel]);
    }
    return u[first * pixels + pixel] - second;
  }
};

Labeling labelingOf(const SolverProblem& p, const std::vector<float>& u) {
  return {p.par.w * p.par.h, p.par.n, std::vector<double>(u.begin(), u.end())};
}

void expectSameLabeling(const Labeling& expected, const Labeling& found) {
  ASSERT_EQ(expected.u.size(), found.u.size());
  double largest = 0.0, sum = 0.0;
  for (std::size_t k = 0; k < expected.u.size(); ++k) {
    const double difference = std::abs(expected.u[k] - found.u[k]);
    ASSERT_FALSE(std::isnan(difference)) << "entry " << k;
    largest = std::max(largest, difference);
    sum += difference;
  }
  EXPECT_LE(largest, kLargest);
  EXPECT_LE(sum / static_cast<double>(expected.u.size()), kMean);
  std::size_t other = 0;
  for (std::size_t x = 0; x < expected.pixels; ++x) {
    if (expected.margin(x) > kMargin && expected.best(x) != found.best(x)) ++other;
  }
  EXPECT_EQ(other, 0u) << "pixels with another label";
}

// The trial's problem on every engine that can run it.
void expectAgreement(Trial t, const ReferenceProblem& referenceProblem) {
  ReferenceSolver reference(referenceProblem);
  reference.run(kSteps);
  const Labeling expected = {t.problem.par.w * t.problem.par.h, t.problem.par.n, reference.u()};

  const HostMachine machine(hostConfig(t.bands, t.peer));
  std::vector<int> gpu;
  for (int d = 0; d < t.bands; ++d) gpu.push_back(d);
  t.problem.par.Nsteps = kSteps;
  t.problem.par.outModulo = kSteps + 1;
  Labeling plain;
  for (const HostEngineChoice& engine : hostEngines()) {
    const bool fused = engine.sweep != nullptr;
    if (fused && t.bands > 1 && !t.peer) continue;  // its bands need peer access
    SCOPED_TRACE(engine.name);
    testing::internal::CaptureStdout();
    const Labeling found = labelingOf(t.problem, engine.solve(t.problem, gpu).u);
    testing::internal::GetCapturedStdout();
    expectSameLabeling(expected, found);
    if (!fused) plain = found;
    if (fused) expectSameLabeling(plain, found);
  }
}

// Trials of few values, so that 200 of them take seconds.
std::vector<unsigned> smallSeeds(std::size_t count) {
  constexpr std::size_t kValues = 4000;
  std::vector<unsigned> seeds;
  for (unsigned seed = 10000; seeds.size() < count; ++seed) {
    if (randomTrial(seed).problem.rho.size() <= kValues) seeds.push_back(seed);
  }
  return seeds;
}

constexpr std::size_t kTrials = 200;
constexpr std::size_t kGroups = 10;

class OnEveryEngine : public testing::TestWithParam<std::size_t> {};

TEST_P(OnEveryEngine, RandomProblemsAgreeWithTheReferenceAfterAThousandSteps) {
  const std::vector<unsigned> seeds = smallSeeds(kTrials);
  for (std::size_t k = GetParam(); k < kTrials; k += kGroups) {
    const Trial t = randomTrial(seeds[k]);
    SCOPED_TRACE("seed " + std::to_string(seeds[k]) + ": " + describe(t));
    expectAgreement(t, referenceProblem(t));
  }
}

TEST(OnEveryEngineTrials, HoldEveryKindOfProblem) {
  std::set<int> kinds, bandsWithPeer, bandsWithout;
  bool noWeight = false, forced = false, forbidden = false;
  for (const unsigned seed : smallSeeds(kTrials)) {
    const Trial t = randomTrial(seed);
    kinds.insert(t.problem.par.kind_prior);
    (t.peer ? bandsWithPeer : bandsWithout).insert(t.bands);
    noWeight = noWeight || t.problem.weight.empty();
    for (const float cost : t.problem.rho) {
      forced = forced || cost <= -FLT_MAX;
      forbidden = forbidden || cost >= FLT_MAX;
    }
  }
  EXPECT_EQ(kinds, (std::set<int>{0, 1, 2, 3}));
  EXPECT_EQ(bandsWithPeer, (std::set<int>{1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(bandsWithout, (std::set<int>{1, 2, 3, 4, 5, 6, 7}));
  EXPECT_TRUE(noWeight && forced && forbidden);
}

INSTANTIATE_TEST_SUITE_P(Random, OnEveryEngine, testing::Range<std::size_t>(0, kGroups));

// gtest wants at least one name: where the folder is missing, the one test says SKIPPED.
std::vector<std::string> namesOrMissing() {
  std::vector<std::string> names = referenceCaseNames();
  if (names.empty()) names.push_back("missing");
  return names;
}

class CaseOnEveryEngine : public testing::TestWithParam<std::string> {};

TEST_P(CaseOnEveryEngine, AgreesWithTheReferenceAfterAThousandSteps) {
  if (referenceCaseNames().empty()) GTEST_SKIP() << "no folder " << referenceCaseFolder();
  const ReferenceCase c = loadReferenceCase(GetParam());
  Trial t;
  t.problem = problemFromCase(c);
  expectAgreement(t, problemOf(c));
}

INSTANTIATE_TEST_SUITE_P(Stored, CaseOnEveryEngine, testing::ValuesIn(namesOrMissing()),
                         [](const auto& named) { return named.param; });

}  // namespace
}  // namespace namespace_ratseg
