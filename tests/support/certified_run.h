#ifndef RATSEG_TESTS_SUPPORT_CERTIFIED_RUN_H
#define RATSEG_TESTS_SUPPORT_CERTIFIED_RUN_H

// Runs of the solver with checks of the certified stop, and the same problem and state for the
// reference.

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <vector>

#include "reference/reference_certificate.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {

inline std::vector<double> wide(const std::vector<float>& v) { return {v.begin(), v.end()}; }

// The solver's state, the planes of its bands put together.
inline ReferenceState stateOf(RatSegImpl& solver) {
  const Params& par = solver.par;
  ReferenceState s;
  std::vector<float> u(par.w * par.h * par.n);
  solver.getSolution_smooth(u.data());
  s.u = wide(u);
  s.px.resize(u.size());
  s.py.resize(u.size());
  for (int d = 0; d < solver.bands(); ++d) {
    const gpudata& g = solver.arrays[d];
    std::vector<float2> p(g.p.numElem());
    g.p.copyToHost(p.data());
    for (std::size_t i = 0; i < par.n; ++i) {
      for (std::size_t k = 0; k < g.NOmega; ++k) {
        const float2& q = p[i * g.NOmegaOffset + par.w + k];
        const std::size_t to = i * par.w * par.h + g.ymin * par.w + k;
        s.px[to] = static_cast<double>(q.x);
        s.py[to] = static_cast<double>(q.y);
      }
    }
  }
  s.gamma = wide(toHost(solver.arrays[0].gamma));
  s.alpha = wide(toHost(solver.arrays[0].alpha));
  s.beta = wide(toHost(solver.arrays[0].beta));
  return s;
}

// The problem as the solver has it, the bounds of the shares in its single precision; one band.
inline ReferenceProblem problemOf(const RatSegImpl& solver, const SolverProblem& problem) {
  ReferenceProblem p;
  p.w = problem.par.w;
  p.h = problem.par.h;
  p.n = problem.par.n;
  p.rho = wide(problem.rho);
  p.weight = wide(problem.weight);
  p.ratios = wide(problem.ratios);
  p.sigmas = wide(problem.sigmas);
  p.mins = wide(toHost(solver.arrays[0].mins));
  p.maxs = wide(toHost(solver.arrays[0].maxs));
  p.ind_bgr = problem.ind_bgr;
  p.kind_prior = problem.par.kind_prior;
  p.lambda = static_cast<double>(problem.par.lambda);
  p.mu = static_cast<double>(problem.par.mu);
  p.eps = static_cast<double>(problem.par.eps);
  p.dt_multiplier = static_cast<double>(problem.par.dt_multiplier);
  p.initLocalSolution = problem.par.initLocalSolution;
  return p;
}

// What a run left.
struct CertifiedRun {
  Statistics statistics;
  ReferenceState state;
  ReferenceProblem problem;
};

// Solves on the current backend, on the devices in gpu, with these fields of Params.
inline CertifiedRun certifiedRun(SolverProblem p, const std::vector<int>& gpu, float tolerance,
                                 std::size_t certifyModulo) {
  p.par.gpu = gpu;
  p.par.tolerance = tolerance;
  p.par.certifyModulo = certifyModulo;
  RatSegImpl solver(p.par);
  testing::internal::CaptureStdout();
  setUp(solver, p);
  solver.run();
  testing::internal::GetCapturedStdout();
  CertifiedRun result = {solver.statistics, stateOf(solver), problemOf(solver, p)};
  solver.free();
  return result;
}

// A tolerance above 0 that no run meets but by chance.
inline constexpr float kNeverMet = 1e-30f;

// |got - expected| <= tolerance; an infinite value must be the same.
inline void expectFigure(double got, double expected, double tolerance, const char* what) {
  if (std::isinf(got) || std::isinf(expected)) {
    EXPECT_EQ(got, expected) << what;
  } else {
    EXPECT_NEAR(got, expected, tolerance) << what;
  }
}

// The figures are the reference's, to a part of the energy's size, and the bound is one.
inline void expectFigures(const Statistics& got, const ReferenceCertificate& expected,
                          double part) {
  const double size =
      part * (std::isfinite(expected.size) ? expected.size : 1 + std::abs(expected.bound));
  expectFigure(got.energy, expected.energy, size, "energy");
  expectFigure(got.bound, expected.bound, size, "bound");
  EXPECT_LE(got.bound, got.energy + 1e-12 * size / part);
  EXPECT_LE(got.bound, got.labelingEnergy + 1e-12 * size / part);
}

}  // namespace namespace_ratseg

#endif
