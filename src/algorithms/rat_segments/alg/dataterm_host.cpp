#include "algorithms/rat_segments/alg/dataterm_host.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <vector>

#include "algorithms/rat_segments/alg/dataterm_kernels.h"
#include "algorithms/rat_segments/alg/distinct_colours.h"
#include "device/host/host_launch.h"

namespace namespace_ratseg {

namespace {

constexpr std::size_t kLanes = 16;

// exp(x) for x <= 0 within 2e-7 relative, in a form that compilers vectorise; below -87 it stays at
// exp(-87).
inline float expOfNegative(float x) {
  x = x < -87.0f ? -87.0f : x;
  constexpr float roundingShift = 12582912.0f;  // 1.5 * 2^23
  const float shifted = x * 1.44269504f + roundingShift;
  const float n = shifted - roundingShift;
  const float r = (x - n * 0.693359375f) + n * 2.12194440e-4f;
  float poly = 1.9875691500e-4f;
  poly = poly * r + 1.3981999507e-3f;
  poly = poly * r + 8.3334519073e-3f;
  poly = poly * r + 4.1665795894e-2f;
  poly = poly * r + 1.6666665459e-1f;
  poly = poly * r + 5.0000001201e-1f;
  poly = poly * r * r + r + 1.0f;
  const auto exponent = static_cast<std::int32_t>(n) << 23;
  return std::bit_cast<float>(std::bit_cast<std::int32_t>(poly) + exponent);
}

// The distinct scribble colours of a label in CIELAB, one array per channel, padded to whole tiles
// with colours of weight 0.
struct ScribbleTable {
  std::vector<float> L, a, b, weight;

  ScribbleTable(const float4* scribbles, std::size_t scribblesNum) {
    const DistinctColours distinct(scribbles, scribblesNum);
    for (std::size_t k = 0; k < distinct.colours.size(); ++k) {
      const float4 lab = tile::labFromRgb(distinct.colours[k]);
      append(lab, static_cast<float>(distinct.count[k]));
    }
    const float4 last = {L.back(), a.back(), b.back(), 0.0f};
    while (L.size() % kLanes != 0) append(last, 0.0f);
  }

  std::size_t size() const { return L.size(); }

 private:
  void append(const float4& lab, float times) {
    L.push_back(lab.x);
    a.push_back(lab.y);
    b.push_back(lab.z);
    weight.push_back(times);
  }
};

// exponents[j] = D_j^2 / sigma^2 / 2 for every scribble; returns the least.
float computeExponents(const float4& lab, const ScribbleTable& table, float sigma,
                       float* exponents) {
  float least[kLanes];
  std::fill(least, least + kLanes, std::numeric_limits<float>::infinity());
  for (std::size_t j = 0; j < table.size(); j += kLanes) {
    for (std::size_t l = 0; l < kLanes; ++l) {
      const float4 scribble = {table.L[j + l], table.a[j + l], table.b[j + l], 0.0f};
      const float e = tile::scribbleExponent(lab, scribble, sigma);
      exponents[j + l] = e;
      least[l] = e < least[l] ? e : least[l];
    }
  }
  return *std::min_element(least, least + kLanes);
}

// sum_j weight_j exp(least - exponents_j)
float weightedSum(const float* exponents, const ScribbleTable& table, float least) {
  float sum[kLanes] = {};
  for (std::size_t j = 0; j < table.size(); j += kLanes) {
    for (std::size_t l = 0; l < kLanes; ++l) {
      sum[l] += table.weight[j + l] * expOfNegative(least - exponents[j + l]);
    }
  }
  double total = 0.0;
  for (float s : sum) total += s;
  return static_cast<float>(total);
}

}  // namespace

void scribbleDatatermHost(float* out, const float4* image, std::size_t pixels,
                          const float4* scribbles, std::size_t scribblesNum, float sigma,
                          float thr) {
  if (scribblesNum == 0) {
    std::fill(out, out + pixels, thr);
    return;
  }
  const ScribbleTable table(scribbles, scribblesNum);
  const DistinctColours distinct(image, pixels);
  std::vector<float> cost(distinct.colours.size());
  parallelFor(cost.size(), cost.size() * table.size(), [&](std::size_t k) {
    thread_local std::vector<float> exponents;
    exponents.resize(table.size());
    const float4 lab = tile::labFromRgb(distinct.colours[k]);
    const float least = computeExponents(lab, table, sigma, exponents.data());
    if (least >= thr) {  // the mean is at most exp(-least), so the cap holds
      cost[k] = thr;
      return;
    }
    const float sum = weightedSum(exponents.data(), table, least);
    cost[k] = tile::scribbleCost(least, sum, scribblesNum, thr);
  });
  for (std::size_t k = 0; k < pixels; ++k) out[k] = cost[distinct.index[k]];
}

}  // namespace namespace_ratseg
