#ifndef RATSEG_ALG_RAT_SEG_IMPL_H
#define RATSEG_ALG_RAT_SEG_IMPL_H

// The solver behind RatSeg: bands and their memory, the run, and the transfer of data and results.

#include <cstddef>

#include "algorithms/rat_segments/alg/plain/solver_state.h"
#include "algorithms/rat_segments/alg/rat_seg.h"
#include "device/types.h"

namespace namespace_ratseg {

class RatSegImpl : public SolverState {
 public:
  // par must outlive the solver; changes to it are seen at the next call.
  explicit RatSegImpl(Params& params) : SolverState(params) {}

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

  // Steps of run(), each alone (plain/plain_steps.h).
  void copyExtraRegions_p();
  void copyExtraRegions_u();
  void computeSumU__save_on_gpu0();

  // True if labeling, duals and shares hold neither NaN nor infinite values, and data term and
  // weight no NaN, which some engines turn into numbers.
  bool stateIsFinite();

  // True if w, h and n are still those that the arrays were allocated for; otherwise prints on
  // standard error that method cannot use them.
  bool sizesHold(const char* method) const;

 private:
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

  void printStep(std::size_t step);
  void printReport(Report& report);
};

}  // namespace namespace_ratseg

#endif
