#include "algorithms/rat_segments/alg/strips_gpu/strip_engine.h"

#include <algorithm>
#include <limits>

#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "device/runtime.h"

namespace namespace_ratseg {

bool StripEngine::canRun(const SolverState& solver) {
  if (!StripKernels::areThere()) return false;
  for (int d = 0; d < solver.bands(); ++d) {
    cudaDeviceProp device;
    cudaGetDeviceProperties(&device, solver.dev[d]);
    if (solver.par.n > static_cast<std::size_t>(std::max(device.maxThreadsPerBlock, 0)))
      return false;
    if (solver.arrays[d].NOmegaOffset > std::numeric_limits<int>::max()) return false;
  }
  return solver.bandsReachEachOther();
}

std::unique_ptr<StripEngine> StripEngine::make(SolverState& solver, const StepSizes& sizes,
                                               const StripWish& wish) {
  std::unique_ptr<StripEngine> engine(new StripEngine(solver, sizes));
  if (!engine->bands_.allocate(wish)) return nullptr;
  engine->queues_.emplace(solver);
  engine->takeOver();
  return engine;
}

StripEngine::StripEngine(SolverState& solver, const StepSizes& sizes)
    : solver_(solver), plain_(solver), bands_(solver, sizes) {}

StripEngine::~StripEngine() {
  if (queues_) handOver();
}

void StripEngine::select(std::size_t d, SourceLocation where) {
  solver_.select(static_cast<int>(d), where);
}

// The halo row of u, which is empty so far: the plain engine does not read it.
void StripEngine::fillHaloOfU() {
  for (std::size_t d = 0; d + 1 < bands_.size(); ++d) {
    gpudata& to = solver_.arrays[d];
    gpudata& from = solver_.arrays[d + 1];
    solver_.selectAfter(static_cast<int>(d), static_cast<int>(d) + 1);
    ratSegKernels().ratseg_copyFirstToLast({solver_.grid_copy, solver_.block_copy, 0}, to.u, from.u,
                                           solver_.par.w, to.h, from.h, solver_.par.n);
    check();
  }
}

// The labeling before the start from u_bar, and gamma of the first iteration from the sums of
// u_bar.
void StripEngine::takeOver() {
  solver_.constAlpha = solver_.constAlphaOfPrior();
  plain_.computeSumU__save_on_gpu0();
  fillHaloOfU();
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    StripBuffers& b = bands_[d];
    select(d);
    stripKernels().ratseg_strip_enter(b.u[1], b.u[0], bands_.thetaBar(), solver_.arrays[d].NOffset);
    check();
  }
  StripBuffers& b = bands_[0];
  gpudata& g = solver_.arrays[0];
  select(0);
  copyLabels(nullptr, b.gamma[1], g.gamma);
  copyLabels(nullptr, b.sum[0], g.sum_u);
  copyLabels(nullptr, b.a[1], g.a);
  bands_.setDone(0);
  queues_->enter();
  queues_->fanOut();
  nextGamma(0);
  queues_->fanIn();
  hasArrays_ = true;
}

void StripEngine::handOver() {
  if (!hasArrays_) return;
  hasArrays_ = false;
  publish();
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    gpudata& g = solver_.arrays[d];
    StripBuffers& b = bands_[d];
    float2* p = b.p[bands_.now()];
    select(d);
    stripKernels().ratseg_strip_leave(g.u, g.u_bar, b.u[bands_.current()], b.u[bands_.previous()],
                                      bands_.thetaBar(), g.NOffset);
    check();
    if (p != g.p.get_ptr()) {
      cudaMemcpy(g.p.get_ptr(), p, g.p.numBytes(), cudaMemcpyDeviceToDevice);
      check();
    }
  }
  solver_.deviceSynchronizeAll();
}

LaunchShape StripEngine::perLabel(cudaStream_t stream) const {
  LaunchShape shape = plain_.perLabel();
  shape.stream = stream;
  return shape;
}

// n floats on a queue of the current device.
void StripEngine::copyLabels(cudaStream_t stream, float* to, float* from) {
  ratSegKernels().ratseg_copyGamma(perLabel(stream), to, from, solver_.par.n);
  check();
}

void StripEngine::publish() {
  queues_->leave();
  if (bands_.done() > 0) {
    const std::size_t parity = (bands_.done() - 1) % 2;
    for (std::size_t d = 0; d < bands_.size(); ++d) {
      select(d);
      copyLabels(nullptr, solver_.arrays[d].gamma, bands_[d].gamma[parity]);
    }
    publishShares(parity);
  }
  queues_->enter();
}

// The sums and, where they were computed ahead, the shares of the iteration of that parity.
void StripEngine::publishShares(std::size_t parity) {
  gpudata& g = solver_.arrays[0];
  StripBuffers& b = bands_[0];
  select(0);
  copyLabels(nullptr, g.sum_u, b.sum[parity]);
  if (!solver_.accelerates()) return;
  copyLabels(nullptr, g.a, b.a[parity]);
  copyLabels(nullptr, g.a_bar, b.a[parity]);
  if (solver_.par.kind_prior != Params::kind_prior_upperBound) return;
  copyLabels(nullptr, g.alpha, b.alpha[parity]);
  copyLabels(nullptr, g.beta, b.beta[parity]);
}

std::size_t StripEngine::stepsAhead(const Params& par, std::size_t step) {
  const std::size_t maxSteps = std::min(par.Nsteps - step + 1, kStepsAtOnce);
  if (par.outModulo == 0) return maxSteps;
  const std::size_t behind = step % par.outModulo;
  return behind == 0 ? 1 : std::min(maxSteps, par.outModulo - behind);
}

void StripEngine::advance(std::size_t count) {
  replayed_ = false;
  const bool records = count == kStepsAtOnce && launchedAll_ && canRecord_;
  if (records && !cuda_check_isSync()) {
    select(0);
    StripReplay* recording = recordingOf(count);
    if (recording != nullptr) {
      queues_->replay(*recording);
      bands_.setDone(bands_.done() + count);
      replayed_ = true;
      return;
    }
  }
  steps(count);
  launchedAll_ = true;
}

// That of as many iterations from here on, on device 0, which is selected; null where there can be
// none.
StripReplay* StripEngine::recordingOf(std::size_t count) {
  std::unique_ptr<StripReplay>& recording = replays_[bands_.done() % StripBands::kPhases];
  if (recording == nullptr) {
    const std::size_t before = bands_.done();
    recording = stripKernels().record(queues_->main(0), [&] { steps(count); });
    check();
    bands_.setDone(before);
    canRecord_ = recording != nullptr;
  }
  return recording.get();
}

void StripEngine::steps(std::size_t count) {
  queues_->fanOut();
  for (std::size_t k = 0; k < count; ++k) {
    if (bands_.size() == 1) {
      stepOneBand();
    } else {
      stepBands();
    }
    bands_.setDone(bands_.done() + 1);
  }
  queues_->fanIn();
}

}  // namespace namespace_ratseg
