#ifndef RATSEG_MODELS_FILTER_BANK_H
#define RATSEG_MODELS_FILTER_BANK_H

// What a pixel's surroundings look like, as numbers. docs/models.md says which filters there are.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "models/channels.h"

namespace namespace_ratseg {

// The features of a picture: of grey its value, of colour CIELAB, otherwise the channels as they
// are; then for each of those planes and each scale the filters of kFilters. Borders are mirrored
// about the outermost pixels. Values that are not finite count as 0, and none as more than 1e9.
class FilterBank {
 public:
  static constexpr double kScales[] = {0.7, 1.4, 2.8, 5.6, 11.2, 16};
  static constexpr std::size_t kScaleCount = std::size(kScales);
  static constexpr std::size_t kFilterCount = 7;

  // The picture's pixels must stay where they are.
  explicit FilterBank(const Channels& picture);

  static std::size_t featureCount(std::size_t planes) {
    return planes * (1 + kScaleCount * kFilterCount);
  }
  std::size_t featureCount() const { return featureCount(planes_); }

  // "plane 0, hessian 1, scale 5.6".
  static std::string featureName(std::size_t planes, std::size_t feature);

  // Rows whose features fit into so many bytes, at least 1 and at most all.
  std::size_t rowsWithin(std::size_t bytes) const;

  // Writes the features of rows first to last - 1: feature f of pixel (x, y) is
  // out[(f * (last - first) + y - first) * w + x]. They are the same however a picture is cut into
  // rows, and for any number of threads. Calls step after each of steps() parts of the work.
  void compute(std::size_t first, std::size_t last, float* out,
               const std::function<void()>& step = {}) const;
  std::size_t steps() const { return planes_ * kScaleCount; }

 private:
  struct Kernels {
    std::vector<float> order[3];  // to be correlated with
    std::vector<float> outer;     // of the structure tensor's window
    std::size_t radius(std::size_t k) const { return order[k].size() / 2; }
    std::size_t outerRadius() const { return outer.size() / 2; }
    std::size_t reach() const;  // of the widest filter
  };
  struct Rows;  // rows of a plane, from any row of the picture on

  Rows planeRows(std::size_t plane, std::size_t first, std::size_t last) const;
  void computeScale(const Kernels& kernels, const Rows& plane, std::size_t first, std::size_t last,
                    float* out) const;

  Channels picture_;
  std::size_t planes_;
  std::vector<Kernels> kernels_;
};

}  // namespace namespace_ratseg

#endif
