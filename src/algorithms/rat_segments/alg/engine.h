#ifndef RATSEG_ALG_ENGINE_H
#define RATSEG_ALG_ENGINE_H

#include <cstddef>

namespace namespace_ratseg {

// The scale of the primal and of the dual step of an iteration.
struct StepSizes {
  float tau = 1.0f;
  float sigma = 1.0f;
};

// One way to compute the iterations of one run(). An engine takes the solver's arrays when it is
// constructed and may keep them in another form. Between handOver() and takeOver() the solver has
// them back in their own form: others may read them and overwrite halo rows. All engines compute
// the same up to rounding.
class Engine {
 public:
  virtual ~Engine() = default;

  // The number of iterations, at least 1, that run() may pass to advance() when iteration step,
  // counted from 1, comes next.
  virtual std::size_t stepsAhead(std::size_t step) const {
    (void)step;
    return 1;
  }

  // Computes that many iterations, or queues them on the devices.
  virtual void advance(std::size_t count) = 0;

  // Brings the shares and their multipliers in the solver's arrays up to date, for a report.
  virtual void publish() {}

  // Gives the arrays back to the solver, with the state after all iterations so far. A second call
  // does nothing.
  virtual void handOver() {}

  // Takes the arrays from the solver again, to go on from the state that they hold; fills the halo
  // rows that the engine needs. Only after handOver().
  virtual void takeOver() {}
};

}  // namespace namespace_ratseg

#endif
