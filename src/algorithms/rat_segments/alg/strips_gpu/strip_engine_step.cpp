// One iteration of the strip engine, on one band and on several.

#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_engine.h"

namespace namespace_ratseg {

// One kernel: the sweep, the shares beside it, the sums and gamma at its end. The exact step of the
// shares is one more: it would take the sweep's registers.
void StripEngine::stepOneBand() {
  const StripShares shares = bands_.shares();
  const StripFinish finish = bands_.finish(0);
  select(0);
  stripKernels().ratseg_strip_sweep(bands_[0].shape, queues_->main(0), bands_.rows(0),
                                    solver_.accelerates() ? nullptr : &shares, &finish);
  check();
  if (!bands_.nextGammaInSweep()) nextGamma(bands_.then());
}

// Edges first, then the rows between in each band's main queue and the exchange in its side queue.
void StripEngine::stepBands() {
  queues_->forkSides();
  for (std::size_t d = 0; d + 1 < bands_.size(); ++d) {
    select(d);
    stripKernels().ratseg_strip_edge(bands_[d].shape, queues_->side(d), bands_.rows(d));
    check();
    queues_->markEdge(d);
  }
  sweepInside();
  exchangeP();
  sweepFirstRows();
  exchangeU();
  queues_->joinSides();
  gatherSums();
  nextGamma(bands_.then());
}

void StripEngine::sweepInside() {
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    const StripBuffers& b = bands_[d];
    StripBand rows = bands_.rows(d);
    rows.rowBegin = b.firstRows;
    rows.firstBlock = b.firstBlocks;
    if (rows.rowBegin == rows.rowEnd) continue;
    select(d);
    stripKernels().ratseg_strip_sweep(b.shape, queues_->main(d), rows, nullptr, nullptr);
    check();
  }
}

// The row above each band: the new p of the last row of the band above.
void StripEngine::exchangeP() {
  for (std::size_t d = 1; d < bands_.size(); ++d) {
    float2* to = bands_[d].p[bands_.then()];
    float2* from = bands_[d - 1].p[bands_.then()];
    select(d);
    queues_->waitForEdge(d, d - 1);
    ratSegKernels().ratseg_copyLastToFirst(
        {solver_.grid_copy, solver_.block_copy, 0, queues_->side(d)}, to, from, solver_.par.w,
        solver_.arrays[d].h, solver_.arrays[d - 1].h, solver_.par.n);
    check();
  }
}

void StripEngine::sweepFirstRows() {
  const StripShares shares = bands_.shares();
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    const StripBuffers& b = bands_[d];
    StripBand rows = bands_.rows(d);
    rows.rowEnd = b.firstRows;
    select(d);
    const bool takesShares = d == 0 && !solver_.accelerates();
    stripKernels().ratseg_strip_sweep(b.shape, queues_->side(d), rows,
                                      takesShares ? &shares : nullptr, nullptr);
    check();
    queues_->markFirstRows(d);
  }
}

// The row below each band: the new labeling of the first row of the band below.
void StripEngine::exchangeU() {
  for (std::size_t d = 0; d + 1 < bands_.size(); ++d) {
    float* to = bands_[d].u[bands_.next()];
    float* from = bands_[d + 1].u[bands_.next()];
    select(d);
    queues_->waitForFirstRows(d, d + 1);
    ratSegKernels().ratseg_copyFirstToLast(
        {solver_.grid_copy, solver_.block_copy, 0, queues_->side(d)}, to, from, solver_.par.w,
        solver_.arrays[d].h, solver_.arrays[d + 1].h, solver_.par.n);
    check();
  }
}

// The sums of all bands on device 0.
void StripEngine::gatherSums() {
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    select(d);
    stripKernels().ratseg_strip_finish(queues_->main(d), bands_.finish(d));
    check();
  }
  float* sum = bands_[0].sum[bands_.then()];
  for (std::size_t d = 1; d < bands_.size(); ++d) {
    queues_->order(d, queues_->main(d), 0, queues_->main(0));
    ratSegKernels().computeSumU_sumKernel(perLabel(queues_->main(0)), sum,
                                          bands_[d].sum[bands_.then()], solver_.par.n);
    check();
  }
}

// gamma of the iteration of that parity on device 0, from the other parity's and the sums, with the
// exact step the shares too; then gamma on all devices.
void StripEngine::nextGamma(std::size_t parity) {
  StripBuffers& b = bands_[0];
  const cudaStream_t queue = queues_->main(0);
  select(0);
  if (solver_.accelerates()) {
    plain_.launchExactShares(queue,
                             {b.a[1 - parity], b.gamma[1 - parity], b.a[parity], b.a[parity],
                              b.gamma[parity], b.alpha[parity], b.beta[parity], b.sum[parity]},
                             4.0f * bands_.sigma());
  } else {
    const Params& par = solver_.par;
    copyLabels(queue, b.gamma[parity], b.gamma[1 - parity]);
    ratSegKernels().ratseg_dual_gamma(perLabel(queue), b.gamma[parity], solver_.arrays[0].a_bar,
                                      b.sum[parity], solver_.constGamma, par.w * par.h,
                                      bands_.sigma(), par.n);
    check();
  }
  for (std::size_t d = 1; d < bands_.size(); ++d) {
    queues_->order(0, queue, d, queues_->main(d));
    copyLabels(queues_->main(d), bands_[d].gamma[parity], b.gamma[parity]);
  }
}

}  // namespace namespace_ratseg
