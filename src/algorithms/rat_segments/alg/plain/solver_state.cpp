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

bool SolverState::bandsReachEachOther() const {
  const auto reach = [this](int a, int b) { return canAccess(a, b) && canAccess(b, a); };
  for (int d = 1; d < bands(); ++d) {
    if (!reach(d, d - 1) || !reach(0, d)) return false;
  }
  return true;
}

void SolverState::select(int d, SourceLocation where) const {
  cudaSetDevice(dev[d]);
  check(where);
}

void SolverState::selectAfter(int d, int other, SourceLocation where) const {
  if (dev[d] != dev[other]) {
    select(other, where);
    cudaEventRecord(arrays[other].queued);
    check(where);
    select(d, where);
    cudaStreamWaitEvent(0, arrays[other].queued);
    check(where);
    return;
  }
  select(d, where);
}

void SolverState::deviceSynchronizeAll() const {
  for (int d = 0; d < bands(); ++d) {
    select(d);
    cudaDeviceSynchronize();
    check();
  }
}

}  // namespace namespace_ratseg
