#ifndef RATSEG_EXAMPLES_MICROGRAPH_H
#define RATSEG_EXAMPLES_MICROGRAPH_H

#include <cstdint>
#include <vector>

namespace namespace_ratseg {

// A made-up micrograph of an alloy, with what is to be seen in it. Its phases overlap in grey
// level, the light is uneven and the sensor is noisy, as under a microscope. Pictures are
// row-major.
struct Micrograph {
  // The labels; the background is the last one.
  enum Phase : std::uint8_t { kLamellar, kIsland, kPore, kMatrix };
  static constexpr int kLabels = 4;

  int w = 0;
  int h = 0;
  std::vector<std::uint8_t> grey;       // the picture
  std::vector<std::uint8_t> truth;      // label of each pixel
  std::vector<std::uint8_t> scribbles;  // 0, or label + 1 on a few strokes per label

  // The same bytes for the same arguments on every machine. w and h are at least 64.
  static Micrograph draw(int w, int h, unsigned seed);
};

}  // namespace namespace_ratseg

#endif
