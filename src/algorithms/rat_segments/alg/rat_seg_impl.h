#ifndef RATSEG_ALG_RAT_SEG_IMPL_H
#define RATSEG_ALG_RAT_SEG_IMPL_H

// The solver behind RatSeg: one band of image rows per device, the iteration over them, and the
// transfer of data and results. Array layouts: labeling_kernels.h.

#include <cstddef>

#include "algorithms/rat_segments/alg/rat_seg.h"
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
  cudaEvent_t queued = nullptr;  // recorded behind what other devices wait for
};

class RatSegImpl {
 public:
  static constexpr int kind_weight_none = 0;
  static constexpr int kind_weight_scalar = 1;

  // par must outlive the solver; changes to it are seen at the next call.
  explicit RatSegImpl(Params& params) : par(params) {}
  RatSegImpl(const RatSegImpl&) = delete;
  RatSegImpl& operator=(const RatSegImpl&) = delete;

  // The operations of RatSeg; rat_seg.h says what they do.
  bool alloc();
  void free();
  void reinit();
  void setWeight(float* weight);
  void setDataterm(float* rho);
  void setDataterm(float4* image, float4** scribbles, std::size_t* scribblesNum, float sigma,
                   float thr);
  void getDataterm(float* rho);
  void setRatios(float* ratios, float* sigmas, std::size_t ind_bgr0, float* mins, float* maxs);
  void run();
  void getSolution(float* u);
  void getSolution_smooth(float* u);
  float energy_gap(float* ep0, float* ed0);
  void getUsedDevices(int*& devices, int& count);

  // u = the pixelwise best label of the data term; u_bar keeps what it held, or where run() will
  // accelerate becomes u.
  void setLocalSolution();
  // u = u_bar = 0, halo rows included.
  void setZeroSolution();

  void deviceSynchronizeAll();

  // Steps of run(). With one band the exchanges have nothing to do.
  void copyExtraRegions_p();         // halo row of p, from the band above
  void copyExtraRegions_u();         // halo row of u_bar, from the band below
  void computeSumU__save_on_gpu0();  // sum_u per band, gathered in device 0's

  // Whether run() takes the accelerated iteration: asked for, and the prior has an exact step.
  bool accelerates() const;

  // constAlpha of the kind of prior: the pixels of the image, or 1 (docs/math.md, section 5.6).
  float constAlphaOfPrior() const;

  // Whether labeling, duals and shares hold neither NaN nor infinite values. Some engines turn NaN
  // into numbers, so that in the data term or the weight is looked for as well.
  bool stateIsFinite();

  // Whether w, h and n are still those that the arrays were allocated for; otherwise says on
  // standard error that method cannot use them.
  bool sizesHold(const char* method) const;

  // Bands that hold arrays: nDev after a successful alloc(), otherwise 0.
  int bands() const { return allocatedArrays ? nDev : 0; }

  // Whether device a of the list reaches the memory of device b of the list.
  bool canAccess(int a, int b) const { return canAccess_array[b * nDev + a]; }

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
  float* sum_u_host = nullptr;  // n nDev floats
  Statistics statistics;        // of the last run()

 private:
  friend class HostEngine;
  friend class StripEngine;
  struct Report;
  class Watched;

  struct Sizes {
    std::size_t w = 0, h = 0, n = 0;
    bool operator==(const Sizes&) const = default;
  };
  Sizes allocatedSizes;

  bool chooseDevices();
  bool setUpBands();
  void setUpPrimUShape(gpudata& g);
  void printMemoryNeeded();
  void allocateArrays();
  void forgetRecords();

  void select(int d, unsigned long line);
  void selectAfter(int d, int other, unsigned long line);
  void plainStep(float tau, float sigma);
  void dualStepOfLength(float sigma);
  void broadcastGamma();
  void updateShares(float tau, float sigma);
  void updateSharesExactly(float step);
  // What the exact step of the shares works on: n floats each, on device 0.
  struct ShareArrays {
    float *a_before, *gamma_before, *a, *a_bar, *gamma, *alpha, *beta, *sum_u;
  };
  void launchExactShares(cudaStream_t stream, const ShareArrays& s, float step);
  void primalStepOfLabeling(float tau);
  void printReport(Report& report);
  LaunchShape perLabel() const;
};

}  // namespace namespace_ratseg

#endif
