#include "algorithms/rat_segments/alg/strips_gpu/strip_engine.h"

#include <algorithm>
#include <limits>

#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "device/runtime.h"

namespace namespace_ratseg {

namespace {

bool ranOutOfMemory() {
  if (cudaPeekAtLastError() != cudaErrorMemoryAllocation) return false;
  cudaGetLastError();
  return true;
}

// What a device needs after the engine's arrays: kernels that are loaded when they are first
// launched, their local memory, the summation's scratch, recordings.
constexpr std::size_t kMemoryLeft = std::size_t{64} << 20;

// Of the current device.
std::size_t freeMemory() {
  std::size_t left = 0, whole = 0;
  cudaMemGetInfo(&left, &whole);
  return left;
}

}  // namespace

bool StripEngine::canRun(const SolverState& solver) {
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
  if (!engine->allocate(wish)) return nullptr;
  engine->createQueues();
  engine->takeOver();
  return engine;
}

StripEngine::StripEngine(SolverState& solver, const StepSizes& sizes)
    : solver_(solver),
      plain_(solver),
      tau_(sizes.tau),
      sigma_(sizes.sigma),
      bands_(static_cast<std::size_t>(solver.bands())) {}

void StripEngine::select(std::size_t d) { solver_.select(static_cast<int>(d)); }

// False when a device has no room.
bool StripEngine::allocate(const StripWish& wish) {
  const Params& par = solver_.par;
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    gpudata& g = solver_.arrays[d];
    Band& b = bands_[d];
    select(d);
    cudaDeviceProp device;
    cudaGetDeviceProperties(&device, solver_.dev[d]);
    check();
    b.shape = stripShape(par.w, g.h, par.n, device, wish);
    const std::size_t first = bands_.size() > 1 ? std::min<std::size_t>(b.shape.rows, g.h) : 0;
    b.firstRows = static_cast<unsigned>(first);
    b.firstBlocks = stripBlocks(b.shape, par.w, first);
    b.blocks = b.firstBlocks + stripBlocks(b.shape, par.w, g.h - first);
    b.extraU.alloc(g.NOffset);
    b.extraP.alloc(g.NOffset);
    b.perLabel.alloc(10 * par.n);
    b.partials.alloc(b.blocks * par.n);
    b.counter.alloc(1);
    if (ranOutOfMemory() || freeMemory() < kMemoryLeft) return false;
    check();
    b.u = {g.u, g.u_bar, b.extraU};
    b.p = {g.p, b.extraP};
    float* values = b.perLabel;
    for (std::size_t k = 0; k < 2; ++k) {
      b.gamma[k] = values + k * par.n;
      b.sum[k] = values + (2 + k) * par.n;
      b.a[k] = values + (4 + k) * par.n;
      b.alpha[k] = values + (6 + k) * par.n;
      b.beta[k] = values + (8 + k) * par.n;
    }
  }
  return true;
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

void StripEngine::createQueues() {
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    Band& b = bands_[d];
    select(d);
    for (cudaStream_t* stream : {&b.stream, &b.side}) {
      cudaStreamCreate(stream);
      check();
    }
    for (cudaEvent_t* event : {&b.mark, &b.edge, &b.first}) {
      cudaEventCreate(event);
      check();
    }
  }
  select(0);
  for (cudaEvent_t& end : ends_) {
    cudaEventCreate(&end);
    check();
  }
  started_ = true;
}

// The labeling before the start from u_bar, and gamma of the first iteration from the sums of
// u_bar.
void StripEngine::takeOver() {
  solver_.constAlpha = solver_.constAlphaOfPrior();
  plain_.computeSumU__save_on_gpu0();
  fillHaloOfU();
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    gpudata& g = solver_.arrays[d];
    Band& b = bands_[d];
    select(d);
    stripKernels().ratseg_strip_enter(b.u[1], b.u[0], theta_bar_, g.NOffset);
    check();
  }
  Band& b = bands_[0];
  gpudata& g = solver_.arrays[0];
  select(0);
  copyLabels(nullptr, b.gamma[1], g.gamma);
  copyLabels(nullptr, b.sum[0], g.sum_u);
  copyLabels(nullptr, b.a[1], g.a);
  done_ = 0;
  enterQueues();
  fanOut();
  nextGamma(0);
  fanIn();
  hasArrays_ = true;
}

void StripEngine::handOver() {
  if (!hasArrays_) return;
  hasArrays_ = false;
  publish();
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    gpudata& g = solver_.arrays[d];
    Band& b = bands_[d];
    select(d);
    stripKernels().ratseg_strip_leave(g.u, g.u_bar, b.u[current()], b.u[previous()], theta_bar_,
                                      g.NOffset);
    check();
    if (b.p[done_ % 2] != g.p.get_ptr()) {
      cudaMemcpy(g.p.get_ptr(), b.p[done_ % 2], g.p.numBytes(), cudaMemcpyDeviceToDevice);
      check();
    }
  }
  solver_.deviceSynchronizeAll();
}

StripEngine::~StripEngine() {
  if (!started_) return;
  handOver();
  for (cudaEvent_t end : ends_) {
    select(0);
    cudaEventDestroy(end);
    check();
  }
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    Band& b = bands_[d];
    select(d);
    for (cudaEvent_t event : {b.mark, b.edge, b.first}) {
      cudaEventDestroy(event);
      check();
    }
    for (cudaStream_t stream : {b.stream, b.side}) {
      cudaStreamDestroy(stream);
      check();
    }
  }
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

// gamma of the iteration of that parity on device 0, from the other parity's and the sums, with the
// exact step the shares too; then gamma on all devices.
void StripEngine::nextGamma(std::size_t parity) {
  Band& b = bands_[0];
  select(0);
  if (solver_.accelerates()) {
    plain_.launchExactShares(b.stream,
                             {b.a[1 - parity], b.gamma[1 - parity], b.a[parity], b.a[parity],
                              b.gamma[parity], b.alpha[parity], b.beta[parity], b.sum[parity]},
                             4.0f * sigma_);
  } else {
    const Params& par = solver_.par;
    copyLabels(b.stream, b.gamma[parity], b.gamma[1 - parity]);
    ratSegKernels().ratseg_dual_gamma(perLabel(b.stream), b.gamma[parity], solver_.arrays[0].a_bar,
                                      b.sum[parity], solver_.constGamma, par.w * par.h, sigma_,
                                      par.n);
    check();
  }
  for (std::size_t d = 1; d < bands_.size(); ++d) {
    order(0, b.stream, d, bands_[d].stream);
    copyLabels(bands_[d].stream, bands_[d].gamma[parity], b.gamma[parity]);
  }
}

void StripEngine::record(cudaEvent_t event, cudaStream_t stream) {
  cudaEventRecord(event, stream);
  check();
}

void StripEngine::wait(cudaStream_t stream, cudaEvent_t event) {
  cudaStreamWaitEvent(stream, event);
  check();
}

// What queue first of band d holds so far comes before what queue then of band e gets from now on.
// Leaves band e's device selected.
void StripEngine::order(std::size_t d, cudaStream_t first, std::size_t e, cudaStream_t then) {
  select(d);
  record(bands_[d].mark, first);
  select(e);
  wait(then, bands_[d].mark);
}

// What the devices' own queues hold so far comes before the bands'.
void StripEngine::enterQueues() {
  for (std::size_t d = 0; d < bands_.size(); ++d) order(d, nullptr, 0, bands_[0].stream);
}

// What the bands' queues hold so far comes before the devices' own.
void StripEngine::leaveQueues() {
  for (std::size_t d = 0; d < bands_.size(); ++d) order(0, bands_[0].stream, d, nullptr);
}

void StripEngine::fanOut() {
  for (std::size_t d = 1; d < bands_.size(); ++d) order(0, bands_[0].stream, d, bands_[d].stream);
}

void StripEngine::fanIn() {
  for (std::size_t d = 1; d < bands_.size(); ++d) order(d, bands_[d].stream, 0, bands_[0].stream);
}

void StripEngine::publish() {
  leaveQueues();
  if (done_ > 0) {
    const std::size_t parity = (done_ - 1) % 2;
    for (std::size_t d = 0; d < bands_.size(); ++d) {
      select(d);
      copyLabels(nullptr, solver_.arrays[d].gamma, bands_[d].gamma[parity]);
    }
    publishShares(parity);
  }
  enterQueues();
}

// The sums and, where they were computed ahead, the shares of the iteration of that parity.
void StripEngine::publishShares(std::size_t parity) {
  gpudata& g = solver_.arrays[0];
  Band& b = bands_[0];
  select(0);
  copyLabels(nullptr, g.sum_u, b.sum[parity]);
  if (!solver_.accelerates()) return;
  copyLabels(nullptr, g.a, b.a[parity]);
  copyLabels(nullptr, g.a_bar, b.a[parity]);
  if (solver_.par.kind_prior != Params::kind_prior_upperBound) return;
  copyLabels(nullptr, g.alpha, b.alpha[parity]);
  copyLabels(nullptr, g.beta, b.beta[parity]);
}

// Whether an iteration is one kernel.
bool StripEngine::nextGammaInSweep() const { return bands_.size() == 1 && !solver_.accelerates(); }

// All rows of a band in the coming iteration.
StripBand StripEngine::bandRows(std::size_t d) const {
  const Params& par = solver_.par;
  const gpudata& g = solver_.arrays[d];
  const Band& own = bands_[d];
  const float pixels = static_cast<float>(par.w * par.h);
  StripBand b;
  b.u = own.u[current()];
  b.uPrev = own.u[previous()];
  b.uNext = own.u[next()];
  b.p = own.p[done_ % 2];
  b.pNext = own.p[1 - done_ % 2];
  b.rho = g.rho;
  b.weight = g.weightHat;
  b.gamma = own.gamma[done_ % 2];
  b.w = static_cast<unsigned>(par.w);
  b.h = static_cast<unsigned>(g.h);
  b.n = static_cast<unsigned>(par.n);
  b.rowEnd = b.h;
  b.rows = own.shape.rows;
  b.first = d == 0;
  b.last = d + 1 == bands_.size();
  b.edgeDone = !b.last;
  b.lambda = par.lambda;
  b.dualStep = sigma_ / 2.0f;
  b.primalStep = tau_ / (solver_.constGamma / pixels + 4.0f);
  b.coupling = solver_.constGamma / pixels;
  b.theta_bar = theta_bar_;
  b.partials = own.partials;
  b.blocks = own.blocks;
  return b;
}

StripShares StripEngine::shares() const {
  const Params& par = solver_.par;
  const gpudata& g = solver_.arrays[0];
  StripShares s;
  s.a = g.a;
  s.a_bar = g.a_bar;
  s.alpha = g.alpha;
  s.beta = g.beta;
  s.ratios = g.ratios;
  s.sigmas = g.sigmas;
  s.mins = g.mins;
  s.maxs = g.maxs;
  s.gamma = bands_[0].gamma[done_ % 2];
  s.kind_prior = par.kind_prior;
  s.mu = par.mu;
  s.eps = par.eps;
  s.constGamma = solver_.constGamma;
  s.constAlpha = solver_.constAlpha;
  s.ind_bgr = solver_.ind_bgr;
  s.n = par.n;
  s.tau = tau_;
  s.sigma = sigma_;
  s.theta_bar = theta_bar_;
  return s;
}

// The band's sums; gamma of the next iteration too where the sweep computes it.
StripFinish StripEngine::finishOf(std::size_t d) const {
  const Band& own = bands_[d];
  const std::size_t parity = done_ % 2;
  StripFinish f;
  f.partials = own.partials;
  f.blocks = own.blocks;
  f.n = static_cast<unsigned>(solver_.par.n);
  f.sum = own.sum[1 - parity];
  f.gamma = own.gamma[parity];
  f.gammaNext = nextGammaInSweep() ? own.gamma[1 - parity] : nullptr;
  f.a_bar = solver_.arrays[d].a_bar;
  f.constGamma = solver_.constGamma;
  f.sigma = sigma_;
  f.NOmega = solver_.par.w * solver_.par.h;
  f.counter = reinterpret_cast<unsigned*>(own.counter.get_ptr());
  return f;
}

std::size_t StripEngine::stepsAhead(const Params& par, std::size_t step) {
  const std::size_t most = std::min(par.Nsteps - step + 1, kStepsAtOnce);
  if (par.outModulo == 0) return most;
  const std::size_t behind = step % par.outModulo;
  return behind == 0 ? 1 : std::min(most, par.outModulo - behind);
}

void StripEngine::advance(std::size_t count) {
  const std::size_t phase = done_ % kPhases;
  replayed_ = false;
  const bool records = count == kStepsAtOnce && launchedAll_ && canRecord_;
  if (records && !cuda_check_isSync()) {
    select(0);
    if (replays_[phase] == nullptr) {
      const std::size_t before = done_;
      replays_[phase] = stripKernels().record(bands_[0].stream, [&] { steps(count); });
      check();
      done_ = before;
      canRecord_ = replays_[phase] != nullptr;
    }
    if (replays_[phase] != nullptr) {
      replay(*replays_[phase]);
      done_ += count;
      replayed_ = true;
      return;
    }
  }
  steps(count);
  launchedAll_ = true;
}

// Behind what band 0's queue holds, on its device, which is selected.
void StripEngine::replay(StripReplay& recording) {
  const cudaEvent_t end = ends_[queued_ % 2];
  if (queued_ >= 2) {
    cudaEventSynchronize(end);
    check();
  }
  recording.launch(bands_[0].stream);
  check();
  record(end, bands_[0].stream);
  ++queued_;
}

void StripEngine::steps(std::size_t count) {
  fanOut();
  for (std::size_t k = 0; k < count; ++k) {
    if (bands_.size() == 1) {
      stepOneBand();
    } else {
      stepBands();
    }
    ++done_;
  }
  fanIn();
}

// One kernel: the sweep, the shares beside it, the sums and gamma at its end. The exact step of the
// shares is one more: it would take the sweep's registers.
void StripEngine::stepOneBand() {
  const StripShares s = shares();
  const StripFinish f = finishOf(0);
  select(0);
  stripKernels().ratseg_strip_sweep(bands_[0].shape, bands_[0].stream, bandRows(0),
                                    solver_.accelerates() ? nullptr : &s, &f);
  check();
  if (!nextGammaInSweep()) nextGamma(1 - done_ % 2);
}

// Edges first, then the rows between in each band's first queue and the exchange in its second.
void StripEngine::stepBands() {
  for (std::size_t d = 0; d < bands_.size(); ++d) order(d, bands_[d].stream, d, bands_[d].side);
  for (std::size_t d = 0; d + 1 < bands_.size(); ++d) {
    Band& b = bands_[d];
    select(d);
    stripKernels().ratseg_strip_edge(b.shape, b.side, bandRows(d));
    check();
    record(b.edge, b.side);
  }
  sweepInside();
  exchangeP();
  sweepFirstRows();
  exchangeU();
  for (std::size_t d = 0; d < bands_.size(); ++d) order(d, bands_[d].side, d, bands_[d].stream);
  gatherSums();
  nextGamma(1 - done_ % 2);
}

void StripEngine::sweepInside() {
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    StripBand rows = bandRows(d);
    rows.rowBegin = bands_[d].firstRows;
    rows.firstBlock = bands_[d].firstBlocks;
    if (rows.rowBegin == rows.rowEnd) continue;
    select(d);
    stripKernels().ratseg_strip_sweep(bands_[d].shape, bands_[d].stream, rows, nullptr, nullptr);
    check();
  }
}

// The row above each band: the new p of the last row of the band above.
void StripEngine::exchangeP() {
  for (std::size_t d = 1; d < bands_.size(); ++d) {
    Band& to = bands_[d];
    Band& from = bands_[d - 1];
    const std::size_t fresh = 1 - done_ % 2;
    select(d);
    wait(to.side, from.edge);
    ratSegKernels().ratseg_copyLastToFirst(
        {solver_.grid_copy, solver_.block_copy, 0, to.side}, to.p[fresh], from.p[fresh],
        solver_.par.w, solver_.arrays[d].h, solver_.arrays[d - 1].h, solver_.par.n);
    check();
  }
}

void StripEngine::sweepFirstRows() {
  const StripShares s = shares();
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    Band& b = bands_[d];
    StripBand rows = bandRows(d);
    rows.rowEnd = b.firstRows;
    select(d);
    const bool takesShares = d == 0 && !solver_.accelerates();
    stripKernels().ratseg_strip_sweep(b.shape, b.side, rows, takesShares ? &s : nullptr, nullptr);
    check();
    record(b.first, b.side);
  }
}

// The row below each band: the new labeling of the first row of the band below.
void StripEngine::exchangeU() {
  for (std::size_t d = 0; d + 1 < bands_.size(); ++d) {
    Band& to = bands_[d];
    Band& from = bands_[d + 1];
    select(d);
    wait(to.side, from.first);
    ratSegKernels().ratseg_copyFirstToLast(
        {solver_.grid_copy, solver_.block_copy, 0, to.side}, to.u[next()], from.u[next()],
        solver_.par.w, solver_.arrays[d].h, solver_.arrays[d + 1].h, solver_.par.n);
    check();
  }
}

// The sums of all bands on device 0.
void StripEngine::gatherSums() {
  const std::size_t parity = 1 - done_ % 2;
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    select(d);
    stripKernels().ratseg_strip_finish(bands_[d].stream, finishOf(d));
    check();
  }
  for (std::size_t d = 1; d < bands_.size(); ++d) {
    order(d, bands_[d].stream, 0, bands_[0].stream);
    ratSegKernels().computeSumU_sumKernel(perLabel(bands_[0].stream), bands_[0].sum[parity],
                                          bands_[d].sum[parity], solver_.par.n);
    check();
  }
}

}  // namespace namespace_ratseg
