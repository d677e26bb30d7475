#include "app/dataterm/scribble_problem.h"

#include <algorithm>

namespace namespace_ratseg {

std::vector<std::vector<RGB>> scribbleColours(const LabelPicture& scribbles, const RGB* image,
                                              std::size_t labels) {
  std::vector<std::vector<RGB>> colours(labels);
  for (std::size_t i = 0; i < scribbles.pixels.size(); ++i) {
    const std::size_t mark = scribbles.pixels[i];
    if (mark > 0) colours[mark - 1].push_back(image[i]);
  }
  return colours;
}

std::size_t countLabels(const LabelPicture& scribbles, const std::optional<LabelPicture>& truth) {
  const std::size_t marked = std::max(scribbles.highest(), scribbles.declared);
  return truth ? std::max(marked, truth->highest() + 1) : marked;
}

std::vector<double> shares(const LabelPicture& truth, std::size_t labels, bool ofImage) {
  const auto counts = truth.histogram();
  const std::size_t listed = ofImage ? labels : labels - 1;
  std::size_t whole = 0;
  for (std::size_t k = 0; k < listed; ++k) whole += counts[k];
  std::vector<double> result;
  if (whole == 0) return result;
  for (std::size_t k = 0; k < listed; ++k) {
    result.push_back(static_cast<double>(counts[k]) / static_cast<double>(whole));
  }
  return result;
}

}  // namespace namespace_ratseg
