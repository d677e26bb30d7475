// The host's launchers: loops over tiles, rows spread over the cores.

#include <vector>

#include "algorithms/rat_segments/alg/dataterm/dataterm_host.h"
#include "algorithms/rat_segments/alg/kernels/exact_shares_kernels.h"
#include "algorithms/rat_segments/alg/kernels/labeling_kernels.h"
#include "algorithms/rat_segments/alg/kernels/prior_kernels.h"
#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "device/host/host_launch.h"

namespace namespace_ratseg {

namespace {

constexpr int kLanes = 16;

// Calls body(i) for the labels of a per-label launch.
template <class Body>
void forEachLabel(const LaunchShape& shape, std::size_t n, Body&& body) {
  const std::size_t threads = std::size_t{shape.block.x} * shape.block.y * shape.block.z;
  for (std::size_t i = 0; i < n && i < threads; ++i) body(i);
}

class HostRatSegKernels final : public RatSegKernels {
 public:
  void ratseg_dual_p(const LaunchShape& shape, float2* p, float* u, float* weight, float lambda,
                     float dt, std::size_t w, std::size_t h, std::size_t ymin, std::size_t ymax,
                     std::size_t n) override {
    if (!admitHostLaunch("ratseg_dual_p", shape)) return;
    parallelFor(ymax - ymin, (ymax - ymin) * w * n, [=](std::size_t y) {
      std::size_t x = 0;
      for (; x + kLanes < w; x += kLanes) {
        tile::ratseg_dual_p<kLanes>(p, u, weight, lambda, dt, w, h, ymin, ymax, n, x, y, true);
      }
      for (; x < w; ++x) {
        tile::ratseg_dual_p<1>(p, u, weight, lambda, dt, w, h, ymin, ymax, n, x, y, x + 1 < w);
      }
    });
  }

  void ratseg_prim_u(const LaunchShape& shape, float* u, float* u_bar, float2* p, float* gamma,
                     float constGamma, float* rho, float theta_bar, float dt, std::size_t w,
                     std::size_t h, std::size_t ymin, std::size_t ymax, std::size_t n) override {
    if (!admitHostLaunch("ratseg_prim_u", shape) || w == 0) return;
    parallelFor(ymax - ymin, (ymax - ymin) * w * n, [=](std::size_t y) {
      thread_local std::vector<float> scratch;
      scratch.resize(n * kLanes);
      float* v = scratch.data();
      const auto single = [&](std::size_t x) {
        tile::ratseg_prim_u<1>(u, u_bar, p, gamma, constGamma, rho, theta_bar, dt, w, h, ymin, ymax,
                               n, x, y, x != 0, x + 1 < w, v);
      };
      single(0);
      std::size_t x = 1;
      for (; x + kLanes < w; x += kLanes) {
        tile::ratseg_prim_u<kLanes>(u, u_bar, p, gamma, constGamma, rho, theta_bar, dt, w, h, ymin,
                                    ymax, n, x, y, true, true, v);
      }
      for (; x < w; ++x) single(x);
    });
  }

  void ratseg_setLocalSolution_kernel(const LaunchShape& shape, float* u, float* rho, std::size_t w,
                                      std::size_t, std::size_t ymin, std::size_t ymax,
                                      std::size_t n) override {
    if (!admitHostLaunch("ratseg_setLocalSolution_kernel", shape)) return;
    parallelFor(ymax - ymin, (ymax - ymin) * w * n, [=](std::size_t y) {
      for (std::size_t x = 0; x < w; ++x) {
        tile::ratseg_setLocalSolution_kernel(u, rho, w, ymin, ymax, n, x, y);
      }
    });
  }

  void ratseg_setdataterm_scribbles(const LaunchShape& shape, float* rho, float4* image,
                                    float4* scribbles, std::size_t scribblesNum, float sigma,
                                    float thr, std::size_t w, std::size_t, std::size_t ymin,
                                    std::size_t ymax, std::size_t, std::size_t i0) override {
    if (!admitHostLaunch("ratseg_setdataterm_scribbles", shape)) return;
    const std::size_t pixels = w * (ymax - ymin);
    scribbleDatatermHost(rho + i0 * pixels, image, pixels, scribbles, scribblesNum, sigma, thr);
  }

  void ratseg_copyFirstToLast(const LaunchShape& shape, float* dst, float* src, std::size_t w,
                              std::size_t h_dst, std::size_t h_src, std::size_t n) override {
    if (!admitHostLaunch("ratseg_copyFirstToLast", shape)) return;
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t x = 0; x < w; ++x)
        tile::ratseg_copyFirstToLast(dst, src, w, h_dst, h_src, x, i);
    }
  }

  void ratseg_copyLastToFirst(const LaunchShape& shape, float2* dst, float2* src, std::size_t w,
                              std::size_t h_dst, std::size_t h_src, std::size_t n) override {
    if (!admitHostLaunch("ratseg_copyLastToFirst", shape)) return;
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t x = 0; x < w; ++x)
        tile::ratseg_copyLastToFirst(dst, src, w, h_dst, h_src, x, i);
    }
  }

  void computeSumU_sumKernel(const LaunchShape& shape, float* src, float* dst,
                             std::size_t n) override {
    if (!admitHostLaunch("computeSumU_sumKernel", shape)) return;
    forEachLabel(shape, n, [&](std::size_t i) { tile::computeSumU_sumKernel(src, dst, i); });
  }

  void ratseg_copyGamma(const LaunchShape& shape, float* src, float* dst, std::size_t n) override {
    if (!admitHostLaunch("ratseg_copyGamma", shape)) return;
    forEachLabel(shape, n, [&](std::size_t i) { tile::ratseg_copyGamma(src, dst, i); });
  }

  void ratseg_dual_gamma(const LaunchShape& shape, float* gamma, float* a, float* sum_u,
                         float constGamma, std::size_t NOmega, float dt, std::size_t n) override {
    if (!admitHostLaunch("ratseg_dual_gamma", shape)) return;
    forEachLabel(shape, n, [&](std::size_t i) {
      tile::ratseg_dual_gamma(gamma, a, sum_u, constGamma, NOmega, dt, i);
    });
  }

  void ratseg_dual_alphabeta__interval(const LaunchShape& shape, float* alpha, float* beta,
                                       float* a, float constAlpha, float* mins, float* maxs,
                                       std::size_t ind_bgr, float dt, std::size_t n) override {
    if (!admitHostLaunch("ratseg_dual_alphabeta__interval", shape)) return;
    forEachLabel(shape, n, [&](std::size_t i) {
      tile::ratseg_dual_alphabeta__interval(alpha, beta, a, constAlpha, mins, maxs, ind_bgr, dt, i);
    });
  }

  void ratseg_dual_alphabeta__lowerBound(const LaunchShape& shape, float* alpha, float* a,
                                         float constAlpha, float mu, float* ratios, float* sigmas,
                                         std::size_t ind_bgr, float dt, std::size_t n) override {
    if (!admitHostLaunch("ratseg_dual_alphabeta__lowerBound", shape)) return;
    forEachLabel(shape, n, [&](std::size_t i) {
      tile::ratseg_dual_alphabeta__lowerBound(alpha, a, constAlpha, mu, ratios, sigmas, ind_bgr, dt,
                                              i);
    });
  }

  void ratseg_dual_alphabeta__upperBound(const LaunchShape& shape, float* alpha, float* beta,
                                         float* a, float constAlpha, float mu, float eps,
                                         float* ratios, float* sigmas, std::size_t ind_bgr,
                                         float dt, std::size_t n) override {
    if (!admitHostLaunch("ratseg_dual_alphabeta__upperBound", shape)) return;
    forEachLabel(shape, n, [&](std::size_t i) {
      tile::ratseg_dual_alphabeta__upperBound(alpha, beta, a, constAlpha, mu, eps, ratios, sigmas,
                                              ind_bgr, dt, i);
    });
  }

  void ratseg_prim_a__gamma(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                            float constGamma, float theta_bar, float dt, std::size_t n) override {
    if (!admitHostLaunch("ratseg_prim_a__gamma", shape)) return;
    forEachLabel(shape, n, [&](std::size_t i) {
      tile::ratseg_prim_a__gamma(a, a_bar, gamma, constGamma, theta_bar, dt, i);
    });
  }

  void ratseg_prim_a__interval(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                               float* alpha, float* beta, float constGamma, float constAlpha,
                               std::size_t ind_bgr, float theta_bar, float dt,
                               std::size_t n) override {
    if (!admitHostLaunch("ratseg_prim_a__interval", shape)) return;
    forEachLabel(shape, n, [&](std::size_t i) {
      tile::ratseg_prim_a__interval(a, a_bar, gamma, alpha, beta, constGamma, constAlpha, ind_bgr,
                                    theta_bar, dt, n, i);
    });
  }

  void ratseg_prim_a__lowerBound(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                                 float* alpha, float constGamma, float constAlpha, float mu,
                                 float* ratios, std::size_t ind_bgr, float theta_bar, float dt,
                                 std::size_t n) override {
    if (!admitHostLaunch("ratseg_prim_a__lowerBound", shape)) return;
    forEachLabel(shape, n, [&](std::size_t i) {
      tile::ratseg_prim_a__lowerBound(a, a_bar, gamma, alpha, constGamma, constAlpha, mu, ratios,
                                      ind_bgr, theta_bar, dt, n, i);
    });
  }

  void ratseg_prim_a__upperBound(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                                 float* alpha, float* beta, float constGamma, float constAlpha,
                                 float mu, float eps, float* ratios, std::size_t ind_bgr,
                                 float theta_bar, float dt, std::size_t n) override {
    if (!admitHostLaunch("ratseg_prim_a__upperBound", shape)) return;
    forEachLabel(shape, n, [&](std::size_t i) {
      tile::ratseg_prim_a__upperBound(a, a_bar, gamma, alpha, beta, constGamma, constAlpha, mu, eps,
                                      ratios, ind_bgr, theta_bar, dt, n, i);
    });
  }

  void ratseg_exact_shares(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                           float* alpha, float* beta, float* a_before, float* gamma_before,
                           float* sum_u, std::size_t NOmega, float mu, float eps, float* ratios,
                           float* sigmas, std::size_t ind_bgr, float step, std::size_t n) override {
    if (!admitHostLaunch("ratseg_exact_shares", shape)) return;
    tile::ratseg_exact_shares(a, a_bar, gamma, alpha, beta, a_before, gamma_before, sum_u, NOmega,
                              mu, eps, ratios, sigmas, ind_bgr, step, n);
  }

  void ratseg_free_shares(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                          float* sum_u, std::size_t NOmega, std::size_t n) override {
    if (!admitHostLaunch("ratseg_free_shares", shape)) return;
    tile::ratseg_free_shares(a, a_bar, gamma, sum_u, NOmega, n);
  }
};

}  // namespace

RatSegKernels& RatSegKernels::host() {
  static HostRatSegKernels kernels;
  return kernels;
}

}  // namespace namespace_ratseg
