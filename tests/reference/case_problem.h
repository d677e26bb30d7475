#ifndef RATSEG_TESTS_REFERENCE_CASE_PROBLEM_H
#define RATSEG_TESTS_REFERENCE_CASE_PROBLEM_H

#include <vector>

#include "reference/reference_solver.h"
#include "support/reference_case.h"

namespace namespace_ratseg {

// The reference solver's problem of a stored case, in one band.
inline ReferenceProblem problemOf(const ReferenceCase& c) {
  const auto wide = [](const std::vector<float>& v) {
    return std::vector<double>(v.begin(), v.end());
  };
  ReferenceProblem p;
  p.w = c.w;
  p.h = c.h;
  p.n = c.n;
  p.rho = wide(c.rho);
  p.weight = wide(c.weight);
  p.ratios = wide(c.ratios);
  p.sigmas = wide(c.sigmas);
  p.mins = wide(c.mins);
  p.maxs = wide(c.maxs);
  p.ind_bgr = c.ind_bgr;
  p.kind_prior = c.kind_prior;
  p.lambda = c.lambda;
  p.mu = c.mu;
  p.eps = c.eps;
  p.dt_multiplier = c.dt_multiplier;
  return p;
}

}  // namespace namespace_ratseg

#endif
