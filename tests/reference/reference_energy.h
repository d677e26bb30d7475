#ifndef RATSEG_TESTS_REFERENCE_REFERENCE_ENERGY_H
#define RATSEG_TESTS_REFERENCE_REFERENCE_ENERGY_H

// The energy of docs/math.md, sections 2 and 5, of a relaxed labeling u (n planes of w h values).

#include <vector>

#include "reference/reference_solver.h"

namespace namespace_ratseg {

// The share of the image that each label covers: sum of u_i / N.
std::vector<double> referenceShares(const ReferenceProblem& problem, const std::vector<double>& u);

// Sum of rho u over the finite costs. Forbidden and forced labels add nothing.
double referenceDataEnergy(const ReferenceProblem& problem, const std::vector<double>& u);

// (lambda / 2) sum of weight |grad u_i|. Infinite where an absent bound meets a boundary.
double referenceLengthEnergy(const ReferenceProblem& problem, const std::vector<double>& u);

// The prior's energy of the shares a. Where the prior is a set of constraints it is 0 if they hold
// within tolerance and infinite if not. The problem's mins and maxs must be filled.
double referencePriorEnergy(const ReferenceProblem& problem, const std::vector<double>& a,
                            double tolerance = 0);

// The sum of the three, with the shares that u has.
double referenceEnergy(const ReferenceProblem& problem, const std::vector<double>& u,
                       double tolerance = 0);

}  // namespace namespace_ratseg

#endif
