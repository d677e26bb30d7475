#include "algorithms/rat_segments/alg/plain/plain_engine.h"

namespace namespace_ratseg {

// Bytes moved per pixel and label: 20 in the dual step (u_bar and p read, p written, the row below
// from cache), 4 in the sums, 24 in the primal step (u, p, rho read; u and u_bar written).
void PlainEngine::advance(std::size_t count) {
  for (std::size_t k = 0; k < count; ++k) {
    steps_.dualStepOfLength(sizes_.sigma);
    steps_.copyExtraRegions_p();
    steps_.computeSumU__save_on_gpu0();
    steps_.updateShares(sizes_.tau, sizes_.sigma);
    steps_.primalStepOfLabeling(sizes_.tau);
    steps_.copyExtraRegions_u();
  }
}

}  // namespace namespace_ratseg
