#ifndef RATSEG_TESTS_REFERENCE_REFERENCE_PROJECTIONS_H
#define RATSEG_TESTS_REFERENCE_REFERENCE_PROJECTIONS_H

// The projections and proximal steps of docs/math.md, section 7, in double precision. Where the
// program uses a closed form or a series, these search for the root, so that each checks the other.

#include <vector>

namespace namespace_ratseg {

struct ReferencePoint {
  double x = 0;
  double y = 0;
};

// Section 7.1: (x, y) / max(|(x, y)| / r, 1). r >= FLT_MAX: no bound; r = 0: the origin.
// Expects r >= 0.
ReferencePoint referenceDisc(ReferencePoint q, double r);

// Section 7.2: the simplex {v >= 0, sum v = 1}, by repeated subtraction of the mean excess, in
// place. An empty v stays empty.
void referenceSimplex(std::vector<double>& v);

// Section 7.3: the region {y >= x^2 / (4 d)}. d >= FLT_MAX: the half plane y >= 0; d < 1e-12: the
// ray x = 0, y >= 0.
ReferencePoint referenceParabola(ReferencePoint q, double d);

// Section 7.4: the cone {y >= lo x, y >= hi x}. Expects lo <= hi.
ReferencePoint referenceIntervalCone(ReferencePoint q, double lo, double hi);

// Section 7.5: the minimiser over a <= 1 of (a - at)^2 / 2 + E / (1 - a). Expects E >= 0; E = 0
// leaves the constraint alone, min(at, 1).
double referenceBarrierProx(double at, double E);

}  // namespace namespace_ratseg

#endif
