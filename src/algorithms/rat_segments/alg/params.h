#ifndef RATSEG_ALG_PARAMS_H
#define RATSEG_ALG_PARAMS_H

// The parameters of a solve, its statistics, and the watcher that may stop it.

#include <cstddef>
#include <limits>
#include <vector>

namespace namespace_ratseg {

struct Statistics;

// The state of a run, for its watcher.
class RunState {
 public:
  // Iterations so far, and the figures of the last check.
  virtual const Statistics& statistics() const = 0;

  // The labeling as it is now, as RatSeg::getSolution has it. It costs about as much as an
  // iteration or two, and the copy.
  virtual void getSolution(float* uh) = 0;

 protected:
  ~RunState() = default;
};

// Decides before the first iteration and between iterations whether a run goes on; with the strip
// engine, which queues 24 iterations at a time, behind each 24. An exception that it throws leaves
// run(), and the solver is then as after a stop.
class RunWatcher {
 public:
  virtual bool goOn(RunState& state) = 0;

 protected:
  ~RunWatcher() = default;
};

// The parameters of a solve. Fill it before alloc(); after alloc() w, h and n may
// not change, and threadsx, threadsy, gpu and gpu_num have no effect before the next alloc().
// alloc() and run() refuse values that they cannot compute with, as noted at each one.
//
// Another thread may set cancel while run() works, through std::atomic_ref<bool>. run() clears it
// when it begins and stops at the next iteration; on GPUs at one of the next hundred, which are
// queued.
struct Params {
  static constexpr int kind_prior_none = 0;        // no prior on the shares
  static constexpr int kind_prior_interval = 1;    // shares within [mins, maxs]
  static constexpr int kind_prior_lowerBound = 2;  // mu and ratios; linear dual
  static constexpr int kind_prior_upperBound = 3;  // mu, eps, ratios and sigmas

  static constexpr int engine_auto = 0;    // the fastest that is trusted on the devices
  static constexpr int engine_plain = 1;   // one launch per kernel
  static constexpr int engine_fused = 2;   // one sweep per iteration, where bands allow it
  static constexpr int engine_strips = 3;  // the GPUs' fused engine, in tests on the host too

  std::size_t w = 128;            // image width in pixels
  std::size_t h = 128;            // image height in pixels
  std::size_t n = 32;             // number of labels; with more than a block's threads (1024) the
                                  // first iteration is an error of the device
  std::size_t Nsteps = 1000;      // iterations that run() performs
  float dt_multiplier = 1.0f;     // scale of the primal step, > 0; the dual step's is 1 over it;
                                  // anything but a finite number above 0 is refused
  bool initLocalSolution = true;  // start from the pixelwise best label instead of zero
  bool cancel = false;            // set during run() it stops it soon (see above)
  std::size_t outModulo = 1000;   // period of progress output, in iterations; 0 = none
  std::size_t threadsx = 128;     // thread-block width of the per-pixel kernels
  std::size_t threadsy = 2;       // and height; 1 to 1024 threads in all, others are refused
  int gpu_num = -1;               // when gpu is empty: -k = the first k devices, 0 = all devices;
                                  // positive ones are refused
  std::vector<int> gpu;           // device numbers, one band each; overrides gpu_num. A number that
                                  // stands there twice has two bands; unknown ones are refused
  float lambda = 0.2f;  // weight of the length term, >= 0; FLT_MAX = no bound on its dual,
                        // as with a negative one; NaN is refused
  int kind_prior = kind_prior_upperBound;  // others than the four count as none
  float mu = 10000.0f;  // weight of the prior; 0 = off; negative or FLT_MAX = strict, with the
                        // upper bound only; NaN is refused
  float eps = 0.01f;    // tolerance of the upper-bound prior, > 0; NaN is refused; a negative one
                        // is computed with, to a labeling without meaning
  int engine = engine_auto;  // how run() computes; results are the same up to rounding

  // Fewer iterations to the same optimum with the upper-bound prior and with none, by an exact step
  // of the shares (docs/math.md, section 12); for the other priors nothing changes. dt_multiplier
  // then scales a step that is balanced for lambda.
  bool accelerate = false;

  // Certified stop: run() ends when the gap is at most this; 0 or less = never, and nothing is
  // computed; NaN is refused.
  // It is checked every certifyModulo iterations and after the last; with accelerate more often at
  // the beginning.
  float tolerance = 0.0f;
  std::size_t certifyModulo = 500;

  RunWatcher* watcher = nullptr;  // null = nobody; must outlive run()
};

// Figures of the last run(). Energies, bound and gaps are computed where Params::tolerance asks for
// them (docs/math.md, section 11) and belong to the state after iteration certifiedIteration; NaN
// and 0 before a check.
struct Statistics {
  static constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

  std::size_t iterations = 0;          // performed
  std::size_t certifiedIteration = 0;  // of the last check
  double energy = kNone;               // of the relaxed labeling
  double labelingEnergy = kNone;       // of the hard labeling; infinite if a constraint forbids it
  double bound = kNone;                // no labeling, relaxed or hard, has less energy
  double gap = kNone;                  // (energy - bound) / size of the energy
  double labelingGap = kNone;          // (labelingEnergy - bound) / the same size
  bool toleranceMet = false;           // gap <= tolerance: the reason for the stop
  bool stopped = false;                // by Params::cancel or the watcher

  // False when the iteration left NaN or infinite values in the labeling, in its duals or in the
  // shares, or began with NaN in the data term or the weight. The result of getSolution() is
  // then meaningless, even where it looks right.
  bool finite = true;
};

}  // namespace namespace_ratseg

#endif
