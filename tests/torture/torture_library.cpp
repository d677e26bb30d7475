// The solver as a program uses it that has README's lines, where calls fail: status 0 when the
// labeling is right, 3 when a call says that it failed, 4 when one throws.

#include <cstddef>
#include <exception>
#include <iostream>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"

namespace {

constexpr std::size_t kW = 24, kH = 16, kLabels = 3;

// The label whose costs are low.
std::size_t wished(std::size_t x) { return x * kLabels / kW; }

bool segment(std::vector<float>& labeling) {
  const std::size_t pixels = kW * kH;
  std::vector<float> rho(kLabels * pixels);
  for (std::size_t k = 0; k < rho.size(); ++k) {
    rho[k] = k / pixels == wished(k % kW) ? 0.0f : 10.0f;
  }
  std::vector<float> means = {0.5f, 0.5f, 0.0f};
  std::vector<float> sigmas = {0.1f, 0.1f, 0.0f};
  namespace_ratseg::RatSeg solver;
  namespace_ratseg::Params& par = solver.getParams();
  par.w = kW;
  par.h = kH;
  par.n = kLabels;
  par.lambda = 0.5f;
  par.mu = 1;
  par.eps = 10;
  par.Nsteps = 20;
  par.outModulo = 21;
  if (!solver.alloc()) return false;
  solver.setRatios(means.data(), sigmas.data(), kLabels - 1, nullptr, nullptr);
  solver.setDataterm(rho.data());
  solver.run();
  solver.getSolution(labeling.data());
  solver.free();
  return true;
}

}  // namespace

int main() {
  try {
    std::vector<float> labeling(kLabels * kW * kH);
    if (!segment(labeling)) return 3;
    for (std::size_t k = 0; k < labeling.size(); ++k) {
      const float expected = k / (kW * kH) == wished(k % kW) ? 1.0f : 0.0f;
      if (labeling[k] != expected) return 5;
    }
    return 0;
  } catch (const std::exception& e) {
    std::cerr << "thrown: " << e.what() << std::endl;
    return 4;
  }
}
