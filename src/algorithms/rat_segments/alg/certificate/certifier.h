#ifndef RATSEG_ALG_CERTIFICATE_CERTIFIER_H
#define RATSEG_ALG_CERTIFICATE_CERTIFIER_H

#include <cstddef>
#include <vector>

#include "algorithms/rat_segments/alg/certificate/certificate.h"
#include "algorithms/rat_segments/alg/plain/solver_state.h"
#include "util/cudaarray.h"

namespace namespace_ratseg {

// Certifies a run of the solver as it goes on: energies, lower bound and gap of the state that the
// arrays of the bands are in (docs/math.md, section 11), on every backend and with any bands.
//
// A check reads u, p, rho, weight and the per-label vectors once. It writes the halo rows of u and
// p, which the iteration does not read before it writes them itself.
class Certifier {
 public:
  // Allocates the parts' sums on each device; solver must outlive the certifier.
  explicit Certifier(SolverState& solver);

  // Number of iterations, at least 1, from iteration step on up to the next check. There is a check
  // after every certifyModulo iterations and after the last. The accelerated iteration may need
  // only a few dozen: it is checked after 64 iterations and then each time their number has grown
  // by a quarter, but at least every certifyModulo.
  std::size_t stepsToCheck(std::size_t step) const;

  // Certifies the state, which is that after iteration step, into the solver's statistics. True
  // when the gap is at most the tolerance.
  bool certify(std::size_t step);

 private:
  struct Band {
    std::size_t parts = 0;
    cudaarray<double> partSums, sums;
  };

  void fillHalos();
  void launch(int d);
  ShareDuals gather(std::vector<double>& sums);

  SolverState& solver_;
  SharePrior prior_;
  std::size_t checked_ = 0;  // iterations before the last check
  std::vector<Band> bands_;
};

}  // namespace namespace_ratseg

#endif
