#include "app/dataterm/forest_costs.h"

#include <algorithm>
#include <vector>

#include "device/host/host_launch.h"

namespace namespace_ratseg {

namespace {

// Pixels whose probabilities are held at a time.
constexpr std::size_t kPiece = std::size_t{1} << 18;

}  // namespace

void addForestCosts(const Learned& model, PictureFeatures& features, std::size_t labels,
                    WorkLine& line, float* rho) {
  const std::size_t classes = model.labels.size(), pixels = features.pixels();
  const float mix = model.mix;
  for (std::size_t k = 0; k < labels; ++k) {
    const bool isKnown = std::binary_search(model.labels.begin(), model.labels.end(), k);
    if (!isKnown) std::fill_n(rho + k * pixels, pixels, model.calibration.most);
  }
  std::vector<float> probabilities(std::min(kPiece, pixels) * classes);
  std::size_t done = 0;
  features.step = [&] {
    ++done;
    line.show("features and costs",
              static_cast<double>(done) / static_cast<double>(features.steps()));
  };
  for (std::size_t number = 0; number < features.blocks(); ++number) {
    const PictureFeatures::Block block = features.block(number);
    const std::size_t begin = block.first * features.w();
    const std::size_t size = (block.last - block.first) * features.w();
    for (std::size_t at = 0; at < size; at += kPiece) {
      const std::size_t count = std::min(kPiece, size - at);
      model.forest.probabilities(block.values + at, size, count, probabilities.data());
      parallelFor(count, count * classes * 20, [&](std::size_t p) {
        float* own = &probabilities[p * classes];
        model.calibration.costs(own, classes, own);
        for (std::size_t c = 0; c < classes; ++c) {
          float& cost = rho[model.labels[c] * pixels + begin + at + p];
          cost = mix >= 1 ? own[c] : mix * own[c] + (1 - mix) * cost;
        }
      });
    }
  }
  features.step = {};
}

}  // namespace namespace_ratseg
