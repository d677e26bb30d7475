#include "algorithms/rat_segments/alg/plain/solver_state.h"

#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "device/runtime.h"

namespace namespace_ratseg {

float SolverState::constAlphaOfPrior() const {
  const bool scaled = par.kind_prior == Params::kind_prior_interval ||
                      par.kind_prior == Params::kind_prior_upperBound;
  return scaled ? static_cast<float>(par.w * par.h) : 1.0f;
}

bool SolverState::accelerates() const {
  return par.accelerate && par.kind_prior != Params::kind_prior_interval &&
         par.kind_prior != Params::kind_prior_lowerBound;
}

void SolverState::select(int d, unsigned long line) const {
  cudaSetDevice(dev[d]);
  check(line);
}

void SolverState::selectAfter(int d, int other, unsigned long line) const {
  if (dev[d] != dev[other]) {
    select(other, line);
    cudaEventRecord(arrays[other].queued);
    check(line);
    select(d, line);
    cudaStreamWaitEvent(0, arrays[other].queued);
    check(line);
    return;
  }
  select(d, line);
}

void SolverState::deviceSynchronizeAll() const {
  for (int d = 0; d < bands(); ++d) {
    select(d, kStateLines + __LINE__);
    cudaDeviceSynchronize();
    check(kStateLines + __LINE__);
  }
}

}  // namespace namespace_ratseg
