// The solver's data, its start and its results.

#include <algorithm>
#include <iostream>
#include <vector>

#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "algorithms/rat_segments/alg/rat_seg_impl.h"
#include "device/console.h"
#include "device/runtime.h"

namespace namespace_ratseg {

namespace {

// Says on standard output that method was called before alloc().
bool reportNotAllocated(bool allocated, const char* method) {
  if (allocated) return false;
  console().out() << "ERROR (" << method << "()): Must call alloc() first" << std::endl;
  return true;
}

// Copies count elements from the host into array, from its element first on. Where the array is not
// allocated, says so and copies nothing.
template <class T>
void upload(cudaarray<T>& array, std::size_t first, const T* host, std::size_t count) {
  if (!array.isAllocated()) {
    array.copyFromHost(host);  // has the message
    return;
  }
  cudaMemcpy(array.get_ptr() + first, host, count * sizeof(T), cudaMemcpyHostToDevice);
}

float clampToUnit(float x) { return std::max(0.0f, std::min(1.0f, x)); }

}  // namespace

void RatSegImpl::setDataterm(float* rho) {
  if (reportNotAllocated(allocatedArrays, "setDataterm")) return;
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d);
    for (std::size_t i = 0; i < par.n; ++i) {
      upload(g.rho, i * g.NOmega, rho + i * par.w * par.h + par.w * g.ymin, g.NOmega);
      check();
    }
  }
  par.initLocalSolution ? setLocalSolution() : setZeroSolution();
}

void RatSegImpl::setDataterm(float4* image, float4** scribbles, std::size_t* scribblesNum,
                             float sigma, float thr) {
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d);
    upload(g.image, 0, image + par.w * g.ymin, g.NOmega);
    check();
  }
  for (std::size_t i = 0; i < par.n; ++i) {
    for (int d = 0; d < bands(); ++d) {
      select(d);
      upload(arrays[d].scribbles, 0, scribbles[i], scribblesNum[i]);
      check();
    }
    for (int d = 0; d < bands(); ++d) {
      gpudata& g = arrays[d];
      select(d);
      ratSegKernels().ratseg_setdataterm_scribbles({g.grid, g.block, 0}, g.rho, g.image,
                                                   g.scribbles, scribblesNum[i], sigma, thr, par.w,
                                                   par.h, g.ymin, g.ymax, par.n, i);
      check();
    }
  }
  par.initLocalSolution ? setLocalSolution() : setZeroSolution();
}

void RatSegImpl::getDataterm(float* rho) {
  // The setter's name in the message is intentional.
  if (reportNotAllocated(allocatedArrays, "setDataterm")) return;
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d);
    for (std::size_t i = 0; i < par.n; ++i) {
      cudaMemcpy(rho + i * par.w * par.h + par.w * g.ymin, g.rho.get_ptr() + i * g.NOmega,
                 g.NOmega * sizeof(float), cudaMemcpyDeviceToHost);
      check();
    }
  }
}

void RatSegImpl::setRatios(float* ratios, float* sigmas, std::size_t ind_bgr0, float* mins,
                           float* maxs) {
  if (reportNotAllocated(allocatedArrays, "setRatios")) return;
  std::vector<float> lower(par.n);
  std::vector<float> upper(par.n);
  for (std::size_t i = 0; i < par.n; ++i) {
    lower[i] = mins != nullptr ? mins[i] : clampToUnit(ratios[i] - 3.0f * sigmas[i]);
    upper[i] = maxs != nullptr ? maxs[i] : clampToUnit(ratios[i] + 3.0f * sigmas[i]);
  }
  ind_bgr = ind_bgr0;
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d);
    g.ratios.copyFromHost(ratios);
    check();
    g.sigmas.copyFromHost(sigmas);
    check();
    g.mins.copyFromHost(lower.data());
    check();
    g.maxs.copyFromHost(upper.data());
    check();
  }
}

void RatSegImpl::setWeight(float* weight) {
  if (reportNotAllocated(allocatedArrays, "setWeight")) return;
  kind_weight = kind_weight_scalar;
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d);
    g.weight.copyFromHost(weight + par.w * g.ymin);
    check();
  }
}

void RatSegImpl::getSolution_smooth(float* u) {
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d);
    for (std::size_t i = 0; i < par.n; ++i) {
      cudaMemcpy(u + i * par.w * par.h + par.w * g.ymin, g.u.get_ptr() + i * g.NOmegaOffset,
                 g.NOmega * sizeof(float), cudaMemcpyDeviceToHost);
      check();
    }
  }
}

void RatSegImpl::getSolution(float* u) {
  getSolution_smooth(u);
  const std::size_t pixels = par.w * par.h;
  for (std::size_t k = 0; k < pixels; ++k) {
    std::size_t best = 0;
    float maxValue = 0.0f;
    for (std::size_t i = 0; i < par.n; ++i) {
      if (u[i * pixels + k] > maxValue) {
        maxValue = u[i * pixels + k];
        best = i;
      }
    }
    for (std::size_t i = 0; i < par.n; ++i) u[i * pixels + k] = i == best ? 1.0f : 0.0f;
  }
}

void RatSegImpl::setLocalSolution() {
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d);
    ratSegKernels().ratseg_setLocalSolution_kernel({g.grid, g.block, 0}, g.u, g.rho, par.w, par.h,
                                                   g.ymin, g.ymax, par.n);
    check();
  }
  if (!accelerates()) return;
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d);
    // Plane by plane, so that each thread of the host copies about the rows that it will have.
    for (std::size_t i = 0; i < par.n; ++i) {
      const std::size_t plane = i * g.NOmegaOffset;
      cudaMemcpy(g.u_bar.get_ptr() + plane, g.u.get_ptr() + plane, g.NOmegaOffset * sizeof(float),
                 cudaMemcpyDeviceToDevice);
      check();
    }
  }
  copyExtraRegions_u();
}

void RatSegImpl::setZeroSolution() {
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d);
    const auto zero = [](auto& array) {
      if (!array.isAllocated()) return;
      array.setzero();
      check();
    };
    zero(g.u);
    zero(g.u_bar);
  }
}

void RatSegImpl::reinit() {
  for (int d = 0; d < bands(); ++d) {
    gpudata& g = arrays[d];
    select(d);
    const auto zero = [](auto&... array) {
      const auto one = [](auto& a) {
        if (!a.isAllocated()) return;
        a.setzero();
        check();
      };
      (one(array), ...);
    };
    zero(g.u, g.u_bar, g.p, g.a, g.a_bar, g.gamma, g.sum_u, g.alpha, g.beta);
  }
  if (par.initLocalSolution) setLocalSolution();
}

}  // namespace namespace_ratseg
