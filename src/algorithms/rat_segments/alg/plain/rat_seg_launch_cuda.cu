// The CUDA launchers: one thread per pixel, per (column, label) or per label, each a tile of one.

#include <cuda_runtime.h>

#include "algorithms/rat_segments/alg/dataterm/dataterm_kernels.h"
#include "algorithms/rat_segments/alg/kernels/exact_shares_kernels.h"
#include "algorithms/rat_segments/alg/kernels/labeling_kernels.h"
#include "algorithms/rat_segments/alg/kernels/prior_kernels.h"
#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "device/cuda/cuda_launch.h"
#include "device/cuda/warp.h"

namespace namespace_ratseg {

namespace {

namespace kernel {

__device__ std::size_t columnOfThread() {
  return std::size_t{blockIdx.x} * blockDim.x + threadIdx.x;
}
__device__ std::size_t rowOfThread() { return std::size_t{blockIdx.y} * blockDim.y + threadIdx.y; }

// The label of a per-label kernel's thread; only block 0 works.
__device__ std::size_t labelOfThread() {
  const bool first = blockIdx.x == 0 && blockIdx.y == 0 && blockIdx.z == 0;
  return first ? threadIdx.x +
                     std::size_t{blockDim.x} * (threadIdx.y + std::size_t{blockDim.y} * threadIdx.z)
               : ~std::size_t{0};
}

__global__ void ratseg_dual_p(float2* p, float* u, float* weight, float lambda, float dt,
                              std::size_t w, std::size_t h, std::size_t ymin, std::size_t ymax,
                              std::size_t n) {
  const std::size_t x = columnOfThread();
  const std::size_t y = rowOfThread();
  if (x >= w || y >= ymax - ymin) return;
  tile::ratseg_dual_p<1>(p, u, weight, lambda, dt, w, h, ymin, ymax, n, x, y, x + 1 < w);
}

__global__ void ratseg_prim_u(float* u, float* u_bar, float2* p, float* gamma, float constGamma,
                              float* rho, float theta_bar, float dt, std::size_t w, std::size_t h,
                              std::size_t ymin, std::size_t ymax, std::size_t n) {
  float* scratch = dynamicShared<float>();
  const std::size_t x = columnOfThread();
  const std::size_t y = rowOfThread();
  if (x >= w || y >= ymax - ymin) return;
  float* v = scratch + (std::size_t{threadIdx.y} * blockDim.x + threadIdx.x) * n;
  tile::ratseg_prim_u<1>(u, u_bar, p, gamma, constGamma, rho, theta_bar, dt, w, h, ymin, ymax, n, x,
                         y, x != 0, x + 1 < w, v);
}

__global__ void ratseg_setLocalSolution_kernel(float* u, float* rho, std::size_t w, std::size_t,
                                               std::size_t ymin, std::size_t ymax, std::size_t n) {
  const std::size_t x = columnOfThread();
  const std::size_t y = rowOfThread();
  if (x >= w || y >= ymax - ymin) return;
  tile::ratseg_setLocalSolution_kernel(u, rho, w, ymin, ymax, n, x, y);
}

// The block converts the scribbles to CIELAB in chunks that all its threads then read.
__global__ void ratseg_setdataterm_scribbles(float* rho, float4* image, float4* scribbles,
                                             std::size_t scribblesNum, float sigma, float thr,
                                             std::size_t w, std::size_t, std::size_t ymin,
                                             std::size_t ymax, std::size_t, std::size_t i0) {
  constexpr unsigned kChunk = 256;
  __shared__ float4 labs[kChunk];
  const std::size_t x = columnOfThread();
  const std::size_t y = rowOfThread();
  const bool inside = x < w && y < ymax - ymin;
  const unsigned thread = threadIdx.y * blockDim.x + threadIdx.x;
  const unsigned threads = blockDim.x * blockDim.y;
  const float4 lab = inside ? tile::labFromRgb(image[y * w + x]) : float4{0.0f, 0.0f, 0.0f, 0.0f};

  float minExponent = FLT_MAX;
  float sum = 0.0f;
  for (int pass = 0; pass < 2; ++pass) {  // the least exponent, then the sum
    for (std::size_t begin = 0; begin < scribblesNum; begin += kChunk) {
      const std::size_t left = scribblesNum - begin;
      const unsigned chunk = left < kChunk ? static_cast<unsigned>(left) : kChunk;
      __syncthreads();
      for (unsigned k = thread; k < chunk; k += threads)
        labs[k] = tile::labFromRgb(scribbles[begin + k]);
      __syncthreads();
      for (unsigned k = 0; k < chunk; ++k) {
        const float e = tile::scribbleExponent(lab, labs[k], sigma);
        if (pass == 0) {
          minExponent = fminf(minExponent, e);
        } else {
          sum += expf(minExponent - e);
        }
      }
    }
  }
  if (!inside) return;
  const float cost =
      scribblesNum == 0 ? thr : tile::scribbleCost(minExponent, sum, scribblesNum, thr);
  rho[i0 * w * (ymax - ymin) + y * w + x] = cost;
}

__global__ void ratseg_copyFirstToLast(float* dst, float* src, std::size_t w, std::size_t h_dst,
                                       std::size_t h_src, std::size_t n) {
  const std::size_t x = columnOfThread();
  const std::size_t i = rowOfThread();
  if (x < w && i < n) tile::ratseg_copyFirstToLast(dst, src, w, h_dst, h_src, x, i);
}

__global__ void ratseg_copyLastToFirst(float2* dst, float2* src, std::size_t w, std::size_t h_dst,
                                       std::size_t h_src, std::size_t n) {
  const std::size_t x = columnOfThread();
  const std::size_t i = rowOfThread();
  if (x < w && i < n) tile::ratseg_copyLastToFirst(dst, src, w, h_dst, h_src, x, i);
}

__global__ void computeSumU_sumKernel(float* src, float* dst, std::size_t n) {
  const std::size_t i = labelOfThread();
  if (i < n) tile::computeSumU_sumKernel(src, dst, i);
}

__global__ void ratseg_copyGamma(float* src, float* dst, std::size_t n) {
  const std::size_t i = labelOfThread();
  if (i < n) tile::ratseg_copyGamma(src, dst, i);
}

__global__ void ratseg_dual_gamma(float* gamma, float* a, float* sum_u, float constGamma,
                                  std::size_t NOmega, float dt, std::size_t n) {
  const std::size_t i = labelOfThread();
  if (i < n) tile::ratseg_dual_gamma(gamma, a, sum_u, constGamma, NOmega, dt, i);
}

__global__ void ratseg_dual_alphabeta__interval(float* alpha, float* beta, float* a,
                                                float constAlpha, float* mins, float* maxs,
                                                std::size_t ind_bgr, float dt, std::size_t n) {
  const std::size_t i = labelOfThread();
  if (i < n)
    tile::ratseg_dual_alphabeta__interval(alpha, beta, a, constAlpha, mins, maxs, ind_bgr, dt, i);
}

__global__ void ratseg_dual_alphabeta__lowerBound(float* alpha, float* a, float constAlpha,
                                                  float mu, float* ratios, float* sigmas,
                                                  std::size_t ind_bgr, float dt, std::size_t n) {
  const std::size_t i = labelOfThread();
  if (i < n)
    tile::ratseg_dual_alphabeta__lowerBound(alpha, a, constAlpha, mu, ratios, sigmas, ind_bgr, dt,
                                            i);
}

__global__ void ratseg_dual_alphabeta__upperBound(float* alpha, float* beta, float* a,
                                                  float constAlpha, float mu, float eps,
                                                  float* ratios, float* sigmas, std::size_t ind_bgr,
                                                  float dt, std::size_t n) {
  const std::size_t i = labelOfThread();
  if (i < n)
    tile::ratseg_dual_alphabeta__upperBound(alpha, beta, a, constAlpha, mu, eps, ratios, sigmas,
                                            ind_bgr, dt, i);
}

__global__ void ratseg_prim_a__gamma(float* a, float* a_bar, float* gamma, float constGamma,
                                     float theta_bar, float dt, std::size_t n) {
  const std::size_t i = labelOfThread();
  if (i < n) tile::ratseg_prim_a__gamma(a, a_bar, gamma, constGamma, theta_bar, dt, i);
}

__global__ void ratseg_prim_a__interval(float* a, float* a_bar, float* gamma, float* alpha,
                                        float* beta, float constGamma, float constAlpha,
                                        std::size_t ind_bgr, float theta_bar, float dt,
                                        std::size_t n) {
  const std::size_t i = labelOfThread();
  if (i < n)
    tile::ratseg_prim_a__interval(a, a_bar, gamma, alpha, beta, constGamma, constAlpha, ind_bgr,
                                  theta_bar, dt, n, i);
}

__global__ void ratseg_prim_a__lowerBound(float* a, float* a_bar, float* gamma, float* alpha,
                                          float constGamma, float constAlpha, float mu,
                                          float* ratios, std::size_t ind_bgr, float theta_bar,
                                          float dt, std::size_t n) {
  const std::size_t i = labelOfThread();
  if (i < n)
    tile::ratseg_prim_a__lowerBound(a, a_bar, gamma, alpha, constGamma, constAlpha, mu, ratios,
                                    ind_bgr, theta_bar, dt, n, i);
}

__global__ void ratseg_prim_a__upperBound(float* a, float* a_bar, float* gamma, float* alpha,
                                          float* beta, float constGamma, float constAlpha, float mu,
                                          float eps, float* ratios, std::size_t ind_bgr,
                                          float theta_bar, float dt, std::size_t n) {
  const std::size_t i = labelOfThread();
  if (i < n)
    tile::ratseg_prim_a__upperBound(a, a_bar, gamma, alpha, beta, constGamma, constAlpha, mu, eps,
                                    ratios, ind_bgr, theta_bar, dt, n, i);
}

__global__ void ratseg_exact_shares(float* a, float* a_bar, float* gamma, float* alpha, float* beta,
                                    float* a_before, float* gamma_before, float* sum_u,
                                    std::size_t NOmega, float mu, float eps, float* ratios,
                                    float* sigmas, std::size_t ind_bgr, float step, std::size_t n) {
  tile::ratseg_exact_shares(a, a_bar, gamma, alpha, beta, a_before, gamma_before, sum_u, NOmega, mu,
                            eps, ratios, sigmas, ind_bgr, step, n, WarpLanes());
}

__global__ void ratseg_free_shares(float* a, float* a_bar, float* gamma, float* sum_u,
                                   std::size_t NOmega, std::size_t n) {
  tile::ratseg_free_shares(a, a_bar, gamma, sum_u, NOmega, n, WarpLanes());
}

}  // namespace kernel

class CudaRatSegKernels final : public RatSegKernels {
 public:
  void ratseg_dual_p(const LaunchShape& shape, float2* p, float* u, float* weight, float lambda,
                     float dt, std::size_t w, std::size_t h, std::size_t ymin, std::size_t ymax,
                     std::size_t n) override {
    launch(kernel::ratseg_dual_p, shape, p, u, weight, lambda, dt, w, h, ymin, ymax, n);
  }

  void ratseg_prim_u(const LaunchShape& shape, float* u, float* u_bar, float2* p, float* gamma,
                     float constGamma, float* rho, float theta_bar, float dt, std::size_t w,
                     std::size_t h, std::size_t ymin, std::size_t ymax, std::size_t n) override {
    allowSharedMemory(kernel::ratseg_prim_u, shape.sharedBytes);
    launch(kernel::ratseg_prim_u, shape, u, u_bar, p, gamma, constGamma, rho, theta_bar, dt, w, h,
           ymin, ymax, n);
  }

  void ratseg_setLocalSolution_kernel(const LaunchShape& shape, float* u, float* rho, std::size_t w,
                                      std::size_t h, std::size_t ymin, std::size_t ymax,
                                      std::size_t n) override {
    launch(kernel::ratseg_setLocalSolution_kernel, shape, u, rho, w, h, ymin, ymax, n);
  }

  void ratseg_setdataterm_scribbles(const LaunchShape& shape, float* rho, float4* image,
                                    float4* scribbles, std::size_t scribblesNum, float sigma,
                                    float thr, std::size_t w, std::size_t h, std::size_t ymin,
                                    std::size_t ymax, std::size_t n, std::size_t i0) override {
    launch(kernel::ratseg_setdataterm_scribbles, shape, rho, image, scribbles, scribblesNum, sigma,
           thr, w, h, ymin, ymax, n, i0);
  }

  void ratseg_copyFirstToLast(const LaunchShape& shape, float* dst, float* src, std::size_t w,
                              std::size_t h_dst, std::size_t h_src, std::size_t n) override {
    launch(kernel::ratseg_copyFirstToLast, shape, dst, src, w, h_dst, h_src, n);
  }

  void ratseg_copyLastToFirst(const LaunchShape& shape, float2* dst, float2* src, std::size_t w,
                              std::size_t h_dst, std::size_t h_src, std::size_t n) override {
    launch(kernel::ratseg_copyLastToFirst, shape, dst, src, w, h_dst, h_src, n);
  }

  void computeSumU_sumKernel(const LaunchShape& shape, float* src, float* dst,
                             std::size_t n) override {
    launch(kernel::computeSumU_sumKernel, shape, src, dst, n);
  }

  void ratseg_copyGamma(const LaunchShape& shape, float* src, float* dst, std::size_t n) override {
    launch(kernel::ratseg_copyGamma, shape, src, dst, n);
  }

  void ratseg_dual_gamma(const LaunchShape& shape, float* gamma, float* a, float* sum_u,
                         float constGamma, std::size_t NOmega, float dt, std::size_t n) override {
    launch(kernel::ratseg_dual_gamma, shape, gamma, a, sum_u, constGamma, NOmega, dt, n);
  }

  void ratseg_dual_alphabeta__interval(const LaunchShape& shape, float* alpha, float* beta,
                                       float* a, float constAlpha, float* mins, float* maxs,
                                       std::size_t ind_bgr, float dt, std::size_t n) override {
    launch(kernel::ratseg_dual_alphabeta__interval, shape, alpha, beta, a, constAlpha, mins, maxs,
           ind_bgr, dt, n);
  }

  void ratseg_dual_alphabeta__lowerBound(const LaunchShape& shape, float* alpha, float* a,
                                         float constAlpha, float mu, float* ratios, float* sigmas,
                                         std::size_t ind_bgr, float dt, std::size_t n) override {
    launch(kernel::ratseg_dual_alphabeta__lowerBound, shape, alpha, a, constAlpha, mu, ratios,
           sigmas, ind_bgr, dt, n);
  }

  void ratseg_dual_alphabeta__upperBound(const LaunchShape& shape, float* alpha, float* beta,
                                         float* a, float constAlpha, float mu, float eps,
                                         float* ratios, float* sigmas, std::size_t ind_bgr,
                                         float dt, std::size_t n) override {
    launch(kernel::ratseg_dual_alphabeta__upperBound, shape, alpha, beta, a, constAlpha, mu, eps,
           ratios, sigmas, ind_bgr, dt, n);
  }

  void ratseg_prim_a__gamma(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                            float constGamma, float theta_bar, float dt, std::size_t n) override {
    launch(kernel::ratseg_prim_a__gamma, shape, a, a_bar, gamma, constGamma, theta_bar, dt, n);
  }

  void ratseg_prim_a__interval(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                               float* alpha, float* beta, float constGamma, float constAlpha,
                               std::size_t ind_bgr, float theta_bar, float dt,
                               std::size_t n) override {
    launch(kernel::ratseg_prim_a__interval, shape, a, a_bar, gamma, alpha, beta, constGamma,
           constAlpha, ind_bgr, theta_bar, dt, n);
  }

  void ratseg_prim_a__lowerBound(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                                 float* alpha, float constGamma, float constAlpha, float mu,
                                 float* ratios, std::size_t ind_bgr, float theta_bar, float dt,
                                 std::size_t n) override {
    launch(kernel::ratseg_prim_a__lowerBound, shape, a, a_bar, gamma, alpha, constGamma, constAlpha,
           mu, ratios, ind_bgr, theta_bar, dt, n);
  }

  void ratseg_prim_a__upperBound(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                                 float* alpha, float* beta, float constGamma, float constAlpha,
                                 float mu, float eps, float* ratios, std::size_t ind_bgr,
                                 float theta_bar, float dt, std::size_t n) override {
    launch(kernel::ratseg_prim_a__upperBound, shape, a, a_bar, gamma, alpha, beta, constGamma,
           constAlpha, mu, eps, ratios, ind_bgr, theta_bar, dt, n);
  }

  void ratseg_exact_shares(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                           float* alpha, float* beta, float* a_before, float* gamma_before,
                           float* sum_u, std::size_t NOmega, float mu, float eps, float* ratios,
                           float* sigmas, std::size_t ind_bgr, float step, std::size_t n) override {
    launch(kernel::ratseg_exact_shares, shape, a, a_bar, gamma, alpha, beta, a_before, gamma_before,
           sum_u, NOmega, mu, eps, ratios, sigmas, ind_bgr, step, n);
  }

  void ratseg_free_shares(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                          float* sum_u, std::size_t NOmega, std::size_t n) override {
    launch(kernel::ratseg_free_shares, shape, a, a_bar, gamma, sum_u, NOmega, n);
  }
};

}  // namespace

RatSegKernels& RatSegKernels::cuda() {
  static CudaRatSegKernels kernels;
  return kernels;
}

}  // namespace namespace_ratseg
