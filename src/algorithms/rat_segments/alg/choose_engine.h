#ifndef RATSEG_ALG_CHOOSE_ENGINE_H
#define RATSEG_ALG_CHOOSE_ENGINE_H

#include <memory>

#include "algorithms/rat_segments/alg/engine.h"
#include "algorithms/rat_segments/alg/plain/solver_state.h"

namespace namespace_ratseg {

// The engine that Params::engine asks for, or where the devices do not allow that one, or have none
// of its kernels, the next plainer: strips, the fused one of the host, the plain one.
std::unique_ptr<Engine> chooseEngine(SolverState& solver, const StepSizes& sizes);

}  // namespace namespace_ratseg

#endif
