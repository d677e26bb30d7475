#ifndef RATSEG_TESTS_SUPPORT_RANDOM_TRIAL_H
#define RATSEG_TESTS_SUPPORT_RANDOM_TRIAL_H

// Random problems for comparing the solver with the reference solver: every kind of prior, 1 to 7
// bands with and without peer access, weights absent or not, forced and forbidden labels, extreme
// parameters.

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cstddef>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "reference/reference_solver.h"
#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {

// One random choice after another from a seed.
class Choices {
 public:
  explicit Choices(unsigned seed) : generator_(seed) {}

  std::size_t number(std::size_t lo, std::size_t hi) { return lo + generator_() % (hi - lo + 1); }
  bool chance(double p) { return unit() < p; }
  float unit() { return static_cast<float>(generator_() >> 8) * 0x1p-24f; }
  float between(float lo, float hi) { return lo + (hi - lo) * unit(); }
  template <class T>
  T oneOf(const std::vector<T>& list) {
    return list[number(0, list.size() - 1)];
  }

 private:
  std::mt19937 generator_;
};

// A problem on one or more bands of a host machine.
struct Trial {
  SolverProblem problem;
  int bands = 1;
  bool peer = true;
};

// The solver's result on a host machine of the trial's devices.
inline SolverResult solveTrial(const Trial& t) {
  const HostMachine machine(hostConfig(t.bands, t.peer));
  std::vector<int> gpu;
  for (int d = 0; d < t.bands; ++d) gpu.push_back(d);
  testing::internal::CaptureStdout();
  const SolverResult result = solve(t.problem, gpu);
  testing::internal::GetCapturedStdout();
  return result;
}

inline std::string describe(const Trial& t) {
  const Params& p = t.problem.par;
  std::ostringstream text;
  text << p.w << "x" << p.h << "x" << p.n << ", kind " << p.kind_prior << ", lambda " << p.lambda
       << ", mu " << p.mu << ", eps " << p.eps << ", dt " << p.dt_multiplier << ", " << p.Nsteps
       << " steps, " << t.bands << (t.peer ? " bands" : " bands without peer access")
       << (t.problem.weight.empty() ? ", no weight" : "")
       << (p.initLocalSolution ? "" : ", from zero");
  return text.str();
}

// A small problem, its bands and its parameters; the same for the same seed. Sizes from 1 x 1 to
// 3000 pixels, 1 to 70 labels, up to 300 steps.
inline Trial randomTrial(unsigned seed) {
  Choices choose(seed);
  Trial t;
  Params& par = t.problem.par;
  const std::size_t pixels = choose.oneOf<std::size_t>({30, 400, 3000});
  par.w = choose.chance(0.1) ? 1 : choose.number(1, choose.oneOf<std::size_t>({3, 20, 200}));
  par.h = choose.chance(0.1) ? 1
                             : std::max<std::size_t>(
                                   1, std::min<std::size_t>(choose.number(1, 200), pixels / par.w));
  par.n = choose.chance(0.1) ? choose.number(9, 70) : choose.number(1, 8);
  par.Nsteps = choose.number(1, choose.oneOf<std::size_t>({5, 40, 300}));
  par.outModulo = par.Nsteps + 1;
  par.kind_prior = static_cast<int>(choose.number(0, 3));
  par.lambda = choose.chance(0.15) ? 0.0f : choose.between(0.05f, 8.0f);
  if (choose.chance(0.03)) par.lambda = FLT_MAX;
  par.mu = choose.between(1.0f, 600.0f);
  if (choose.chance(0.2)) par.mu = choose.oneOf<float>({0.0f, -1.0f, FLT_MAX});
  if (par.kind_prior == Params::kind_prior_lowerBound) par.mu = choose.between(0.0f, 2.0f);
  par.eps = choose.between(0.5f, 20.0f);
  par.dt_multiplier = choose.chance(0.6) ? 1.0f : choose.between(0.3f, 3.0f);
  par.initLocalSolution = choose.chance(0.8);
  par.engine = choose.chance(0.5) ? Params::engine_auto : Params::engine_plain;

  SolverProblem& p = t.problem;
  p.rho.resize(par.w * par.h * par.n);
  const float scale = choose.oneOf<float>({0.5f, 3.0f, 10.0f});
  const bool special = choose.chance(0.25);
  for (float& x : p.rho) {
    x = choose.between(-0.2f * scale, scale);
    if (special && choose.chance(0.1)) x = choose.chance(0.6) ? FLT_MAX : -FLT_MAX;
  }
  if (choose.chance(0.75)) {
    p.weight.resize(par.w * par.h);
    for (float& x : p.weight) x = choose.chance(0.02) ? 0.0f : choose.between(0.01f, 1.0f);
  }
  p.ind_bgr = choose.chance(0.8) ? par.n - 1 : choose.number(0, par.n - 1);
  float total = 0.0f;
  for (std::size_t i = 0; i < par.n; ++i) {
    p.ratios.push_back(choose.between(0.05f, 1.0f));
    p.sigmas.push_back(choose.between(0.01f, 0.2f));
    if (i != p.ind_bgr) total += p.ratios.back();
  }
  for (float& r : p.ratios) r /= std::max(total, 0.05f);

  const std::size_t wanted = choose.number(1, 7);
  t.bands = static_cast<int>(std::min(wanted, par.h));
  while (static_cast<std::size_t>(t.bands - 1) * ((par.h + static_cast<std::size_t>(t.bands) - 1) /
                                                  static_cast<std::size_t>(t.bands)) >=
         par.h) {
    --t.bands;
  }
  t.peer = choose.chance(0.7);
  return t;
}

// The trial as the reference solver takes it.
inline ReferenceProblem referenceProblem(const Trial& t) {
  const auto wide = [](const std::vector<float>& v) {
    return std::vector<double>(v.begin(), v.end());
  };
  const Params& par = t.problem.par;
  ReferenceProblem p;
  p.w = par.w;
  p.h = par.h;
  p.n = par.n;
  p.rho = wide(t.problem.rho);
  p.weight = wide(t.problem.weight);
  p.ratios = wide(t.problem.ratios);
  p.sigmas = wide(t.problem.sigmas);
  p.ind_bgr = t.problem.ind_bgr;
  p.kind_prior = par.kind_prior;
  p.lambda = static_cast<double>(par.lambda);
  p.mu = static_cast<double>(par.mu);
  p.eps = static_cast<double>(par.eps);
  p.dt_multiplier = static_cast<double>(par.dt_multiplier);
  p.initLocalSolution = par.initLocalSolution;
  const auto bands = static_cast<std::size_t>(t.bands);
  const std::size_t chunk = (par.h + bands - 1) / bands;
  for (std::size_t d = 0; d < bands; ++d) {
    p.bands.push_back({d * chunk, d + 1 < bands ? (d + 1) * chunk : par.h, !t.peer, !t.peer});
  }
  return p;
}

}  // namespace namespace_ratseg

#endif
