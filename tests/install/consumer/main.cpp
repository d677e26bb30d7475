// A program that uses the installed library: a picture whose left half costs less with label 0 and
// whose right half costs less with label 1.

#include <cstddef>
#include <iostream>
#include <vector>

#include "device/selection.h"
#include "util/fileio.h"

bool segment(std::size_t w, std::size_t h, std::size_t n, float* rho, float* means, float* sigmas,
             float* labeling);

int main() {
  constexpr std::size_t kWidth = 20, kHeight = 6, kLabels = 3, kPixels = kWidth * kHeight;
  std::vector<float> rho(kLabels * kPixels, 100.0f), labeling(kLabels * kPixels);
  for (std::size_t k = 0; k < kPixels; ++k) {
    const bool left = k % kWidth < kWidth / 2;
    rho[k] = left ? 0.0f : 3.0f;
    rho[kPixels + k] = left ? 3.0f : 0.0f;
  }
  std::vector<float> means = {0.5f, 0.5f, 0.0f}, sigmas = {0.1f, 0.1f, 0.1f};
  namespace_ratseg::chooseBackend(namespace_ratseg::DeviceChoice::host, std::cerr);
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
