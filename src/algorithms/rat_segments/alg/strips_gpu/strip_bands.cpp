#include "algorithms/rat_segments/alg/strips_gpu/strip_bands.h"

#include <algorithm>

#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "device/runtime.h"

namespace namespace_ratseg {

namespace {

bool ranOutOfMemory() {
  if (cudaPeekAtLastError() != cudaErrorMemoryAllocation) return false;
  cudaGetLastError();
  return true;
}

// The memory that a device needs besides the engine's arrays: kernels, which are loaded when they
// are first launched, their local memory, the summation's scratch, recordings.
constexpr std::size_t kMemoryLeft = std::size_t{64} << 20;

// Of the current device.
std::size_t freeMemory() {
  std::size_t left = 0, whole = 0;
  cudaMemGetInfo(&left, &whole);
  return left;
}

}  // namespace

StripBands::StripBands(SolverState& solver, const StepSizes& sizes)
    : solver_(solver),
      tau_(sizes.tau),
      sigma_(sizes.sigma),
      bands_(static_cast<std::size_t>(solver.bands())) {}

bool StripBands::allocate(const StripWish& wish) {
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    solver_.select(static_cast<int>(d));
    allocateBand(d, wish);
    if (ranOutOfMemory() || freeMemory() < kMemoryLeft) return false;
    check();
    assignRoles(d);
  }
  return true;
}

// On the current device. Running out of memory is left pending.
void StripBands::allocateBand(std::size_t d, const StripWish& wish) {
  const Params& par = solver_.par;
  const gpudata& g = solver_.arrays[d];
  StripBuffers& b = bands_[d];
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
}

void StripBands::assignRoles(std::size_t d) {
  const std::size_t n = solver_.par.n;
  gpudata& g = solver_.arrays[d];
  StripBuffers& b = bands_[d];
  b.u = {g.u, g.u_bar, b.extraU};
  b.p = {g.p, b.extraP};
  float* values = b.perLabel;
  for (std::size_t k = 0; k < 2; ++k) {
    b.gamma[k] = values + k * n;
    b.sum[k] = values + (2 + k) * n;
    b.a[k] = values + (4 + k) * n;
    b.alpha[k] = values + (6 + k) * n;
    b.beta[k] = values + (8 + k) * n;
  }
}

StripBand StripBands::rows(std::size_t d) const {
  const Params& par = solver_.par;
  const gpudata& g = solver_.arrays[d];
  const StripBuffers& own = bands_[d];
  const float pixels = static_cast<float>(par.w * par.h);
  StripBand b;
  b.u = own.u[current()];
  b.uPrev = own.u[previous()];
  b.uNext = own.u[next()];
  b.p = own.p[now()];
  b.pNext = own.p[then()];
  b.rho = g.rho;
  b.weight = g.weightHat;
  b.gamma = own.gamma[now()];
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

StripShares StripBands::shares() const {
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
  s.gamma = bands_[0].gamma[now()];
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

StripFinish StripBands::finish(std::size_t d) const {
  const StripBuffers& own = bands_[d];
  StripFinish f;
  f.partials = own.partials;
  f.blocks = own.blocks;
  f.n = static_cast<unsigned>(solver_.par.n);
  f.sum = own.sum[then()];
  f.gamma = own.gamma[now()];
  f.gammaNext = nextGammaInSweep() ? own.gamma[then()] : nullptr;
  f.a_bar = solver_.arrays[d].a_bar;
  f.constGamma = solver_.constGamma;
  f.sigma = sigma_;
  f.NOmega = solver_.par.w * solver_.par.h;
  f.counter = reinterpret_cast<unsigned*>(own.counter.get_ptr());
  return f;
}

}  // namespace namespace_ratseg
