#include "peers/total_variation.h"

#include <algorithm>
#include <cmath>

#include "device/host/host_launch.h"

namespace namespace_ratseg {

namespace {

const float kStep = 1.0f / std::sqrt(8.0f);

}  // namespace

TotalVariationLoop::TotalVariationLoop(std::size_t w, std::size_t h, std::size_t n,
                                       const std::vector<float>& costs, float lambda)
    : w_(w),
      h_(h),
      n_(n),
      lambda_(lambda),
      f_(costs),
      u_(costs),
      uBar_(costs),
      px_(costs.size()),
      py_(costs.size()) {}

// p becomes the point of the disc of radius lambda that is nearest to p + sigma grad uBar.
void TotalVariationLoop::dualRow(std::size_t y, const float* __restrict uBar, float* __restrict px,
                                 float* __restrict py) const {
  const float* row = uBar + y * w_;
  const float* below = y + 1 < h_ ? row + w_ : row;
  float* x0 = px + y * w_;
  float* y0 = py + y * w_;
  const std::size_t last = w_ - 1;
  const float lambda = lambda_, sigma = kStep;
  const float floor = std::max(lambda, 1e-30f);  // no 0 / 0
  for (std::size_t x = 0; x < last; ++x) {
    const float a = x0[x] + sigma * (row[x + 1] - row[x]);
    const float b = y0[x] + sigma * (below[x] - row[x]);
    const float shrink = lambda / std::max(floor, std::sqrt(a * a + b * b));
    x0[x] = a * shrink;
    y0[x] = b * shrink;
  }
  y0[last] = std::clamp(y0[last] + sigma * (below[last] - row[last]), -lambda, lambda);
}

// u becomes (u + tau (div p + f)) / (1 + tau), uBar twice that less the old u.
void TotalVariationLoop::primalRow(std::size_t y, const float* __restrict f,
                                   const float* __restrict px, const float* __restrict py,
                                   float* __restrict u, float* __restrict uBar) const {
  const std::size_t at = y * w_;
  const float* x0 = px + at;
  const float* y0 = py + at;
  const float* above = y > 0 ? y0 - w_ : y0;
  const float hasAbove = y > 0 ? 1.0f : 0.0f;
  const float tau = kStep, scale = 1.0f / (1.0f + kStep);
  const auto step = [&](std::size_t x, float left) {
    const float div = x0[x] - left + y0[x] - hasAbove * above[x];
    const float old = u[at + x];
    const float now = (old + tau * (div + f[at + x])) * scale;
    u[at + x] = now;
    uBar[at + x] = 2.0f * now - old;
  };
  step(0, 0.0f);
  for (std::size_t x = 1; x < w_; ++x) step(x, x0[x - 1]);
}

void TotalVariationLoop::iterate() {
  const std::size_t pixels = w_ * h_;
  constexpr std::size_t kWorkOfAnElement = 4;  // in elements of a plain loop
  for (std::size_t i = 0; i < n_; ++i) {
    const std::size_t at = i * pixels;
    parallelFor(h_, pixels * kWorkOfAnElement, [&](std::size_t y) {
      dualRow(y, uBar_.data() + at, px_.data() + at, py_.data() + at);
    });
    parallelFor(h_, pixels * kWorkOfAnElement, [&](std::size_t y) {
      primalRow(y, f_.data() + at, px_.data() + at, py_.data() + at, u_.data() + at,
                uBar_.data() + at);
    });
  }
}

}  // namespace namespace_ratseg
