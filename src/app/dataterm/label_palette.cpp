#include "app/dataterm/label_palette.h"

#include <algorithm>
#include <cmath>

namespace namespace_ratseg {

namespace {

// Well apart, also for most people who do not see red and green as two colours.
constexpr std::array<std::array<std::uint8_t, 3>, 8> kFirst = {{{0, 114, 178},
                                                                {230, 159, 0},
                                                                {0, 158, 115},
                                                                {213, 94, 0},
                                                                {86, 180, 233},
                                                                {204, 121, 167},
                                                                {240, 228, 66},
                                                                {90, 90, 90}}};

// Hues around the circle by the golden angle, in turns light and dark.
std::array<std::uint8_t, 3> further(std::size_t k) {
  constexpr double kGolden = 0.6180339887498949;
  const double hue = 6 * std::fmod(static_cast<double>(k) * kGolden, 1.0);
  const double value = 1 - 0.15 * static_cast<double>(k % 4);
  const double saturation = 1 - 0.2 * static_cast<double>(k / 4 % 3);
  std::array<std::uint8_t, 3> colour;
  const double offsets[] = {5, 3, 1};
  for (std::size_t c = 0; c < 3; ++c) {
    const double at = std::fmod(offsets[c] + hue, 6.0);
    const double part = std::clamp(std::min(at, 4 - at), 0.0, 1.0);
    colour[c] = static_cast<std::uint8_t>(std::lround(255 * value * (1 - saturation * part)));
  }
  return colour;
}

}  // namespace

Palette labelPalette(std::size_t count) {
  Palette palette;
  for (std::size_t k = 0; k < count; ++k) {
    palette.push_back(k < kFirst.size() ? kFirst[k] : further(k));
  }
  return palette;
}

}  // namespace namespace_ratseg
