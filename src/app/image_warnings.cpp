#include "app/image_warnings.h"

#include <algorithm>
#include <cmath>

namespace namespace_ratseg {

namespace {

// The levels of 256 up to the greatest value of all channels.
int usedLevels(const RGB* pixels, std::size_t count) {
  float maxValue = 0;
  for (std::size_t k = 0; k < count; ++k) {
    maxValue = std::max({maxValue, pixels[k].x, pixels[k].y, pixels[k].z});
  }
  return static_cast<int>(std::lround(maxValue * 255)) + 1;
}

}  // namespace

std::string usedAsStored() {
  return "asks to be shown turned or mirrored (EXIF orientation); its pixels are used as stored";
}

std::vector<std::string> imageWarnings(const Picture& picture, const RGB* pixels, std::size_t count,
                                       bool turned) {
  std::vector<std::string> lines;
  if (picture.asksToBeTurned() && !turned) lines.push_back(usedAsStored());
  constexpr int kFew = 64;
  const int levels = usedLevels(pixels, count);
  if (levels <= kFew && picture.has16Bits()) {
    lines.push_back("has 16 bits per channel, but only small values: " + std::to_string(levels) +
                    (levels == 1 ? " level" : " levels") +
                    " of 256 are left in 8 bits; stretch its values to 65535 first");
  }
  return lines;
}

std::string readWithComplaint(const std::string& complaint) {
  return "was read with a complaint: " + complaint;
}

}  // namespace namespace_ratseg
