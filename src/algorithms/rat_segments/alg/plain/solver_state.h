#ifndef RATSEG_ALG_PLAIN_SOLVER_STATE_H
#define RATSEG_ALG_PLAIN_SOLVER_STATE_H

// The state of a solver: its parameters, one band of image rows per device, and the numbers that
// the steps of the iteration need. Array layouts: labeling_kernels.h.

#include <cstddef>

#include "algorithms/rat_segments/alg/params.h"
#include "device/environment.h"
#include "device/source_location.h"
#include "device/types.h"
#include "util/cudaarray.h"
#include "util/sum.h"

namespace namespace_ratseg {

// One device's band: rows [ymin, ymax) of the image, h = ymax - ymin of them. The arrays live on
// the band's device. Elements: N = NOmega n; NOffset = NOmegaOffset n with one halo row per plane.
struct gpudata {
  cudaarray<float> u;       // relaxed labeling, NOffset
  cudaarray<float> u_bar;   // over-relaxed labeling, NOffset
  cudaarray<float2> p;      // dual field of the length term, NOffset
  cudaarray<float> a;       // share per label, n
  cudaarray<float> a_bar;   // over-relaxed share, n
  cudaarray<float> gamma;   // multiplier that ties a to the labeling, n
  cudaarray<float> sum_u;   // sum of u_bar over the band; on device 0, gathered, over the image, n
  cudaarray<float> alpha;   // first dual variable of the prior, n
  cudaarray<float> beta;    // second dual variable of the prior, n
  cudaarray<float> ratios;  // mean of the share, n
  cudaarray<float> sigmas;  // spread of the share, n
  cudaarray<float> mins;    // lower bound of the share, n
  cudaarray<float> maxs;    // upper bound of the share, n
  cudaarray<float> rho;     // data term, N
  cudaarray<float> weight;  // weight of the length term, NOmega
  cudaarray<float4> scribbles;  // one label's scribble colours, w times the image height
  cudaarray<float4> image;      // colours of the band, NOmega
  std::size_t ymin = 0;
  std::size_t ymax = 0;
  std::size_t h = 0;
  std::size_t NOmega = 0;        // h w
  std::size_t NOmegaOffset = 0;  // (h + 1) w
  std::size_t N = 0;
  std::size_t NOffset = 0;
  dim3 block;
  dim3 grid;
  float* weightHat = nullptr;  // the run's weight: the array, or null for 1 everywhere
  cuda_summator<float> summator;
  LaunchShape primU;  // of ratseg_prim_u: block and grid unless its scratch needs a smaller block
  cudaEvent_t queued = nullptr;  // recorded after the work that other devices wait for
};

struct SolverState {
  static constexpr int kind_weight_none = 0;
  static constexpr int kind_weight_scalar = 1;

  // params must outlive the solver.
  explicit SolverState(Params& params) : par(params) {}
  SolverState(const SolverState&) = delete;
  SolverState& operator=(const SolverState&) = delete;

  // Bands that hold arrays: nDev after a successful alloc(), otherwise 0.
  int bands() const { return allocatedArrays ? nDev : 0; }

  // True if device a of the list can access the memory of device b of the list.
  bool canAccess(int a, int b) const { return canAccess_array[b * nDev + a]; }

  // True if all bands that exchange data can access each other's memory: neighbours exchange rows,
  // all bands exchange sums and multipliers with the first. Without it the copy engine moves
  // the boundary rows, and not the same ones as the kernels (docs/math.md, section 8.3); only the
  // plain engine supports that.
  bool bandsReachEachOther() const;

  // True if run() takes the accelerated iteration: it is asked for, and the prior has an exact
  // step.
  bool accelerates() const;

  // constAlpha of the kind of prior: the pixels of the image, or 1 (docs/math.md, section 5.6).
  float constAlphaOfPrior() const;

  // Selects device d of the list. where is the caller, for checks.
  void select(int d, SourceLocation where = SourceLocation::current()) const;

  // Selects device d of the list for work that reads the memory of device other: it starts when
  // what other has queued so far is done. The host does not wait.
  void selectAfter(int d, int other, SourceLocation where = SourceLocation::current()) const;

  // Waits until all devices are done.
  void deviceSynchronizeAll() const;

  Params& par;
  gpudata* arrays = nullptr;     // nDev records
  bool allocatedArrays = false;  // true once every allocation is done
  int nDev = 1;
  int* dev = nullptr;  // nDev device numbers; band d lives on device dev[d]
  int kind_weight = kind_weight_none;
  float scaleOmega = 0.0f;  // 128 / sqrt(w h)
  float constGamma = 0.0f;  // w h
  float constAlpha = 0.0f;
  bool* canAccess_array = nullptr;
  dim3 block_copy{0, 0, 0};
  dim3 grid_copy{0, 0, 0};
  std::size_t ind_bgr = 0;
  float* sum_u_host = nullptr;                          // n nDev floats
  Statistics statistics;                                // of the last run()
  Setting<StripWish> stripWish = environment().strips;  // of a run with the strip engine
};

}  // namespace namespace_ratseg

#endif
