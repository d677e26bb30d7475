#include "algorithms/rat_segments/alg/dataterm/dataterm_host.h"

#include <algorithm>
#include <cfloat>
#include <vector>

#include "algorithms/rat_segments/alg/dataterm/dataterm_kernels.h"
#include "algorithms/rat_segments/alg/dataterm/distinct_colours.h"
#include "device/host/host_launch.h"

namespace namespace_ratseg {

namespace {

// The distinct scribble colours of a label in CIELAB, one array per channel, padded as
// ScribbleColumns asks for.
struct ScribbleTable {
  std::vector<float> L, a, b, weight;

  ScribbleTable(const float4* scribbles, std::size_t scribblesNum) {
    const DistinctColours distinct(scribbles, scribblesNum);
    for (std::size_t k = 0; k < distinct.colours.size(); ++k) {
      const float4 lab = tile::labFromRgb(distinct.colours[k]);
      append(lab, static_cast<float>(distinct.count[k]));
    }
    const float4 last = {L.back(), a.back(), b.back(), 0.0f};
    while (L.size() % kScribbleLanes != 0) append(last, 0.0f);
  }

  ScribbleColumns columns() const {
    return {L.data(), a.data(), b.data(), weight.data(), L.size()};
  }

 private:
  void append(const float4& lab, float times) {
    L.push_back(lab.x);
    a.push_back(lab.y);
    b.push_back(lab.z);
    weight.push_back(times);
  }
};

// 1 / (2 sigma^2), at most FLT_MAX so that equal colours have the exponent 0 for any sigma.
float exponentScale(float sigma) { return std::min(1.0f / sigma / sigma / 2.0f, FLT_MAX); }

}  // namespace

void scribbleDatatermHost(float* out, const float4* image, std::size_t pixels,
                          const float4* scribbles, std::size_t scribblesNum, float sigma, float thr,
                          const DatatermLoops& loops) {
  if (scribblesNum == 0) {
    std::fill(out, out + pixels, thr);
    return;
  }
  const ScribbleTable table(scribbles, scribblesNum);
  const ScribbleColumns columns = table.columns();
  const float scale = exponentScale(sigma);
  const DistinctColours distinct(image, pixels);
  std::vector<float> cost(distinct.colours.size());
  parallelFor(cost.size(), cost.size() * columns.size, [&](std::size_t k) {
    thread_local std::vector<float> exponents;
    exponents.resize(columns.size);
    const float4 lab = tile::labFromRgb(distinct.colours[k]);
    const float minExponent =
        loops.exponents(columns, lab.x, lab.y, lab.z, scale, exponents.data());
    if (minExponent >= thr) {  // the mean is at most exp(-minExponent), so the cap holds
      cost[k] = thr;
      return;
    }
    const float sum = loops.weightedSum(columns, exponents.data(), minExponent);
    cost[k] = tile::scribbleCost(minExponent, sum, scribblesNum, thr);
  });
  for (std::size_t k = 0; k < pixels; ++k) out[k] = cost[distinct.index[k]];
}

}  // namespace namespace_ratseg
