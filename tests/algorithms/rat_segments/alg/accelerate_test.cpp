// The accelerated iteration: against its restatement in double precision, and its optimum against
// that of the ordinary iteration.

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

#include "algorithms/rat_segments/alg/certificate/certifier.h"
#include "reference/reference_energy.h"
#include "support/machine.h"
#include "support/random_trial.h"

namespace namespace_ratseg {
namespace {

double largestDifference(const std::vector<float>& a, const std::vector<double>& b) {
  double largest = a.size() == b.size() ? 0.0 : 1e30;
  for (std::size_t k = 0; k < std::min(a.size(), b.size()); ++k) {
    const double difference = std::abs(static_cast<double>(a[k]) - b[k]);
    largest = std::isnan(difference) ? 1e30 : std::max(largest, difference);
  }
  return largest;
}

double greatest(const std::vector<double>& values) {
  double size = 1e-3;
  for (const double x : values) size = std::max(size, std::abs(x));
  return size;
}

Trial acceleratedTrial(unsigned seed) {
  Trial t = randomTrial(seed);
  Params& par = t.problem.par;
  par.accelerate = true;
  if (par.kind_prior != Params::kind_prior_none) par.kind_prior = Params::kind_prior_upperBound;
  return t;
}

ReferenceProblem acceleratedReference(const Trial& t) {
  ReferenceProblem p = referenceProblem(t);
  p.accelerate = true;
  return p;
}

class Accelerate : public testing::TestWithParam<unsigned> {};

TEST_P(Accelerate, AgreesWithTheReferenceStepByStep) {
  constexpr unsigned kTrials = 60;
  for (unsigned k = 0; k < kTrials; ++k) {
    const unsigned seed = GetParam() * kTrials + k;
    Trial t = acceleratedTrial(seed);
    SCOPED_TRACE(testing::Message() << "seed " << seed << ": " << describe(t));
    t.problem.par.Nsteps = 1 + seed % 4;
    const SolverResult result = solveTrial(t);
    ReferenceSolver reference(acceleratedReference(t));
    reference.run(t.problem.par.Nsteps);
    EXPECT_LE(largestDifference(result.u, reference.u()), 1e-4);
    EXPECT_LE(largestDifference(result.gamma, reference.gamma), 1e-4 * greatest(reference.gamma));
    EXPECT_LE(largestDifference(result.a, reference.a), 1e-4 * greatest(reference.a));
  }
}
INSTANTIATE_TEST_SUITE_P(Seeds, Accelerate, testing::Range(0u, 5u));

// A problem whose optimum a few thousand iterations find.
Trial moderateTrial(unsigned seed) {
  Choices choose(seed);
  Trial t;
  t.problem = randomProblem(choose.number(5, 16), choose.number(8, 16), choose.number(2, 5), seed);
  SolverProblem& p = t.problem;
  p.par.lambda = choose.oneOf<float>({0.0f, 0.2f, 1.0f, 2.0f});
  p.par.mu = choose.oneOf<float>({0.0f, 5.0f, 20.0f});
  p.par.eps = choose.oneOf<float>({0.5f, 3.0f, 10.0f});
  p.par.dt_multiplier = choose.oneOf<float>({0.5f, 1.0f});
  p.par.engine = choose.oneOf<int>({Params::engine_auto, Params::engine_plain});
  p.ind_bgr = choose.number(0, p.par.n - 1);
  float total = 0.0f;
  for (std::size_t i = 0; i < p.par.n; ++i) {
    p.ratios[i] = choose.between(0.5f, 1.5f);
    if (i != p.ind_bgr) total += p.ratios[i];
  }
  for (float& r : p.ratios) r /= total;
  p.sigmas.assign(p.par.n, 0.1f);
  t.bands = static_cast<int>(choose.number(1, 3));
  return t;
}

double energyOf(const Trial& t, const std::vector<float>& u) {
  return referenceEnergy(referenceProblem(t), {u.begin(), u.end()}, 1e-3);
}

// The energies of both iterations, and that of the double-precision one, after many steps.
TEST(AccelerateOptimum, IsThatOfTheOrdinaryIteration) {
  for (unsigned seed = 0; seed < 18; ++seed) {
    Trial t = moderateTrial(seed);
    if (seed % 6 == 5) t.problem.par.kind_prior = Params::kind_prior_none;
    SCOPED_TRACE(testing::Message() << "seed " << seed << ": " << describe(t));
    ReferenceSolver ordinary(referenceProblem(t));
    ordinary.run(6000);
    const std::vector<double> u = ordinary.u();
    const double least = energyOf(t, {u.begin(), u.end()});
    t.problem.par.accelerate = true;
    t.problem.par.Nsteps = 4000;
    t.problem.par.outModulo = 4001;
    EXPECT_NEAR(energyOf(t, solveTrial(t).u), least, 1e-5 * std::abs(least));
  }
}

// Strict shares, by each of the ways to ask for them.
TEST(AccelerateOptimum, OfStrictSharesIsThatOfTheOrdinaryIteration) {
  struct Strict {
    float mu, eps, sigma;
  };
  for (const Strict& s : {Strict{-1.0f, 3.0f, 0.1f}, Strict{FLT_MAX, 3.0f, 0.1f},
                          Strict{20.0f, 3.0f, 0.0f}, Strict{20.0f, 0.0f, 0.1f}}) {
    Trial t;
    t.problem = randomProblem(19, 14, 4, 11);
    Params& par = t.problem.par;
    par.lambda = 1.0f;
    par.mu = s.mu;
    par.eps = s.eps;
    t.problem.sigmas.assign(4, s.sigma);
    t.problem.ratios = {0.2f, 0.5f, 0.3f, 0.0f};
    SCOPED_TRACE(testing::Message() << "sigma " << s.sigma << ", " << describe(t));
    ReferenceSolver ordinary(referenceProblem(t));
    ordinary.run(8000);
    const std::vector<double> u = ordinary.u();
    const double least = energyOf(t, {u.begin(), u.end()});
    par.accelerate = true;
    par.Nsteps = 3000;
    par.outModulo = 3001;
    const SolverResult result = solveTrial(t);
    EXPECT_NEAR(energyOf(t, result.u), least, 1e-5 * std::abs(least));
    const float B = 1.0f - result.a[3];
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(result.a[i], t.problem.ratios[i] * B, 1e-5f);
  }
}

// Without peer access the labeling's limit depends on where it starts; the multipliers' does not.
TEST(AccelerateOptimum, WithoutPeerAccessHasTheMultipliersOfTheOrdinaryIteration) {
  Trial t;
  t.problem = randomProblem(16, 15, 3, 4);
  t.problem.par.mu = 20.0f;
  t.problem.par.lambda = 0.5f;
  t.bands = 3;
  t.peer = false;
  ReferenceSolver ordinary(referenceProblem(t));
  ordinary.run(6000);
  t.problem.par.accelerate = true;
  t.problem.par.Nsteps = 3000;
  t.problem.par.outModulo = 3001;
  EXPECT_LE(largestDifference(solveTrial(t).gamma, ordinary.gamma), 1e-4);
}

// What it is for. After 40 iterations the energy is within 5 % of the least, and that of the
// ordinary iteration, whose shares have hardly moved, is several times as large.
TEST(AccelerateOptimum, IsNearAfterFewIterations) {
  Trial t;
  t.problem = randomProblem(60, 50, 4, 2);
  t.problem.par.mu = 500.0f;
  t.problem.sigmas.assign(4, 0.02f);
  t.problem.ratios = {0.1f, 0.2f, 0.7f, 0.0f};
  t.problem.par.Nsteps = 500;
  t.problem.par.outModulo = 501;
  const double least = energyOf(t, solveTrial(t).u);
  t.problem.par.Nsteps = 40;
  EXPECT_GT(energyOf(t, solveTrial(t).u), 3.0 * least);
  t.problem.par.accelerate = true;
  EXPECT_LT(energyOf(t, solveTrial(t).u), 1.05 * least);
}

TEST(AccelerateChoice, LeavesIntervalAndLowerBoundAsTheyAre) {
  for (const int kind : {Params::kind_prior_interval, Params::kind_prior_lowerBound}) {
    Trial t;
    t.problem = randomProblem(17, 9, 3);
    t.problem.par.kind_prior = kind;
    t.problem.par.mu = 0.5f;
    const SolverResult ordinary = solveTrial(t);
    t.problem.par.accelerate = true;
    const SolverResult result = solveTrial(t);
    EXPECT_EQ(result.u, ordinary.u);
    EXPECT_EQ(result.gamma, ordinary.gamma);
    EXPECT_EQ(result.alpha, ordinary.alpha);
  }
}

TEST(AccelerateChoice, DoesNotDependOnTheEngineOrTheBands) {
  Trial t;
  t.problem = randomProblem(33, 20, 3);
  t.problem.par.accelerate = true;
  t.problem.par.engine = Params::engine_plain;
  const SolverResult plain = solveTrial(t);
  const std::vector<double> expected(plain.u.begin(), plain.u.end());
  for (const int engine : {Params::engine_fused, Params::engine_strips}) {
    for (const int bands : {1, 3}) {
      t.problem.par.engine = engine;
      t.bands = bands;
      EXPECT_LE(largestDifference(solveTrial(t).u, expected), 5e-5) << engine << ", " << bands;
    }
  }
}

// The iterations after which a run without end is checked, up to the given one.
std::vector<std::size_t> checksUpTo(std::size_t last, std::size_t certifyModulo) {
  const HostMachine machine;
  SolverProblem p = randomProblem(3, 3, 2);
  p.par.accelerate = true;
  p.par.Nsteps = 100000;
  p.par.certifyModulo = certifyModulo;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  Certifier certifier(solver);
  std::vector<std::size_t> checks;
  std::size_t done = 0;
  while (done + certifier.stepsToCheck(done + 1) <= last) {
    done += certifier.stepsToCheck(done + 1);
    EXPECT_EQ(certifier.stepsToCheck(done), 1u) << "before the check after " << done;
    certifier.certify(done);
    checks.push_back(done);
  }
  solver.free();
  return checks;
}

TEST(AccelerateChoice, IsCheckedEarlyAndThenAfterAQuarterMore) {
  EXPECT_EQ(checksUpTo(200, 500), (std::vector<std::size_t>{64, 80, 100, 125, 156, 195}));
}

TEST(AccelerateChoice, IsCheckedNoLessOftenThanOtherwise) {
  EXPECT_EQ(checksUpTo(170, 30), (std::vector<std::size_t>{30, 46, 62, 78, 97, 121, 151}));
  EXPECT_EQ(checksUpTo(20, 7), (std::vector<std::size_t>{7, 14}));
  EXPECT_EQ(checksUpTo(99999, 0), std::vector<std::size_t>());
}

// A run of 20 iterations is two of 10.
TEST(AccelerateChoice, RunsMayFollowEachOther) {
  const HostMachine machine;
  SolverProblem p = randomProblem(17, 9, 3);
  p.par.accelerate = true;
  const SolverResult whole = solve(p);
  p.par.Nsteps = 10;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  solver.run();
  solver.run();
  const SolverResult halves = resultOf(solver);
  solver.free();
  EXPECT_EQ(halves.u, whole.u);
  EXPECT_EQ(halves.gamma, whole.gamma);
}

}  // namespace
}  // namespace namespace_ratseg
