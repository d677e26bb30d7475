#ifndef RATSEG_TESTS_REFERENCE_REFERENCE_SHARES_H
#define RATSEG_TESTS_REFERENCE_REFERENCE_SHARES_H

// The exact step of the shares of docs/math.md, section 12, in double precision.

#include <vector>

#include "reference/reference_solver.h"

namespace namespace_ratseg {

// The shares a that minimise prior(a) / N + step/2 |a - q|^2 over all a with a_b <= 1, for the
// upper bound. For every other prior, q.
std::vector<double> referenceExactShares(const ReferenceProblem& problem,
                                         const std::vector<double>& q, double step);

}  // namespace namespace_ratseg

#endif
