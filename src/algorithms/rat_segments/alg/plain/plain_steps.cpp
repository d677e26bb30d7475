#include "algorithms/rat_segments/alg/plain/plain_steps.h"

#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "device/runtime.h"

namespace namespace_ratseg {

LaunchShape PlainSteps::perLabel() const {
  return {{1, 1, 1}, {static_cast<unsigned>(par_.n), 1, 1}, 0};
}

// p_i <- projection of p_i + (sigma/2) grad u_bar_i onto the disc of radius weight lambda/2
void PlainSteps::dualStepOfLength(float sigma) {
  for (int d = 0; d < solver_.bands(); ++d) {
    gpudata& g = solver_.arrays[d];
    solver_.select(d);
    ratSegKernels().ratseg_dual_p({g.grid, g.block, 0}, g.p, g.u_bar, g.weightHat, par_.lambda,
                                  sigma, par_.w, par_.h, g.ymin, g.ymax, par_.n);
    check();
  }
}

// The row above each band: the previous band's last row of p.
void PlainSteps::copyExtraRegions_p() {
  for (int d = 1; d < solver_.bands(); ++d) {
    gpudata& to = solver_.arrays[d];
    gpudata& from = solver_.arrays[d - 1];
    if (solver_.canAccess(d, d - 1)) {
      solver_.selectAfter(d, d - 1);
      ratSegKernels().ratseg_copyLastToFirst({solver_.grid_copy, solver_.block_copy, 0}, to.p,
                                             from.p, par_.w, to.h, from.h, par_.n);
      check();
      continue;
    }
    solver_.select(d);
    // The copy engine takes row h-1 where the kernel takes row h; both are intentional.
    for (std::size_t i = 0; i < par_.n; ++i) {
      cudaMemcpyPeer(to.p.get_ptr() + i * to.NOmegaOffset, solver_.dev[d],
                     from.p.get_ptr() + i * from.NOmegaOffset + (from.h - 1) * par_.w,
                     solver_.dev[d - 1], par_.w * sizeof(float2));
      check();
    }
  }
}

// The row below each band: the next band's first row of u_bar.
void PlainSteps::copyExtraRegions_u() {
  for (int d = 0; d + 1 < solver_.bands(); ++d) {
    gpudata& to = solver_.arrays[d];
    gpudata& from = solver_.arrays[d + 1];
    if (solver_.canAccess(d, d + 1)) {
      solver_.selectAfter(d, d + 1);
      ratSegKernels().ratseg_copyFirstToLast({solver_.grid_copy, solver_.block_copy, 0}, to.u_bar,
                                             from.u_bar, par_.w, to.h, from.h, par_.n);
      check();
      continue;
    }
    solver_.select(d);
    // The copy engine fills row h-1 where the kernel fills row h; both are intentional.
    for (std::size_t i = 0; i < par_.n; ++i) {
      cudaMemcpyPeer(to.u_bar.get_ptr() + i * to.NOmegaOffset + (to.h - 1) * par_.w, solver_.dev[d],
                     from.u_bar.get_ptr() + i * from.NOmegaOffset, solver_.dev[d + 1],
                     par_.w * sizeof(float));
      check();
    }
  }
}

// sum_u_i = sum of u_bar_i over each band, gathered on device 0.
void PlainSteps::computeSumU__save_on_gpu0() {
  const std::size_t n = par_.n;
  for (int d = 0; d < solver_.bands(); ++d) {
    gpudata& g = solver_.arrays[d];
    solver_.select(d);
    for (std::size_t i = 0; i < n; ++i) {
      g.summator.sumup(g.sum_u.get_ptr() + i, g.u_bar.get_ptr() + i * g.NOmegaOffset, g.NOmega);
      check();
    }
  }

  bool allReached = true;
  for (int d = 1; d < solver_.bands(); ++d) {
    if (!solver_.canAccess(0, d)) {
      allReached = false;
      continue;
    }
    solver_.selectAfter(0, d);
    ratSegKernels().computeSumU_sumKernel(perLabel(), solver_.arrays[0].sum_u,
                                          solver_.arrays[d].sum_u, n);
    check();
  }
  if (allReached) return;

  const std::size_t bytes = n * sizeof(float);
  solver_.select(0);
  cudaMemcpy(solver_.sum_u_host, solver_.arrays[0].sum_u.get_ptr(), bytes, cudaMemcpyDeviceToHost);
  check();
  for (int d = 1; d < solver_.bands(); ++d) {
    if (solver_.canAccess(0, d)) continue;
    float* part = solver_.sum_u_host + static_cast<std::size_t>(d) * n;
    solver_.select(d);
    cudaMemcpy(part, solver_.arrays[d].sum_u.get_ptr(), bytes, cudaMemcpyDeviceToHost);
    check();
    for (std::size_t i = 0; i < n; ++i) solver_.sum_u_host[i] += part[i];
  }
  solver_.select(0);
  cudaMemcpy(solver_.arrays[0].sum_u.get_ptr(), solver_.sum_u_host, bytes, cudaMemcpyHostToDevice);
  check();
}

void PlainSteps::broadcastGamma() {
  for (int d = 1; d < solver_.bands(); ++d) {
    if (solver_.canAccess(d, 0)) {
      solver_.selectAfter(d, 0);
      ratSegKernels().ratseg_copyGamma(perLabel(), solver_.arrays[d].gamma, solver_.arrays[0].gamma,
                                       par_.n);
    } else {
      solver_.select(d);
      cudaMemcpyPeer(solver_.arrays[d].gamma.get_ptr(), solver_.dev[d],
                     solver_.arrays[0].gamma.get_ptr(), solver_.dev[0], par_.n * sizeof(float));
    }
    check();
  }
}

// a, gamma, alpha and beta from the sums and gamma, gamma's step being step, on a queue of device
// 0, which is selected.
void PlainSteps::launchExactShares(cudaStream_t stream, const ShareArrays& s, float step) {
  const LaunchShape oneWarp = {{1, 1, 1}, {32, 1, 1}, 0, stream};
  const gpudata& g = solver_.arrays[0];
  const std::size_t Np = par_.w * par_.h;
  if (par_.kind_prior == Params::kind_prior_upperBound) {
    ratSegKernels().ratseg_exact_shares(oneWarp, s.a, s.a_bar, s.gamma, s.alpha, s.beta, s.a_before,
                                        s.gamma_before, s.sum_u, Np, par_.mu, par_.eps, g.ratios,
                                        g.sigmas, solver_.ind_bgr, step, par_.n);
  } else {
    ratSegKernels().ratseg_free_shares(oneWarp, s.a, s.a_bar, s.gamma, s.sum_u, Np, par_.n);
  }
  check();
}

// On device 0: the exact step; gamma is sent to all devices.
void PlainSteps::updateSharesExactly(float step) {
  const gpudata& g = solver_.arrays[0];
  solver_.constAlpha = solver_.constAlphaOfPrior();
  solver_.select(0);
  launchExactShares(nullptr, {g.a, g.gamma, g.a, g.a_bar, g.gamma, g.alpha, g.beta, g.sum_u}, step);
  broadcastGamma();
}

// On device 0: gamma_i += sigma/2 (a_bar_i - sum_u_i / N), sent to all devices; then the prior's
// dual step from a_bar and the primal step of the shares, by kind of prior.
void PlainSteps::updateShares(float tau, float sigma) {
  if (solver_.accelerates()) return updateSharesExactly(4.0f * sigma);
  gpudata& g = solver_.arrays[0];
  const std::size_t n = par_.n;
  const std::size_t Np = par_.w * par_.h;
  const LaunchShape shape = perLabel();
  RatSegKernels& kernels = ratSegKernels();
  solver_.constAlpha = solver_.constAlphaOfPrior();

  solver_.select(0);
  kernels.ratseg_dual_gamma(shape, g.gamma, g.a_bar, g.sum_u, solver_.constGamma, Np, sigma, n);
  check();
  broadcastGamma();

  solver_.select(0);
  switch (par_.kind_prior) {
    case Params::kind_prior_interval:
      kernels.ratseg_dual_alphabeta__interval(shape, g.alpha, g.beta, g.a_bar, solver_.constAlpha,
                                              g.mins, g.maxs, solver_.ind_bgr, sigma, n);
      check();
      kernels.ratseg_prim_a__interval(shape, g.a, g.a_bar, g.gamma, g.alpha, g.beta,
                                      solver_.constGamma, solver_.constAlpha, solver_.ind_bgr,
                                      kThetaBar, tau, n);
      break;
    case Params::kind_prior_lowerBound:
      kernels.ratseg_dual_alphabeta__lowerBound(shape, g.alpha, g.a_bar, solver_.constAlpha,
                                                par_.mu, g.ratios, g.sigmas, solver_.ind_bgr, sigma,
                                                n);
      check();
      kernels.ratseg_prim_a__lowerBound(shape, g.a, g.a_bar, g.gamma, g.alpha, solver_.constGamma,
                                        solver_.constAlpha, par_.mu, g.ratios, solver_.ind_bgr,
                                        kThetaBar, tau, n);
      break;
    case Params::kind_prior_upperBound:
      kernels.ratseg_dual_alphabeta__upperBound(shape, g.alpha, g.beta, g.a_bar, solver_.constAlpha,
                                                par_.mu, par_.eps, g.ratios, g.sigmas,
                                                solver_.ind_bgr, sigma, n);
      check();
      kernels.ratseg_prim_a__upperBound(shape, g.a, g.a_bar, g.gamma, g.alpha, g.beta,
                                        solver_.constGamma, solver_.constAlpha, par_.mu, par_.eps,
                                        g.ratios, solver_.ind_bgr, kThetaBar, tau, n);
      break;
    default:
      kernels.ratseg_prim_a__gamma(shape, g.a, g.a_bar, g.gamma, solver_.constGamma, kThetaBar, tau,
                                   n);
  }
  check();
}

// u <- projection of u + tau' (div p_i + gamma_i constGamma/N - rho_i) onto the simplex,
// tau' = tau / (constGamma/N + 4); u_bar = u_new + theta_bar (u_new - u_old)
void PlainSteps::primalStepOfLabeling(float tau) {
  for (int d = 0; d < solver_.bands(); ++d) {
    gpudata& g = solver_.arrays[d];
    solver_.select(d);
    ratSegKernels().ratseg_prim_u(g.primU, g.u, g.u_bar, g.p, g.gamma, solver_.constGamma, g.rho,
                                  kThetaBar, tau, par_.w, par_.h, g.ymin, g.ymax, par_.n);
    check();
  }
}

}  // namespace namespace_ratseg
