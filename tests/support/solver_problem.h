#ifndef RATSEG_TESTS_SUPPORT_SOLVER_PROBLEM_H
#define RATSEG_TESTS_SUPPORT_SOLVER_PROBLEM_H

// Problems for the solver's tests, set up the same way everywhere.

#include <cstddef>
#include <random>
#include <stdexcept>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg_impl.h"
#include "support/reference_case.h"

namespace namespace_ratseg {

// A problem with all its host arrays; an empty weight is not handed to the solver.
struct SolverProblem {
  Params par;
  std::vector<float> rho, weight, ratios, sigmas, mins, maxs;
  std::size_t ind_bgr = 0;
};

inline SolverProblem problemFromCase(const ReferenceCase& c) {
  SolverProblem p;
  p.par.w = c.w;
  p.par.h = c.h;
  p.par.n = c.n;
  p.par.Nsteps = c.iterations;
  p.par.outModulo = c.iterations + 1;
  p.par.kind_prior = c.kind_prior;
  p.par.lambda = c.lambda;
  p.par.mu = c.mu;
  p.par.eps = c.eps;
  p.par.dt_multiplier = c.dt_multiplier;
  p.rho = c.rho;
  p.weight = c.weight;
  p.ratios = c.ratios;
  p.sigmas = c.sigmas;
  p.mins = c.mins;
  p.maxs = c.maxs;
  p.ind_bgr = c.ind_bgr;
  return p;
}

// A small problem of random costs and weights with equal shares; the same for the same seed.
inline SolverProblem randomProblem(std::size_t w, std::size_t h, std::size_t n, unsigned seed = 1) {
  std::mt19937 generator(seed);
  const auto uniform = [&] { return static_cast<float>(generator() >> 8) * 0x1p-24f; };
  SolverProblem p;
  p.par.w = w;
  p.par.h = h;
  p.par.n = n;
  p.par.Nsteps = 20;
  p.par.outModulo = 21;
  p.par.lambda = 2.0f;
  p.par.mu = 100.0f;
  p.par.eps = 10.0f;
  p.rho.resize(w * h * n);
  p.weight.resize(w * h);
  for (float& x : p.rho) x = 2.0f * uniform();
  for (float& x : p.weight) x = 0.1f + 0.9f * uniform();
  const float foreground = n > 1 ? static_cast<float>(n - 1) : 1.0f;
  p.ratios.assign(n, 1.0f / foreground);
  p.sigmas.assign(n, 0.05f);
  p.ratios.back() = p.sigmas.back() = 0.0f;
  p.ind_bgr = n - 1;
  return p;
}

// Allocates the solver and hands it the problem's arrays. Throws when alloc() says no.
inline void setUp(RatSegImpl& solver, SolverProblem& p) {
  if (!solver.alloc()) throw std::runtime_error("alloc() failed");
  solver.setRatios(p.ratios.data(), p.sigmas.data(), p.ind_bgr,
                   p.mins.empty() ? nullptr : p.mins.data(),
                   p.maxs.empty() ? nullptr : p.maxs.data());
  solver.setDataterm(p.rho.data());
  if (!p.weight.empty()) solver.setWeight(p.weight.data());
}

inline std::vector<float> toHost(const cudaarray<float>& array) {
  std::vector<float> host(array.numElem());
  array.copyToHost(host.data());
  return host;
}

// What a run leaves: the relaxed labeling and the per-label vectors of device 0.
struct SolverResult {
  std::vector<float> u, a, gamma, alpha, beta, sum_u;
};

inline SolverResult resultOf(RatSegImpl& solver) {
  SolverResult r;
  r.u.resize(solver.par.w * solver.par.h * solver.par.n);
  solver.getSolution_smooth(r.u.data());
  const gpudata& g = solver.arrays[0];
  r.a = toHost(g.a);
  r.gamma = toHost(g.gamma);
  r.alpha = toHost(g.alpha);
  r.beta = toHost(g.beta);
  r.sum_u = toHost(g.sum_u);
  return r;
}

// Solves the problem on the current backend, on the devices in gpu (empty = the first).
inline SolverResult solve(SolverProblem p, const std::vector<int>& gpu = {},
                          const StripWish& wish = {}) {
  p.par.gpu = gpu;
  RatSegImpl solver(p.par);
  solver.stripWish = {wish, ""};
  setUp(solver, p);
  solver.run();
  SolverResult result = resultOf(solver);
  solver.free();
  return result;
}

}  // namespace namespace_ratseg

#endif
