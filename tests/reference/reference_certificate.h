#ifndef RATSEG_TESTS_REFERENCE_REFERENCE_CERTIFICATE_H
#define RATSEG_TESTS_REFERENCE_REFERENCE_CERTIFICATE_H

// The certificate of docs/math.md, section 11, from a state of the iteration: whole images are
// built where the program adds up sums, and the energy is that of reference_energy.h.

#include <vector>

#include "reference/reference_solver.h"

namespace namespace_ratseg {

// A state: n planes of w h values, and n values per label. Any state whose duals are in their sets
// up to rounding has a bound; the program's states in single precision as well.
struct ReferenceState {
  std::vector<double> u, px, py, gamma, alpha, beta;
};

ReferenceState stateOf(const ReferenceSolver& solver);

struct ReferenceCertificate {
  double energy = 0, labelingEnergy = 0, bound = 0;
  double size = 0;  // sum of the magnitudes of the energy's terms
};

// The problem's mins and maxs must be filled.
ReferenceCertificate referenceCertificate(const ReferenceProblem& problem,
                                          const ReferenceState& state);

// The labeling of zeros and ones that takes at each pixel the label of the greatest u_i.
std::vector<double> referenceHardLabeling(const ReferenceProblem& problem,
                                          const std::vector<double>& u);

// u divided by its sum at each pixel and, where a hard constraint does not hold, mixed with
// labelings of one label each so that it does; empty where that cannot be.
std::vector<double> referenceFeasible(const ReferenceProblem& problem,
                                      const std::vector<double>& u);

}  // namespace namespace_ratseg

#endif
