#ifndef RATSEG_BENCH_WAVE_PICTURE_H
#define RATSEG_BENCH_WAVE_PICTURE_H

// A picture for benchmarks: smooth regions of n grey levels under noise, and the cost of every
// label at every pixel. A solver spends most of its time on it as on real pictures: nearly every
// pixel is between one or two labels.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace namespace_ratseg {

inline float greyLevel(std::size_t label, std::size_t n) {
  return (static_cast<float>(label) + 0.5f) / static_cast<float>(n);
}

// Standard deviation of the noise: two labels' levels are 2.5 of it apart.
inline float greyNoise(std::size_t n) { return 0.4f / static_cast<float>(n); }

// w x h grey values in [0, 1], row by row. The regions are level sets of a sum of waves.
inline std::vector<float> drawWavePicture(std::size_t w, std::size_t h, std::size_t n) {
  const auto wave = [](std::size_t x, std::size_t y) {
    const float u = static_cast<float>(x) / 97.0f;
    const float v = static_cast<float>(y) / 131.0f;
    const float sum = std::sin(u) + std::sin(v) + std::sin(0.7f * u + 1.3f * v);
    return std::clamp(sum / 6.0f + 0.5f, 0.0f, 0.999f);
  };
  std::mt19937 generator(1);
  std::normal_distribution<float> noise(0.0f, greyNoise(n));
  std::vector<float> grey(w * h);
  for (std::size_t y = 0; y < h; ++y) {
    for (std::size_t x = 0; x < w; ++x) {
      const auto label = static_cast<std::size_t>(wave(x, y) * static_cast<float>(n));
      grey[y * w + x] = std::clamp(greyLevel(label, n) + noise(generator), 0.0f, 1.0f);
    }
  }
  return grey;
}

// n planes of costs: half the squared distance to the label's level, in standard deviations.
inline std::vector<float> wavePictureCosts(const std::vector<float>& grey, std::size_t n) {
  std::vector<float> rho;
  rho.reserve(grey.size() * n);
  for (std::size_t i = 0; i < n; ++i) {
    for (const float g : grey) {
      const float distance = (g - greyLevel(i, n)) / greyNoise(n);
      rho.push_back(0.5f * distance * distance);
    }
  }
  return rho;
}

}  // namespace namespace_ratseg

#endif
