#ifndef RATSEG_APP_HARD_COSTS_H
#define RATSEG_APP_HARD_COSTS_H

#include <cstddef>
#include <vector>

namespace namespace_ratseg {

// Records where a data term forbids labels (costs of FLT_MAX or more) and where it forces them
// (-FLT_MAX or less): a bit per pixel and label, and none where there are no such costs.
class HardCosts {
 public:
  // dataterm holds n planes of as many floats as there are pixels.
  HardCosts(const float* dataterm, std::size_t pixels, std::size_t n);

  // Warns of pixels whose label is forbidden, and of pixels with forced labels that have none of
  // these. labeling holds a label below n per pixel.
  void warnOfLabeling(const std::vector<int>& labeling) const;

 private:
  std::size_t pixels_;
  std::vector<bool> forbidden_;  // n planes of pixels, or empty
  std::vector<bool> forced_;
};

}  // namespace namespace_ratseg

#endif
