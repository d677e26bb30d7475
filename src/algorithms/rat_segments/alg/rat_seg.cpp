#include "algorithms/rat_segments/alg/rat_seg.h"

#include <iostream>

#include "algorithms/rat_segments/alg/rat_seg_impl.h"

namespace namespace_ratseg {

RatSeg::RatSeg() : impl_(new RatSegImpl(par_)) {}
RatSeg::~RatSeg() { delete impl_; }

bool RatSeg::alloc() { return impl_->alloc(); }
void RatSeg::reinit() {
  if (impl_->sizesHold("reinit")) impl_->reinit();
}
void RatSeg::free() { impl_->free(); }
void RatSeg::setWeight(float* weight) {
  if (impl_->sizesHold("setWeight")) impl_->setWeight(weight);
}
void RatSeg::setDataterm(float* rho) {
  if (impl_->sizesHold("setDataterm")) impl_->setDataterm(rho);
}
void RatSeg::setDataterm(float4* image, float4** scribbles, std::size_t* scribblesNum, float sigma,
                         float thr) {
  if (!impl_->sizesHold("setDataterm")) return;
  impl_->setDataterm(image, scribbles, scribblesNum, sigma, thr);
}
void RatSeg::getDataterm(float* rho) {
  if (impl_->sizesHold("getDataterm")) impl_->getDataterm(rho);
}
void RatSeg::setRatios(float* ratios, float* sigmas, std::size_t ind_bgr0, float* mins,
                       float* maxs) {
  if (!impl_->sizesHold("setRatios")) return;
  if (impl_->allocatedArrays && ind_bgr0 >= par_.n) {
    std::cerr << "ERROR (setRatios()): the background label must be one of 0 to " << par_.n - 1
              << ", but is " << ind_bgr0 << std::endl;
    return;
  }
  impl_->setRatios(ratios, sigmas, ind_bgr0, mins, maxs);
}
void RatSeg::run() {
  if (impl_->sizesHold("run")) impl_->run();
}
const Statistics& RatSeg::getStatistics() const { return impl_->statistics; }
void RatSeg::getSolution(float* uh) {
  if (impl_->sizesHold("getSolution")) impl_->getSolution(uh);
}
void RatSeg::getSolution_smooth(float* uh) {
  if (impl_->sizesHold("getSolution_smooth")) impl_->getSolution_smooth(uh);
}
float RatSeg::energy_gap(float* ep0, float* ed0) { return impl_->energy_gap(ep0, ed0); }
void RatSeg::getUsedDevices(int*& devices, int& count) { impl_->getUsedDevices(devices, count); }

}  // namespace namespace_ratseg
