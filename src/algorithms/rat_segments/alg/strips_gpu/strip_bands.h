#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_BANDS_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_BANDS_H

#include <array>
#include <cstddef>
#include <vector>

#include "algorithms/rat_segments/alg/engine.h"
#include "algorithms/rat_segments/alg/plain/plain_steps.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "util/cudaarray.h"

namespace namespace_ratseg {

// One band's arrays. Those that take turns are together; where there are two, iteration k uses
// [k % 2].
struct StripBuffers {
  std::array<float*, 3> u = {};
  std::array<float2*, 2> p = {};
  std::array<float*, 2> gamma = {};
  std::array<float*, 2> sum = {};  // sums of u_bar that gamma of the same index was computed from
  // With the exact step of the shares: the values that belong to gamma of the same index.
  std::array<float*, 2> a = {}, alpha = {}, beta = {};
  cudaarray<float> extraU, perLabel, partials, counter;
  cudaarray<float2> extraP;
  StripShape shape;
  unsigned firstRows = 0;    // that the band above waits for; 0 with one band
  unsigned firstBlocks = 0;  // of their launch
  unsigned blocks = 0;       // of all launches of an iteration
};

// The bands of the strip engine: their second arrays, which array plays which part in the coming
// iteration, and what that iteration's launches are given.
class StripBands {
 public:
  // Buffers of the labeling change roles in a cycle of three, those of the dual field and of the
  // multipliers in one of two: after six iterations all are back.
  static constexpr std::size_t kPhases = 6;

  StripBands(SolverState& solver, const StepSizes& sizes);

  // False when a device has no room for the second arrays and for later needs.
  bool allocate(const StripWish& wish);

  std::size_t size() const { return bands_.size(); }
  StripBuffers& operator[](std::size_t d) { return bands_[d]; }
  float sigma() const { return sigma_; }
  float thetaBar() const { return theta_bar_; }

  // Iterations so far.
  std::size_t done() const { return done_; }
  void setDone(std::size_t done) { done_ = done; }

  // Indices of u: the labeling that the next iteration starts from, the one before that, and the
  // one that it writes.
  std::size_t current() const { return 2 * done_ % 3; }
  std::size_t previous() const { return (2 * done_ + 1) % 3; }
  std::size_t next() const { return (2 * done_ + 2) % 3; }
  // Indices of p, gamma and the others in pairs: what the next iteration reads, and what it writes.
  std::size_t now() const { return done_ % 2; }
  std::size_t then() const { return 1 - done_ % 2; }

  // True if the sweep of an iteration also computes gamma of the next one, so that an iteration is
  // one kernel.
  bool nextGammaInSweep() const { return bands_.size() == 1 && !solver_.accelerates(); }

  // For the launches of the coming iteration: all rows of a band, the prior's step on device 0, and
  // a band's sums with, where the sweep computes it, the next gamma.
  StripBand rows(std::size_t d) const;
  StripShares shares() const;
  StripFinish finish(std::size_t d) const;

 private:
  void allocateBand(std::size_t d, const StripWish& wish);
  void assignRoles(std::size_t d);

  SolverState& solver_;
  float tau_, sigma_, theta_bar_ = kThetaBar;
  std::vector<StripBuffers> bands_;
  std::size_t done_ = 0;
};

}  // namespace namespace_ratseg

#endif
