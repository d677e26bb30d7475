// Statistics::finite: what a run says of NaN and infinite values, on every engine.

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

class Finite : public DeviceTest {
 protected:
  static SolverProblem problem(int engine) {
    SolverProblem p = randomProblem(37, 23, 3);
    p.par.engine = engine;
    return p;
  }
  static bool finite(SolverProblem p) {
    RatSegImpl solver(p.par);
    setUp(solver, p);
    solver.run();
    const bool result = solver.statistics.finite;
    solver.free();
    return result;
  }
  // Calls body with the problem on each engine.
  template <class Body>
  static void onEachEngine(Body body) {
    for (const int engine : {Params::engine_plain, Params::engine_fused, Params::engine_strips}) {
      SCOPED_TRACE("engine " + std::to_string(engine));
      body(problem(engine));
    }
  }
};

TEST_F(Finite, IsAnOrdinaryRun) {
  onEachEngine([](SolverProblem p) {
    EXPECT_TRUE(finite(p));
    p.par.accelerate = true;
    EXPECT_TRUE(finite(p));
    p.par.Nsteps = 0;
    EXPECT_TRUE(finite(p));
  });
}

TEST_F(Finite, IsARunWithForbiddenAndForcedLabelsAndWithoutBounds) {
  onEachEngine([](SolverProblem p) {
    p.rho[5] = std::numeric_limits<float>::infinity();
    p.rho[6] = -std::numeric_limits<float>::infinity();
    p.rho[7] = std::numeric_limits<float>::max();
    p.weight[9] = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(finite(p));
  });
}

TEST_F(Finite, IsNoRunWithNaNInTheDataTermOrTheWeight) {
  onEachEngine([](const SolverProblem& p) {
    for (const std::size_t k : {std::size_t{0}, p.rho.size() / 2, p.rho.size() - 1}) {
      SolverProblem wrong = p;
      wrong.rho[k] = kNaN;
      EXPECT_FALSE(finite(wrong)) << k;
    }
    for (const std::size_t k : {std::size_t{0}, p.weight.size() - 1}) {
      SolverProblem wrong = p;
      wrong.weight[k] = kNaN;
      EXPECT_FALSE(finite(wrong)) << k;
    }
  });
}

TEST_F(Finite, IsNoRunWhoseSharesAreNoNumbers) {
  onEachEngine([](SolverProblem p) {
    p.ratios[0] = kNaN;
    EXPECT_FALSE(finite(p));
  });
}

// The step becomes infinite.
TEST_F(Finite, IsNoAcceleratedRunWithADenormalLambda) {
  onEachEngine([](SolverProblem p) {
    p.par.lambda = 1e-40f;
    EXPECT_TRUE(finite(p));
    p.par.accelerate = true;
    EXPECT_FALSE(finite(p));
  });
}

TEST_F(Finite, IsToldOfTheLastRun) {
  SolverProblem p = problem(Params::engine_auto);
  RatSegImpl solver(p.par);
  setUp(solver, p);
  p.par.lambda = 1e-40f;
  p.par.accelerate = true;
  solver.run();
  EXPECT_FALSE(solver.statistics.finite);
  solver.reinit();
  p.par.lambda = 2;
  p.par.accelerate = false;
  solver.run();
  EXPECT_TRUE(solver.statistics.finite);
  solver.free();
}

TEST_F(Finite, IsLookedForInEveryBand) {
  if (!onHost()) GTEST_SKIP() << "host devices only";
  const HostMachine machine(hostConfig(3));
  SolverProblem p = problem(Params::engine_plain);
  p.par.gpu = {0, 1, 2};
  EXPECT_TRUE(finite(p));
  for (const std::size_t k : {0, 37 * 11, 37 * 23 - 1}) {
    SolverProblem wrong = p;
    wrong.weight[k] = kNaN;
    EXPECT_FALSE(finite(wrong)) << k;
  }
}

}  // namespace
}  // namespace namespace_ratseg
