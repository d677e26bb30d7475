// A program that uses the installed solver's own header: a picture whose left half costs less with
// label 0 and whose right half costs less with label 1.

#include <cstddef>
#include <iostream>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "device/selection.h"
#include "util/fileio.h"

using namespace namespace_ratseg;

namespace {

bool segment(std::size_t w, std::size_t h, std::size_t n, float* rho, float* means, float* sigmas,
             float* labeling) {
  RatSeg solver;
  Params& par = solver.getParams();
  par.w = w;
  par.h = h;
  par.n = n;
  par.lambda = 2;
  par.mu = 500;
  par.eps = 10;
  par.Nsteps = 1000;
  par.outModulo = 1001;  // no progress reports
  if (!solver.alloc()) return false;
  solver.setRatios(means, sigmas, n - 1, nullptr, nullptr);
  solver.setDataterm(rho);
  solver.run();
  solver.getSolution(labeling);
  solver.free();
  return true;
}

}  // namespace

int main() {
  constexpr std::size_t kWidth = 20, kHeight = 6, kLabels = 3, kPixels = kWidth * kHeight;
  std::vector<float> rho(kLabels * kPixels, 100.0f), labeling(kLabels * kPixels);
  for (std::size_t k = 0; k < kPixels; ++k) {
    const bool left = k % kWidth < kWidth / 2;
    rho[k] = left ? 0.0f : 3.0f;
    rho[kPixels + k] = left ? 3.0f : 0.0f;
  }
  std::vector<float> means = {0.5f, 0.5f, 0.0f}, sigmas = {0.1f, 0.1f, 0.1f};
  chooseBackend(DeviceChoice::host, std::cerr);
  if (!segment(kWidth, kHeight, kLabels, rho.data(), means.data(), sigmas.data(),
               labeling.data())) {
    std::cerr << "segment() failed" << std::endl;
    return 1;
  }
  for (std::size_t k = 0; k < kPixels; ++k) {
    const std::size_t label = k % kWidth < kWidth / 2 ? 0 : 1;
    for (std::size_t i = 0; i < kLabels; ++i) {
      if (labeling[i * kPixels + k] == (i == label ? 1.0f : 0.0f)) continue;
      std::cerr << "pixel " << k << " should have label " << label << std::endl;
      return 1;
    }
  }
  return 0;
}
