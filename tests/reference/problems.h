#ifndef RATSEG_TESTS_REFERENCE_PROBLEMS_H
#define RATSEG_TESTS_REFERENCE_PROBLEMS_H

// Small problems that the tests of the reference solver start from.

#include <cstddef>
#include <random>
#include <vector>

#include "reference/reference_solver.h"

namespace namespace_ratseg {

inline std::vector<double> randomValues(std::size_t count, double lo, double hi, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(lo, hi);
  std::vector<double> values(count);
  for (double& v : values) v = value(random);
  return values;
}

// Random data term and weight; equal ratios of all foreground labels, the background last, all
// parameters moderate.
inline ReferenceProblem randomReferenceProblem(std::size_t w, std::size_t h, std::size_t n,
                                               int kind_prior, unsigned seed = 1) {
  ReferenceProblem p;
  p.w = w;
  p.h = h;
  p.n = n;
  p.rho = randomValues(w * h * n, 0, 2, seed);
  p.weight = randomValues(w * h, 0.1, 1, seed + 1);
  p.ratios.assign(n, n > 1 ? 1.0 / static_cast<double>(n - 1) : 1.0);
  p.sigmas.assign(n, 0.2);
  p.ind_bgr = n - 1;
  p.kind_prior = kind_prior;
  p.lambda = 0.8;
  p.mu = 3;
  p.eps = 0.5;
  return p;
}

}  // namespace namespace_ratseg

#endif
