// Prints a line for each of many problems and engines: their names and a digest of all that the
// solver answers. Two builds that print the same lines compute the same bytes.
//
//   ratseg_digests [DEVICES]
//
// The stored cases and 200 random problems, on the host's devices 0 to DEVICES-1 (1), one band on
// each, with the plain, the fused and the strip engine; RATSEG_ISA chooses the instruction set.

#include <algorithm>
#include <cfloat>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "support/reference_case.h"

namespace namespace_ratseg {
namespace {

struct Problem {
  std::string name;
  Params par;
  std::vector<float> rho, weight, ratios, sigmas, mins, maxs;
};

Problem fromCase(const ReferenceCase& c) {
  Problem p;
  p.name = c.name;
  p.par.w = c.w;
  p.par.h = c.h;
  p.par.n = c.n;
  p.par.Nsteps = c.iterations;
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
  return p;
}

Problem random(unsigned seed) {
  std::mt19937 generator(seed);
  const auto number = [&](unsigned lo, unsigned hi) { return lo + generator() % (hi - lo + 1); };
  const auto between = [&](float lo, float hi) {
    return lo + (hi - lo) * static_cast<float>(generator() >> 8) * 0x1p-24f;
  };
  Problem p;
  p.name = "random" + std::to_string(seed);
  Params& par = p.par;
  par.w = number(1, 90);
  par.h = number(1, 60);
  par.n = number(0, 9) == 0 ? number(9, 40) : number(1, 8);
  par.Nsteps = number(1, 80);
  par.kind_prior = static_cast<int>(number(0, 3));
  par.lambda = number(0, 6) == 0 ? 0.0f : between(0.05f, 8.0f);
  par.mu = par.kind_prior == Params::kind_prior_lowerBound ? between(0.0f, 2.0f)
           : number(0, 4) == 0                             ? -1.0f
                                                           : between(1.0f, 600.0f);
  par.eps = between(0.5f, 20.0f);
  par.dt_multiplier = number(0, 1) == 0 ? 1.0f : between(0.3f, 3.0f);
  par.initLocalSolution = number(0, 4) != 0;
  par.accelerate = number(0, 3) == 0;
  if (number(0, 3) == 0 && par.dt_multiplier == 1.0f) par.tolerance = 1e-6f;
  par.certifyModulo = 20;
  p.rho.resize(par.w * par.h * par.n);
  const bool special = number(0, 3) == 0;
  for (float& x : p.rho) {
    x = between(-0.5f, 5.0f);
    if (special && number(0, 9) == 0) x = number(0, 1) == 0 ? FLT_MAX : -FLT_MAX;
  }
  if (number(0, 3) != 0) {
    p.weight.resize(par.w * par.h);
    for (float& x : p.weight) x = between(0.01f, 1.0f);
  }
  for (std::size_t i = 0; i < par.n; ++i) {
    p.ratios.push_back(i + 1 < par.n ? 1.0f / static_cast<float>(par.n - 1) : 0.0f);
    p.sigmas.push_back(between(0.01f, 0.2f));
  }
  return p;
}

// FNV-1a.
class Digest {
 public:
  void add(const void* bytes, std::size_t count) {
    for (std::size_t k = 0; k < count; ++k) {
      value_ = (value_ ^ static_cast<const unsigned char*>(bytes)[k]) * 0x100000001b3u;
    }
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0xcbf29ce484222325u;
};

// What the solver says on standard output counts as well.
std::uint64_t solve(Problem p, int engine, int devices) {
  std::ostringstream said;
  std::streambuf* before = std::cout.rdbuf(said.rdbuf());
  Digest digest;
  {
    RatSeg solver;
    Params& par = solver.getParams();
    par = p.par;
    par.engine = engine;
    par.outModulo = par.Nsteps / 2 + 1;
    for (int d = 0; d < devices; ++d) par.gpu.push_back(d);
    if (solver.alloc()) {
      solver.setRatios(p.ratios.data(), p.sigmas.data(), par.n - 1,
                       p.mins.empty() ? nullptr : p.mins.data(),
                       p.maxs.empty() ? nullptr : p.maxs.data());
      solver.setDataterm(p.rho.data());
      if (!p.weight.empty()) solver.setWeight(p.weight.data());
      solver.run();
      std::vector<float> u(p.rho.size());
      solver.getSolution_smooth(u.data());
      digest.add(u.data(), u.size() * sizeof(float));
      solver.getSolution(u.data());
      digest.add(u.data(), u.size() * sizeof(float));
      const Statistics& s = solver.getStatistics();
      for (const double figure : {s.energy, s.labelingEnergy, s.bound, s.gap, s.labelingGap}) {
        digest.add(&figure, sizeof figure);
      }
      digest.add(&s.iterations, sizeof s.iterations);
      solver.free();
    }
  }
  std::cout.rdbuf(before);
  const std::string text = said.str();
  digest.add(text.data(), text.size());
  return digest.value();
}

int run(int devices) {
  std::vector<Problem> problems;
  for (const std::string& name : referenceCaseNames()) {
    problems.push_back(fromCase(loadReferenceCase(name)));
  }
  for (unsigned seed = 1; seed <= 200; ++seed) problems.push_back(random(seed));
  for (const Problem& p : problems) {
    for (const int engine : {Params::engine_plain, Params::engine_fused, Params::engine_strips}) {
      std::printf("%s engine%d devices%d %016llx\n", p.name.c_str(), engine, devices,
                  static_cast<unsigned long long>(solve(p, engine, devices)));
    }
  }
  return 0;
}

}  // namespace
}  // namespace namespace_ratseg

int main(int argc, char** argv) { return namespace_ratseg::run(argc > 1 ? std::atoi(argv[1]) : 1); }
