#ifndef RATSEG_ALG_PLAIN_RAT_SEG_LAUNCH_H
#define RATSEG_ALG_PLAIN_RAT_SEG_LAUNCH_H

#include <cstddef>

#include "device/launchers.h"
#include "device/types.h"

namespace namespace_ratseg {

// Launches the solver's kernels on the current device of one backend. Pointers are device pointers
// of that device (or of a peer that it can access). What each kernel computes stands beside its
// arithmetic in labeling_kernels.h, prior_kernels.h, exact_shares_kernels.h and dataterm_kernels.h;
// the array layouts in labeling_kernels.h. A launch that the device refuses leaves its error
// pending.
class RatSegKernels {
 public:
  // Per-pixel kernels; shape covers w x (ymax - ymin).
  virtual void ratseg_dual_p(const LaunchShape& shape, float2* p, float* u, float* weight,
                             float lambda, float dt, std::size_t w, std::size_t h, std::size_t ymin,
                             std::size_t ymax, std::size_t n) = 0;
  // Needs n floats of dynamic shared memory per thread of a block.
  virtual void ratseg_prim_u(const LaunchShape& shape, float* u, float* u_bar, float2* p,
                             float* gamma, float constGamma, float* rho, float theta_bar, float dt,
                             std::size_t w, std::size_t h, std::size_t ymin, std::size_t ymax,
                             std::size_t n) = 0;
  virtual void ratseg_setLocalSolution_kernel(const LaunchShape& shape, float* u, float* rho,
                                              std::size_t w, std::size_t h, std::size_t ymin,
                                              std::size_t ymax, std::size_t n) = 0;
  // The data term of label i0: for each pixel, min(thr, -ln of the mean over the scribbles of
  // exp(-D^2 / (2 sigma^2))), D the CIELAB distance; thr where scribblesNum is 0.
  virtual void ratseg_setdataterm_scribbles(const LaunchShape& shape, float* rho, float4* image,
                                            float4* scribbles, std::size_t scribblesNum,
                                            float sigma, float thr, std::size_t w, std::size_t h,
                                            std::size_t ymin, std::size_t ymax, std::size_t n,
                                            std::size_t i0) = 0;

  // Halo copies; shape covers w x n.
  virtual void ratseg_copyFirstToLast(const LaunchShape& shape, float* dst, float* src,
                                      std::size_t w, std::size_t h_dst, std::size_t h_src,
                                      std::size_t n) = 0;
  virtual void ratseg_copyLastToFirst(const LaunchShape& shape, float2* dst, float2* src,
                                      std::size_t w, std::size_t h_dst, std::size_t h_src,
                                      std::size_t n) = 0;

  // Per-label kernels; shape is one block of n threads.
  virtual void computeSumU_sumKernel(const LaunchShape& shape, float* src, float* dst,
                                     std::size_t n) = 0;
  virtual void ratseg_copyGamma(const LaunchShape& shape, float* src, float* dst,
                                std::size_t n) = 0;
  virtual void ratseg_dual_gamma(const LaunchShape& shape, float* gamma, float* a, float* sum_u,
                                 float constGamma, std::size_t NOmega, float dt, std::size_t n) = 0;
  virtual void ratseg_dual_alphabeta__interval(const LaunchShape& shape, float* alpha, float* beta,
                                               float* a, float constAlpha, float* mins, float* maxs,
                                               std::size_t ind_bgr, float dt, std::size_t n) = 0;
  virtual void ratseg_dual_alphabeta__lowerBound(const LaunchShape& shape, float* alpha, float* a,
                                                 float constAlpha, float mu, float* ratios,
                                                 float* sigmas, std::size_t ind_bgr, float dt,
                                                 std::size_t n) = 0;
  virtual void ratseg_dual_alphabeta__upperBound(const LaunchShape& shape, float* alpha,
                                                 float* beta, float* a, float constAlpha, float mu,
                                                 float eps, float* ratios, float* sigmas,
                                                 std::size_t ind_bgr, float dt, std::size_t n) = 0;
  virtual void ratseg_prim_a__gamma(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                                    float constGamma, float theta_bar, float dt, std::size_t n) = 0;
  virtual void ratseg_prim_a__interval(const LaunchShape& shape, float* a, float* a_bar,
                                       float* gamma, float* alpha, float* beta, float constGamma,
                                       float constAlpha, std::size_t ind_bgr, float theta_bar,
                                       float dt, std::size_t n) = 0;
  virtual void ratseg_prim_a__lowerBound(const LaunchShape& shape, float* a, float* a_bar,
                                         float* gamma, float* alpha, float constGamma,
                                         float constAlpha, float mu, float* ratios,
                                         std::size_t ind_bgr, float theta_bar, float dt,
                                         std::size_t n) = 0;
  virtual void ratseg_prim_a__upperBound(const LaunchShape& shape, float* a, float* a_bar,
                                         float* gamma, float* alpha, float* beta, float constGamma,
                                         float constAlpha, float mu, float eps, float* ratios,
                                         std::size_t ind_bgr, float theta_bar, float dt,
                                         std::size_t n) = 0;

  // All labels at once; shape is one block of 32 threads. The shares and gamma before the step may
  // be a and gamma.
  virtual void ratseg_exact_shares(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                                   float* alpha, float* beta, float* a_before, float* gamma_before,
                                   float* sum_u, std::size_t NOmega, float mu, float eps,
                                   float* ratios, float* sigmas, std::size_t ind_bgr, float step,
                                   std::size_t n) = 0;
  virtual void ratseg_free_shares(const LaunchShape& shape, float* a, float* a_bar, float* gamma,
                                  float* sum_u, std::size_t NOmega, std::size_t n) = 0;

  // The launchers of each backend; cuda() exists only in builds with that backend.
  static RatSegKernels& host();
  static RatSegKernels& cuda();

 protected:
  ~RatSegKernels() = default;  // never destroyed: threads may launch while the process ends
};

// The launchers of the current backend.
inline RatSegKernels& ratSegKernels() { return currentLaunchers<RatSegKernels>(); }

}  // namespace namespace_ratseg

#endif
