#include "app/dataterm/forbidden.h"

#include <string>

#include "app/dataterm/input_error.h"
#include "app/dataterm/label_picture.h"
#include "app/messages.h"

namespace namespace_ratseg {

namespace {

LabelPicture loadMask(const std::string& file, const Image& image) {
  const auto w = static_cast<std::size_t>(image.w), h = static_cast<std::size_t>(image.h);
  const auto checkSize = [&](std::size_t ownW, std::size_t ownH) {
    if (ownW == w && ownH == h) return;
    throw InputError(file, sizeText(w, h) + " as in the image", sizeText(ownW, ownH));
  };
  return LabelPicture::load(file, {warnerOf(file), checkSize});
}

std::string countText(std::size_t count, std::size_t all) {
  return std::to_string(count) + " of " + std::to_string(all) + " pixels";
}

}  // namespace

void forbidLabels(const DatatermOptions& options, const Image& image, std::size_t labels,
                  float tooDear, std::vector<float>& rho) {
  for (const auto& [label, file] : options.model.forbidden) {
    if (label >= labels) {
      throw InputError("-forbid " + std::to_string(label),
                       "a label from 0 to " + std::to_string(labels - 1), std::to_string(label));
    }
    const LabelPicture mask = loadMask(file, image);
    std::size_t count = 0;
    for (std::size_t p = 0; p < mask.pixels.size(); ++p) {
      if (mask.pixels[p] == 0) continue;
      rho[label * mask.pixels.size() + p] = tooDear;
      ++count;
    }
    note("label " + std::to_string(label) + " is forbidden at " +
         countText(count, mask.pixels.size()) + " by " + file);
  }
}

void tellForbidden(const DatatermOptions& options, const Image& image,
                   const std::vector<int>& labeling) {
  for (const auto& [label, file] : options.model.forbidden) {
    const LabelPicture mask = loadMask(file, image);
    std::size_t forbidden = 0, taken = 0;
    for (std::size_t p = 0; p < mask.pixels.size(); ++p) {
      if (mask.pixels[p] == 0) continue;
      ++forbidden;
      if (labeling[p] == static_cast<int>(label)) ++taken;
    }
    const std::string line = "label " + std::to_string(label) + " was taken at " +
                             countText(taken, forbidden) + " where " + file + " forbids it";
    taken > 0 ? warn(line) : note(line);
  }
}

}  // namespace namespace_ratseg
