#ifndef RATSEG_EXAMPLES_STROKES_H
#define RATSEG_EXAMPLES_STROKES_H

#include <cstdint>
#include <vector>

#include "random_field.h"

namespace namespace_ratseg {

// How somebody marks one label: a number of slightly bent pen strokes inside its regions.
struct StrokeStyle {
  int strokes = 4;
  int length = 60;    // of a stroke, in pixels, where there is room
  int shortest = 12;  // strokes shorter than this are not drawn
  int margin = 3;     // distance that the pen keeps from other labels
};

// Draws strokes for a label into scribbles (label + 1 where the pen was). truth and scribbles are
// w * h numbers, row-major. Draws fewer strokes where no more find room.
void drawStrokes(std::vector<std::uint8_t>& scribbles, const std::vector<std::uint8_t>& truth,
                 int w, int h, std::uint8_t label, const StrokeStyle& style, Random& random);

}  // namespace namespace_ratseg

#endif
