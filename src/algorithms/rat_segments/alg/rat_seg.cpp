#include "algorithms/rat_segments/alg/rat_seg.h"

#include "algorithms/rat_segments/alg/rat_seg_arguments.h"
#include "algorithms/rat_segments/alg/rat_seg_impl.h"

namespace namespace_ratseg {

RatSeg::RatSeg() : impl_(new RatSegImpl(par_)) {}
RatSeg::~RatSeg() { delete impl_; }

bool RatSeg::alloc() {
  impl_->free();
  return canAlloc(par_) && impl_->alloc();
}
void RatSeg::reinit() {
  if (impl_->sizesHold("reinit")) impl_->reinit();
}
void RatSeg::free() { impl_->free(); }
void RatSeg::setWeight(float* weight) {
  if (!impl_->sizesHold("setWeight")) return;
  if (impl_->allocatedArrays && !isGiven(weight, "setWeight", "weight")) return;
  impl_->setWeight(weight);
}
void RatSeg::setDataterm(float* rho) {
  if (!impl_->sizesHold("setDataterm")) return;
  if (impl_->allocatedArrays && !isGiven(rho, "setDataterm", "rho")) return;
  impl_->setDataterm(rho);
}
void RatSeg::setDataterm(float4* image, float4** scribbles, std::size_t* scribblesNum, float sigma,
                         float thr) {
  if (!impl_->sizesHold("setDataterm") || !impl_->allocatedArrays) return;
  if (!areScribbles(image, scribbles, scribblesNum, sigma, thr, par_)) return;
  impl_->setDataterm(image, scribbles, scribblesNum, sigma, thr);
}
void RatSeg::getDataterm(float* rho) {
  if (!impl_->sizesHold("getDataterm")) return;
  if (impl_->allocatedArrays && !isGiven(rho, "getDataterm", "rho")) return;
  impl_->getDataterm(rho);
}
void RatSeg::setRatios(float* ratios, float* sigmas, std::size_t ind_bgr0, float* mins,
                       float* maxs) {
  if (!impl_->sizesHold("setRatios")) return;
  if (impl_->allocatedArrays &&
      (!isGiven(ratios, "setRatios", "ratios") || !isGiven(sigmas, "setRatios", "sigmas") ||
       !isBackgroundLabel(ind_bgr0, par_))) {
    return;
  }
  impl_->setRatios(ratios, sigmas, ind_bgr0, mins, maxs);
}
void RatSeg::run() {
  impl_->statistics = {};
  if (!impl_->sizesHold("run")) return;
  if (impl_->allocatedArrays && !canRun(par_)) return;
  impl_->run();
}
const Statistics& RatSeg::getStatistics() const { return impl_->statistics; }
void RatSeg::getSolution(float* uh) {
  if (impl_->sizesHold("getSolution") && isGiven(uh, "getSolution", "uh")) impl_->getSolution(uh);
}
void RatSeg::getSolution_smooth(float* uh) {
  if (!impl_->sizesHold("getSolution_smooth")) return;
  if (isGiven(uh, "getSolution_smooth", "uh")) impl_->getSolution_smooth(uh);
}
float RatSeg::energy_gap(float* ep0, float* ed0) { return impl_->energy_gap(ep0, ed0); }
void RatSeg::getUsedDevices(int*& devices, int& count) { impl_->getUsedDevices(devices, count); }

}  // namespace namespace_ratseg
