// The same problem gives the same bytes.

#include <gtest/gtest.h>
#include <omp.h>

#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

class Determinism : public DeviceTest {
 protected:
  static void expectSame(const SolverResult& a, const SolverResult& b) {
    EXPECT_EQ(a.u, b.u);
    EXPECT_EQ(a.a, b.a);
    EXPECT_EQ(a.gamma, b.gamma);
    EXPECT_EQ(a.alpha, b.alpha);
    EXPECT_EQ(a.beta, b.beta);
    EXPECT_EQ(a.sum_u, b.sum_u);
  }

  // Large enough that launches on the host are spread over threads.
  static SolverProblem problem() {
    SolverProblem p = randomProblem(131, 97, 5, 3);
    p.par.Nsteps = 30;
    p.par.outModulo = 31;
    return p;
  }
};

TEST_F(Determinism, RunsRepeatThemselves) { expectSame(solve(problem()), solve(problem())); }

TEST_F(Determinism, TheNumberOfThreadsChangesNothing) {
  if (!onHost()) GTEST_SKIP() << "host devices only";
  const int usual = omp_get_max_threads();
  const SolverResult expected = solve(problem());
  for (const int threads : {1, 2, 3, 7}) {
    omp_set_num_threads(threads);
    SCOPED_TRACE(threads);
    expectSame(solve(problem()), expected);
  }
  omp_set_num_threads(usual);
}

TEST_F(Determinism, TheBlockShapeChangesNothing) {
  const SolverResult expected = solve(problem());
  SolverProblem p = problem();
  p.par.threadsx = 32;
  p.par.threadsy = 7;
  expectSame(solve(p), expected);
}

}  // namespace
}  // namespace namespace_ratseg
