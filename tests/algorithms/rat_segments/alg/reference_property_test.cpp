// The solver against the reference solver on random problems: sizes from 1 x 1, 1 to 70 labels,
// every kind of prior, 1 to 7 bands with and without peer access, weights absent or not, forced and
// forbidden labels, extreme parameters. Seeds are fixed, so every run tries the same problems.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "reference/reference_solver.h"
#include "support/machine.h"
#include "support/random_trial.h"

namespace namespace_ratseg {
namespace {

// Largest |difference| of the labelings after the trial's steps.
double largestDifference(const Trial& t) {
  const SolverResult result = solveTrial(t);
  ReferenceSolver reference(referenceProblem(t));
  reference.run(t.problem.par.Nsteps);
  const std::vector<double> u = reference.u();
  double largest = 0.0;
  for (std::size_t k = 0; k < u.size(); ++k) {
    const double difference = std::abs(static_cast<double>(result.u[k]) - u[k]);
    largest = std::isnan(difference) ? 1e30 : std::max(largest, difference);
  }
  return largest;
}

class ReferenceProperty : public testing::TestWithParam<unsigned> {};

TEST_P(ReferenceProperty, SolverAgreesWithTheReference) {
  constexpr unsigned kTrials = 100;
  for (unsigned k = 0; k < kTrials; ++k) {
    const unsigned seed = GetParam() * kTrials + k;
    const Trial t = randomTrial(seed);
    EXPECT_LE(largestDifference(t), 1e-4) << "seed " << seed << ": " << describe(t);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, ReferenceProperty, testing::Range(0u, 20u));

}  // namespace
}  // namespace namespace_ratseg
