// The iteration.

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <vector>

#include "algorithms/rat_segments/alg/certificate/certifier.h"
#include "algorithms/rat_segments/alg/fused_host/host_engine.h"
#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "algorithms/rat_segments/alg/rat_seg_impl.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_engine.h"
#include "device/console.h"
#include "device/runtime.h"
#include "device/selection.h"

namespace namespace_ratseg {

namespace {

constexpr float kThetaBar = 1.0f;  // over-relaxation

// Whether engine_auto means the strip engine on GPUs: not before it has run on one
// (docs/benchmarks.md).
constexpr bool kStripsByDefault = false;

bool wantsStrips(const Params& par) {
  if (par.engine == Params::engine_strips) return true;
  if (backend().isHost()) return false;
  return par.engine == Params::engine_fused ||
         (kStripsByDefault && par.engine == Params::engine_auto);
}

// dt of an iteration (docs/math.md, sections 6.1 and 12.2).
float stepScale(const Params& par, bool accelerates) {
  const bool balances = accelerates && par.lambda > 0.0f && par.lambda < FLT_MAX;
  return balances ? par.dt_multiplier * 2.0f / par.lambda : par.dt_multiplier;
}

// A blank that aligns numbers without a minus sign.
const char* signBlank(float x) { return x >= 0.0f ? " " : ""; }

}  // namespace

// Host copies of device 0's per-label arrays, for the progress report.
struct RatSegImpl::Report {
  explicit Report(std::size_t n) : a(n), gamma(n), alpha(n), beta(n), ratios(n), sigmas(n) {}
  std::vector<float> a, gamma, alpha, beta, ratios, sigmas;
};

// What a watcher sees of a run: while it looks at the labeling, the arrays are whole.
class RatSegImpl::Watched final : public RunState {
 public:
  Watched(RatSegImpl& solver, HostEngine* engine, StripEngine* strips)
      : solver_(solver), engine_(engine), strips_(strips) {}
  const Statistics& statistics() const override { return solver_.statistics; }
  void getSolution(float* uh) override {
    if (strips_ != nullptr) strips_->handOver();
    if (engine_ != nullptr) engine_->handOver();
    solver_.getSolution(uh);
    if (engine_ != nullptr) engine_->takeOver();
    if (strips_ != nullptr) strips_->takeOver();
  }

 private:
  RatSegImpl& solver_;
  HostEngine* engine_;
  StripEngine* strips_;
};

void RatSegImpl::run() {
  if (!allocatedArrays) {
    console().out() << "ERROR (run()): Must call alloc() first" << std::endl;
    return;
  }
  for (int d = 0; d < bands(); ++d) {
    arrays[d].weightHat = kind_weight != kind_weight_none ? arrays[d].weight.get_ptr() : nullptr;
  }
  // The labeling's step is tau/5; the exact step of the shares leaves it dt/4.
  const float dt = stepScale(par, accelerates());
  const float tau = accelerates() ? 1.25f * dt : dt;
  const float sigma = 1.0f / dt;
  Report report(par.n);
  std::optional<Certifier> certifier;
  if (par.tolerance > 0.0f) certifier.emplace(*this);
  std::unique_ptr<StripEngine> strips;
  if (par.Nsteps > 0 && wantsStrips(par) && StripEngine::canRun(*this)) {
    strips = StripEngine::make(*this, tau, sigma, kThetaBar, stripWishFromEnvironment());
  }
  std::optional<HostEngine> engine;
  if (!strips && par.engine != Params::engine_plain && HostEngine::canRun(*this)) {
    engine.emplace(*this);
  }
  par.cancel = false;
  statistics = {};

  const std::atomic_ref<bool> cancel(par.cancel);
  std::size_t ahead = 1;  // steps of a pass through the loop
  Watched watched(*this, engine ? &*engine : nullptr, strips.get());
  for (std::size_t step = 1; step <= par.Nsteps; step += ahead) {
    if (par.watcher != nullptr && !par.watcher->goOn(watched)) {
      statistics.stopped = true;
      break;
    }
    const bool reports = par.outModulo != 0 && step % par.outModulo == 0;
    if (reports || cancel) {
      deviceSynchronizeAll();
      statistics.stopped = cancel;
      if (cancel) break;
      if (par.Nsteps != par.outModulo) {
        const std::lock_guard lock(standardOutputMutex);
        console().out() << "Step " << step << " of " << par.Nsteps << std::endl;
      }
    }
    if (strips) {
      ahead = StripEngine::stepsAhead(par, step);
      if (certifier) ahead = std::min(ahead, certifier->stepsToCheck(step));
      strips->advance(ahead);
      if (reports) strips->publish();
    } else if (engine) {
      engine->step(tau, sigma, kThetaBar);
    } else {
      plainStep(tau, sigma);
    }
    statistics.iterations += ahead;
    if (reports) printReport(report);
    if (certifier && certifier->stepsToCheck(step) == ahead) {
      if (strips) strips->handOver();
      if (engine) engine->handOver();
      if (certifier->certify(statistics.iterations)) break;
      if (engine) engine->takeOver();
      if (strips) strips->takeOver();
    }
  }
  engine.reset();
  strips.reset();
  deviceSynchronizeAll();
  statistics.finite = statistics.iterations == 0 || stateIsFinite();
}

// One launch per kernel. Bytes moved per pixel and label: 20 in the dual step (u_bar and p read, p
// written, the row below from cache), 4 in the sums, 24 in the primal step (u, p, rho read; u and
// u_bar written).
void RatSegImpl::plainStep(float tau, float sigma) {
  dualStepOfLength(sigma);
  copyExtraRegions_p();
  computeSumU__save_on_gpu0();
  updateShares(tau, sigma);
  primalStepOfLabeling(tau);
  copyExtraRegions_u();
}

LaunchShape RatSegImpl::perLabel() const {
  return {{1, 1, 1}, {static_cast<unsigned>(par.n), 1, 1}, 0};
}

// p_i <- projection of p_i + (sigma/2) grad u_bar_i onto the disc of radius weight lambda/2
void RatSegImpl::dualStepOfLength(float sigma) {
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d, kRunLines + __LINE__);
    ratSegKernels().ratseg_dual_p({g.grid, g.block, 0}, g.p, g.u_bar, g.weightHat, par.lambda,
                                  sigma, par.w, par.h, g.ymin, g.ymax, par.n);
    check(kRunLines + __LINE__);
  }
}

// The row above each band: the previous band's last row of p.
void RatSegImpl::copyExtraRegions_p() {
  for (int d = 1; d < bands(); ++d) {
    gpudata& to = arrays[d];
    gpudata& from = arrays[d - 1];
    if (canAccess(d, d - 1)) {
      selectAfter(d, d - 1, kRunLines + __LINE__);
      ratSegKernels().ratseg_copyLastToFirst({grid_copy, block_copy, 0}, to.p, from.p, par.w, to.h,
                                             from.h, par.n);
      check(kRunLines + __LINE__);
      continue;
    }
    select(d, kRunLines + __LINE__);
    // The copy engine takes row h-1 where the kernel takes row h; both are meant.
    for (std::size_t i = 0; i < par.n; ++i) {
      cudaMemcpyPeer(to.p.get_ptr() + i * to.NOmegaOffset, dev[d],
                     from.p.get_ptr() + i * from.NOmegaOffset + (from.h - 1) * par.w, dev[d - 1],
                     par.w * sizeof(float2));
      check(kRunLines + __LINE__);
    }
  }
}

// The row below each band: the next band's first row of u_bar.
void RatSegImpl::copyExtraRegions_u() {
  for (int d = 0; d + 1 < bands(); ++d) {
    gpudata& to = arrays[d];
    gpudata& from = arrays[d + 1];
    if (canAccess(d, d + 1)) {
      selectAfter(d, d + 1, kRunLines + __LINE__);
      ratSegKernels().ratseg_copyFirstToLast({grid_copy, block_copy, 0}, to.u_bar, from.u_bar,
                                             par.w, to.h, from.h, par.n);
      check(kRunLines + __LINE__);
      continue;
    }
    select(d, kRunLines + __LINE__);
    // The copy engine fills row h-1 where the kernel fills row h; both are meant.
    for (std::size_t i = 0; i < par.n; ++i) {
      cudaMemcpyPeer(to.u_bar.get_ptr() + i * to.NOmegaOffset + (to.h - 1) * par.w, dev[d],
                     from.u_bar.get_ptr() + i * from.NOmegaOffset, dev[d + 1],
                     par.w * sizeof(float));
      check(kRunLines + __LINE__);
    }
  }
}

// sum_u_i = sum of u_bar_i over each band, gathered on device 0.
void RatSegImpl::computeSumU__save_on_gpu0() {
  const std::size_t n = par.n;
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d, kRunLines + __LINE__);
    for (std::size_t i = 0; i < n; ++i) {
      g.summator.sumup(g.sum_u.get_ptr() + i, g.u_bar.get_ptr() + i * g.NOmegaOffset, g.NOmega);
      check(kRunLines + __LINE__);
    }
  }

  bool allReached = true;
  for (int d = 1; d < bands(); ++d) {
    if (!canAccess(0, d)) {
      allReached = false;
      continue;
    }
    selectAfter(0, d, kRunLines + __LINE__);
    ratSegKernels().computeSumU_sumKernel(perLabel(), arrays[0].sum_u, arrays[d].sum_u, n);
    check(kRunLines + __LINE__);
  }
  if (allReached) return;

  const std::size_t bytes = n * sizeof(float);
  select(0, kRunLines + __LINE__);
  cudaMemcpy(sum_u_host, arrays[0].sum_u.get_ptr(), bytes, cudaMemcpyDeviceToHost);
  check(kRunLines + __LINE__);
  for (int d = 1; d < bands(); ++d) {
    if (canAccess(0, d)) continue;
    float* part = sum_u_host + static_cast<std::size_t>(d) * n;
    select(d, kRunLines + __LINE__);
    cudaMemcpy(part, arrays[d].sum_u.get_ptr(), bytes, cudaMemcpyDeviceToHost);
    check(kRunLines + __LINE__);
    for (std::size_t i = 0; i < n; ++i) sum_u_host[i] += part[i];
  }
  select(0, kRunLines + __LINE__);
  cudaMemcpy(arrays[0].sum_u.get_ptr(), sum_u_host, bytes, cudaMemcpyHostToDevice);
  check(kRunLines + __LINE__);
}

void RatSegImpl::broadcastGamma() {
  for (int d = 1; d < bands(); ++d) {
    if (canAccess(d, 0)) {
      selectAfter(d, 0, kRunLines + __LINE__);
      ratSegKernels().ratseg_copyGamma(perLabel(), arrays[d].gamma, arrays[0].gamma, par.n);
    } else {
      select(d, kRunLines + __LINE__);
      cudaMemcpyPeer(arrays[d].gamma.get_ptr(), dev[d], arrays[0].gamma.get_ptr(), dev[0],
                     par.n * sizeof(float));
    }
    check(kRunLines + __LINE__);
  }
}

float RatSegImpl::constAlphaOfPrior() const {
  const bool scaled = par.kind_prior == Params::kind_prior_interval ||
                      par.kind_prior == Params::kind_prior_upperBound;
  return scaled ? static_cast<float>(par.w * par.h) : 1.0f;
}

bool RatSegImpl::accelerates() const {
  return par.accelerate && par.kind_prior != Params::kind_prior_interval &&
         par.kind_prior != Params::kind_prior_lowerBound;
}

// a, gamma, alpha and beta from the sums and gamma, gamma's step being step, on a queue of device
// 0, which is selected.
void RatSegImpl::launchExactShares(cudaStream_t stream, const ShareArrays& s, float step) {
  const LaunchShape oneWarp = {{1, 1, 1}, {32, 1, 1}, 0, stream};
  const gpudata& g = arrays[0];
  const std::size_t Np = par.w * par.h;
  if (par.kind_prior == Params::kind_prior_upperBound) {
    ratSegKernels().ratseg_exact_shares(oneWarp, s.a, s.a_bar, s.gamma, s.alpha, s.beta, s.a_before,
                                        s.gamma_before, s.sum_u, Np, par.mu, par.eps, g.ratios,
                                        g.sigmas, ind_bgr, step, par.n);
  } else {
    ratSegKernels().ratseg_free_shares(oneWarp, s.a, s.a_bar, s.gamma, s.sum_u, Np, par.n);
  }
  check(kRunLines + __LINE__);
}

// On device 0: the exact step; gamma is sent to all devices.
void RatSegImpl::updateSharesExactly(float step) {
  const gpudata& g = arrays[0];
  constAlpha = constAlphaOfPrior();
  select(0, kRunLines + __LINE__);
  launchExactShares(nullptr, {g.a, g.gamma, g.a, g.a_bar, g.gamma, g.alpha, g.beta, g.sum_u}, step);
  broadcastGamma();
}

// On device 0: gamma_i += sigma/2 (a_bar_i - sum_u_i / N), sent to all devices; then the prior's
// dual step from a_bar and the primal step of the shares, by kind of prior.
void RatSegImpl::updateShares(float tau, float sigma) {
  if (accelerates()) return updateSharesExactly(4.0f * sigma);
  gpudata& g = arrays[0];
  const std::size_t n = par.n;
  const std::size_t Np = par.w * par.h;
  const LaunchShape shape = perLabel();
  RatSegKernels& kernels = ratSegKernels();
  constAlpha = constAlphaOfPrior();

  select(0, kRunLines + __LINE__);
  kernels.ratseg_dual_gamma(shape, g.gamma, g.a_bar, g.sum_u, constGamma, Np, sigma, n);
  check(kRunLines + __LINE__);
  broadcastGamma();

  select(0, kRunLines + __LINE__);
  switch (par.kind_prior) {
    case Params::kind_prior_interval:
      kernels.ratseg_dual_alphabeta__interval(shape, g.alpha, g.beta, g.a_bar, constAlpha, g.mins,
                                              g.maxs, ind_bgr, sigma, n);
      check(kRunLines + __LINE__);
      kernels.ratseg_prim_a__interval(shape, g.a, g.a_bar, g.gamma, g.alpha, g.beta, constGamma,
                                      constAlpha, ind_bgr, kThetaBar, tau, n);
      break;
    case Params::kind_prior_lowerBound:
      kernels.ratseg_dual_alphabeta__lowerBound(shape, g.alpha, g.a_bar, constAlpha, par.mu,
                                                g.ratios, g.sigmas, ind_bgr, sigma, n);
      check(kRunLines + __LINE__);
      kernels.ratseg_prim_a__lowerBound(shape, g.a, g.a_bar, g.gamma, g.alpha, constGamma,
                                        constAlpha, par.mu, g.ratios, ind_bgr, kThetaBar, tau, n);
      break;
    case Params::kind_prior_upperBound:
      kernels.ratseg_dual_alphabeta__upperBound(shape, g.alpha, g.beta, g.a_bar, constAlpha, par.mu,
                                                par.eps, g.ratios, g.sigmas, ind_bgr, sigma, n);
      check(kRunLines + __LINE__);
      kernels.ratseg_prim_a__upperBound(shape, g.a, g.a_bar, g.gamma, g.alpha, g.beta, constGamma,
                                        constAlpha, par.mu, par.eps, g.ratios, ind_bgr, kThetaBar,
                                        tau, n);
      break;
    default:
      kernels.ratseg_prim_a__gamma(shape, g.a, g.a_bar, g.gamma, constGamma, kThetaBar, tau, n);
  }
  check(kRunLines + __LINE__);
}

// u <- projection of u + tau' (div p_i + gamma_i constGamma/N - rho_i) onto the simplex,
// tau' = tau / (constGamma/N + 4); u_bar = u_new + theta_bar (u_new - u_old)
void RatSegImpl::primalStepOfLabeling(float tau) {
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d, kRunLines + __LINE__);
    ratSegKernels().ratseg_prim_u(g.primU, g.u, g.u_bar, g.p, g.gamma, constGamma, g.rho, kThetaBar,
                                  tau, par.w, par.h, g.ymin, g.ymax, par.n);
    check(kRunLines + __LINE__);
  }
}

void RatSegImpl::printReport(Report& report) {
  gpudata& g = arrays[0];
  g.sum_u.copyToHost(sum_u_host);
  check(kRunLines + __LINE__);
  g.a.copyToHost(report.a.data());
  check(kRunLines + __LINE__);
  g.gamma.copyToHost(report.gamma.data());
  check(kRunLines + __LINE__);
  g.alpha.copyToHost(report.alpha.data());
  check(kRunLines + __LINE__);
  g.beta.copyToHost(report.beta.data());
  check(kRunLines + __LINE__);
  g.ratios.copyToHost(report.ratios.data());
  check(kRunLines + __LINE__);
  g.sigmas.copyToHost(report.sigmas.data());
  check(kRunLines + __LINE__);

  const float pixels = static_cast<float>(par.w * par.h);
  const std::lock_guard lock(standardOutputMutex);
  console().out() << std::fixed;
  for (std::size_t i = 0; i < par.n; ++i) {
    const float a = report.a[i];
    const float gamma = report.gamma[i];
    console().out() << "  a" << i << "=" << a << ", sum_u=" << sum_u_host[i] / pixels
                    << ",  gamma=" << signBlank(gamma) << gamma;
    if (i != ind_bgr) {
      const float B = 1.0f - report.a[ind_bgr];
      const float ratio = report.ratios[i];
      const float sigma = report.sigmas[i];
      const float q = a / B;
      const float z = (q - ratio) / sigma;
      const float deviation = (a - B * ratio) / sigma;
      const float bound = deviation * deviation / B;
      const float alpha = report.alpha[i];
      const float beta = report.beta[i];
      console().out() << ",    q=" << q << ", q0=" << ratio << ", s0=" << sigma
                      << ",  (q-q0)/s0=" << signBlank(z) << z << ", bound=" << signBlank(bound)
                      << bound << ",  alpha=" << signBlank(alpha) << alpha
                      << ", beta=" << signBlank(beta) << beta;
    }
    console().out() << std::endl;
  }
}

}  // namespace namespace_ratseg
