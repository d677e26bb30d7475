#ifndef RATSEG_ALG_ENGINE_H
#define RATSEG_ALG_ENGINE_H

#include <cstddef>

namespace namespace_ratseg {

// The scale of the primal and of the dual step of an iteration.
struct StepSizes {
  float tau = 1.0f;
  float sigma = 1.0f;
};

// One way to compute the iterations of one run(). An engine works on the solver's arrays from its
// construction on and may keep them in another form; between handOver() and takeOver() they are
// whole, and others may read them, and write halo rows, which takeOver() fills anew where it needs
// them. All engines compute the same up to rounding.
class Engine {
 public:
  virtual ~Engine() = default;

  // How many iterations run() may ask for at once when iteration step, counted from 1, comes next:
  // at least 1.
  virtual std::size_t stepsAhead(std::size_t step) const {
    (void)step;
    return 1;
  }

  // Computes that many iterations, or queues them on the devices.
  virtual void advance(std::size_t count) = 0;

  // Brings the shares and their multipliers in the solver's arrays up to date, for a report.
  virtual void publish() {}

  // Gives the arrays back, as all iterations so far leave them. A second call does nothing.
  virtual void handOver() {}

  // Goes on from what the arrays hold. Only after handOver().
  virtual void takeOver() {}
};

}  // namespace namespace_ratseg

#endif
