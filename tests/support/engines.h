#ifndef RATSEG_TESTS_SUPPORT_ENGINES_H
#define RATSEG_TESTS_SUPPORT_ENGINES_H

// One problem on the engine that a test wants.

#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/fused_host/host_engine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {

inline SolverResult solvePlain(SolverProblem p, const std::vector<int>& gpu = {}) {
  p.par.engine = Params::engine_plain;
  return solve(p, gpu);
}

// The problem's steps on the fused engine with the given sweep.
inline SolverResult solveFused(SolverProblem p, const HostSweep& sweep,
                               const std::vector<int>& gpu = {}) {
  p.par.gpu = gpu;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  for (int d = 0; d < solver.bands(); ++d) {
    gpudata& g = solver.arrays[d];
    g.weightHat = solver.kind_weight != RatSegImpl::kind_weight_none ? g.weight.get_ptr() : nullptr;
  }
  {
    const float tau = p.par.dt_multiplier;
    HostEngine engine(solver, {tau, 1.0f / tau}, sweep);
    engine.advance(p.par.Nsteps);
  }
  SolverResult result = resultOf(solver);
  solver.free();
  return result;
}

// An engine of the host: the plain one, or the fused one with a sweep.
struct HostEngineChoice {
  std::string name;  // "plain", "fused_baseline", ...
  const HostSweep* sweep = nullptr;

  SolverResult solve(const SolverProblem& p, const std::vector<int>& gpu) const {
    return sweep == nullptr ? solvePlain(p, gpu) : solveFused(p, *sweep, gpu);
  }
};

// The plain engine and the fused one on every instruction set that this processor runs.
inline std::vector<HostEngineChoice> hostEngines() {
  std::vector<HostEngineChoice> engines = {{"plain", nullptr}};
  for (const HostIsa isa : usableHostIsas()) {
    engines.push_back({"fused_" + std::string(nameOf(isa)), &hostSweep(isa)});
  }
  return engines;
}

}  // namespace namespace_ratseg

#endif
