#include "app/dataterm/smoothed_marks.h"

#include <algorithm>
#include <array>
#include <vector>

namespace namespace_ratseg {

namespace {

// Whether a marked pixel has an unmarked or lower neighbour and a higher one.
bool isBetween(const LabelPicture& marks, std::size_t x, std::size_t y) {
  const std::uint8_t own = marks.pixels[y * marks.w + x];
  bool lower = false, higher = false;
  for (std::size_t j = y > 0 ? y - 1 : 0; j <= std::min(y + 1, marks.h - 1); ++j) {
    for (std::size_t i = x > 0 ? x - 1 : 0; i <= std::min(x + 1, marks.w - 1); ++i) {
      const std::uint8_t other = marks.pixels[j * marks.w + i];
      lower = lower || other < own;
      higher = higher || other > own;
    }
  }
  return lower && higher;
}

}  // namespace

std::size_t leaveOutSmoothed(LabelPicture& marks) {
  // Pictures that mark nearly everything are no strokes.
  const auto counts = marks.histogram();
  if (counts[0] * 2 < marks.pixels.size()) return 0;
  std::vector<std::size_t> between;
  std::array<std::size_t, 256> found = {};
  for (std::size_t p = 0; p < marks.pixels.size(); ++p) {
    if (marks.pixels[p] == 0 || !isBetween(marks, p % marks.w, p / marks.w)) continue;
    between.push_back(p);
    ++found[marks.pixels[p]];
  }
  constexpr std::size_t kFew = 16, kPart = 8;
  bool smoothed = false;
  for (std::size_t k = 1; k < found.size(); ++k) {
    smoothed = smoothed || (found[k] >= kFew && kPart * found[k] > counts[k]);
  }
  if (!smoothed) return 0;
  for (std::size_t p : between) marks.pixels[p] = 0;
  return between.size();
}

}  // namespace namespace_ratseg
