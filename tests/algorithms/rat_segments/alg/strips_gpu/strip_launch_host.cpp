// Launchers of the strip engine for the host: the blocks and threads of a launch one after the
// other, so that the engine and the indices of its kernels can be tested without a GPU. Programs
// that are linked with this file have them from their start.

#include <algorithm>
#include <vector>

#include "algorithms/rat_segments/alg/strips_gpu/strip_kernels.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_shares_kernels.h"
#include "algorithms/rat_segments/alg/strips_gpu/strip_tile_kernels.h"
#include "device/ceil_div.h"
#include "device/host/host_launch.h"

namespace namespace_ratseg {

namespace {

void takeSharesStep(const StripShares& s) {
  for (std::size_t i = 0; i < s.n; ++i) tile::stripSharesDual(s, i);
  for (std::size_t i = 0; i < s.n; ++i) tile::stripSharesPrimal(s, i);
}

void addUp(const StripFinish& f) {
  for (std::size_t i = 0; i < f.n; ++i) {
    double sum = 0.0;
    for (unsigned k = 0; k < f.blocks; ++k) {
      sum += static_cast<double>(f.partials[i * f.blocks + k]);
    }
    tile::stripFinishLabel(f, i, sum);
  }
}

template <int LABELS, int PX>
void stripBlock(const StripShape& shape, const StripBand& b, unsigned block) {
  float total[LABELS] = {};
  for (unsigned thread = 0; thread < shape.threads; ++thread) {
    float sum[LABELS] = {};
    const unsigned warp = (block * shape.threads + thread) / kStripLanes;
    tile::StripPlace place;
    if (tile::stripOfThread<PX>(b, warp, thread % kStripLanes, place) && place.owns) {
      const tile::StripNeighbours<PX> beside{b, place.x};
      tile::ratseg_strip<LABELS, PX>(b, place, beside, sum);
    }
    for (int i = 0; i < LABELS; ++i) total[i] += sum[i];
  }
  for (unsigned i = 0; i < b.n; ++i) {
    b.partials[std::size_t{i} * b.blocks + b.firstBlock + block] = total[i];
  }
}

void tileBlock(const StripShape& shape, const StripBand& b, unsigned block, unsigned blocks) {
  const std::size_t plane = std::size_t{b.w} * (b.h + 1);
  std::vector<float> total(b.n), scratch(shape.sharedScratch ? b.n * shape.threads : 0);
  const unsigned tiles = tile::stripTiles(b, shape.tileRows);
  for (unsigned t = block; t < tiles; t += blocks) {
    for (unsigned thread = 0; thread < shape.threads; ++thread) {
      unsigned x = 0, y = 0;
      const bool inside = tile::pixelOfThread(b, shape.tileRows, t, thread, x, y);
      float* own = b.uNext + (inside ? std::size_t{y} * b.w + x : 0);
      float* v = shape.sharedScratch ? scratch.data() + thread : own;
      tile::ratseg_strip_pixel(b, x, y, inside, v, shape.sharedScratch ? shape.threads : plane,
                               [&](unsigned i, float s) { total[i] += s; });
    }
  }
  for (unsigned i = 0; i < b.n; ++i) {
    b.partials[std::size_t{i} * b.blocks + b.firstBlock + block] = total[i];
  }
}

class HostStripKernels final : public StripKernels {
 public:
  void ratseg_strip_enter(float* u_bar, const float* u, float theta_bar,
                          std::size_t count) override {
    if (!admitHostLaunch("ratseg_strip_enter", flat(count))) return;
    parallelFor(count, count,
                [=](std::size_t k) { tile::ratseg_strip_enter(u_bar, u, theta_bar, k); });
  }

  void ratseg_strip_leave(float* u, float* u_bar, const float* fresh, const float* old,
                          float theta_bar, std::size_t count) override {
    if (!admitHostLaunch("ratseg_strip_leave", flat(count))) return;
    parallelFor(count, count, [=](std::size_t k) {
      tile::ratseg_strip_leave(u, u_bar, fresh, old, theta_bar, k);
    });
  }

  void ratseg_strip_edge(const StripShape&, cudaStream_t, const StripBand& b) override {
    if (!admitHostLaunch("ratseg_strip_edge", flat(std::size_t{b.w} * b.n))) return;
    for (unsigned i = 0; i < b.n; ++i) {
      for (unsigned x = 0; x < b.w; ++x) tile::ratseg_strip_edge(b, x, i);
    }
  }

  void ratseg_strip_sweep(const StripShape& shape, cudaStream_t, const StripBand& b,
                          const StripShares* shares, const StripFinish* finish) override {
    const unsigned blocks = stripBlocks(shape, b.w, b.rowEnd - b.rowBegin);
    const LaunchShape launch = {
        {blocks + (shares != nullptr ? 1 : 0), 1, 1}, {shape.threads, 1, 1}, shape.sharedBytes};
    if (!admitHostLaunch("ratseg_strip_sweep", launch)) return;
    if (shares != nullptr) takeSharesStep(*shares);
    const std::size_t work = std::size_t{b.w} * (b.rowEnd - b.rowBegin) * b.n;
    parallelFor(blocks, work, [&](std::size_t block) {
      const auto k = static_cast<unsigned>(block);
      if (shape.labels == 0) return tileBlock(shape, b, k, blocks);
      tile::withStripShape(
          shape, [&](auto labels, auto pixels) { stripBlock<labels(), pixels()>(shape, b, k); });
    });
    if (finish != nullptr) addUp(*finish);
  }

  void ratseg_strip_finish(cudaStream_t, const StripFinish& finish) override {
    if (admitHostLaunch("ratseg_strip_finish", {{1, 1, 1}, {256, 1, 1}, 0})) addUp(finish);
  }

  std::unique_ptr<StripReplay> record(cudaStream_t, const std::function<void()>&) override {
    return nullptr;
  }

 private:
  static LaunchShape flat(std::size_t count) {
    constexpr std::size_t kThreads = 256;
    return {{static_cast<unsigned>(ceilDiv(count, kThreads)), 1, 1}, {kThreads, 1, 1}, 0};
  }
};

const bool isBrought = [] {
  static HostStripKernels kernels;
  StripKernels::ofHost = &kernels;
  return true;
}();

}  // namespace

}  // namespace namespace_ratseg
