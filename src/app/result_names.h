#ifndef RATSEG_APP_RESULT_NAMES_H
#define RATSEG_APP_RESULT_NAMES_H

#include <array>
#include <string>

namespace namespace_ratseg {

// The files that ratseg writes for a prefix, in their order: labeling, its colours, these over the
// image, the regulariser's weight.
inline std::array<std::string, 4> resultFiles(const std::string& prefix) {
  return {prefix + "_result_labeling.gz", prefix + "_result_labeling.png",
          prefix + "_result_labeling_overlaid.png", prefix + "_regularizer_weight.png"};
}

}  // namespace namespace_ratseg

#endif
