#ifndef RATSEG_ALG_PLAIN_PLAIN_ENGINE_H
#define RATSEG_ALG_PLAIN_PLAIN_ENGINE_H

#include <cstddef>

#include "algorithms/rat_segments/alg/engine.h"
#include "algorithms/rat_segments/alg/plain/plain_steps.h"

namespace namespace_ratseg {

// The engine with one launch per kernel. It runs on every device; the others are compared with it.
class PlainEngine final : public Engine {
 public:
  PlainEngine(SolverState& solver, const StepSizes& sizes) : steps_(solver), sizes_(sizes) {}

  void advance(std::size_t count) override;

 private:
  PlainSteps steps_;
  StepSizes sizes_;
};

}  // namespace namespace_ratseg

#endif
