#include "algorithms/rat_segments/alg/plain/solver_state.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

// Each access that is taken away alone, on four bands.
TEST(SolverState, NeighboursAndAllBandsWithTheFirstMustReachEachOther) {
  const HostMachine machine(hostConfig(4));
  SolverProblem p = randomProblem(3, 8, 2);
  p.par.gpu = {0, 1, 2, 3};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  EXPECT_TRUE(solver.bandsReachEachOther());
  for (int a = 0; a < 4; ++a) {
    for (int b = 0; b < 4; ++b) {
      if (a == b) continue;
      bool& can = solver.canAccess_array[b * 4 + a];
      ASSERT_TRUE(can);
      can = false;
      const bool needed = std::abs(a - b) == 1 || a == 0 || b == 0;
      EXPECT_EQ(solver.bandsReachEachOther(), !needed) << a << " to " << b;
      can = true;
    }
  }
  solver.free();
}

}  // namespace
}  // namespace namespace_ratseg
