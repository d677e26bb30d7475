#ifndef RATSEG_ALG_CHOOSE_ENGINE_H
#define RATSEG_ALG_CHOOSE_ENGINE_H

#include <memory>

#include "algorithms/rat_segments/alg/engine.h"
#include "algorithms/rat_segments/alg/plain/solver_state.h"

namespace namespace_ratseg {

// Makes the engine that Params::engine asks for. If the devices do not allow it or lack its
// kernels, makes the next one of: strips, the fused one of the host, the plain one.
std::unique_ptr<Engine> chooseEngine(SolverState& solver, const StepSizes& sizes);

}  // namespace namespace_ratseg

#endif
