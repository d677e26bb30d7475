#include "algorithms/rat_segments/alg/choose_engine.h"

#include "algorithms/rat_segments/alg/fused_host/host_engine.h"
#include "algorithms/rat_segments/alg/plain/plain_engine.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_engine.h"
#include "device/selection.h"

namespace namespace_ratseg {

namespace {

// True if engine_auto stands for the strip engine on GPUs: not before it has run on one
// (docs/benchmarks.md).
constexpr bool kStripsByDefault = false;

bool wantsStrips(const Params& par) {
  if (par.engine == Params::engine_strips) return true;
  if (backend().isHost()) return false;
  return par.engine == Params::engine_fused ||
         (kStripsByDefault && par.engine == Params::engine_auto);
}

}  // namespace

std::unique_ptr<Engine> chooseEngine(SolverState& solver, const StepSizes& sizes) {
  const Params& par = solver.par;
  if (par.Nsteps > 0 && wantsStrips(par) && StripEngine::canRun(solver)) {
    auto strips = StripEngine::make(solver, sizes, solver.stripWish.orEnd());
    if (strips != nullptr) return strips;
  }
  if (par.engine != Params::engine_plain && HostEngine::canRun(solver)) {
    return std::make_unique<HostEngine>(solver, sizes);
  }
  return std::make_unique<PlainEngine>(solver, sizes);
}

}  // namespace namespace_ratseg
