#ifndef RATSEG_MODELS_STROKES_H
#define RATSEG_MODELS_STROKES_H

// Marks of a picture as strokes, which can be held out to see what a model makes of them.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace namespace_ratseg {

// A picture of w * h marks, row by row: 0 where nothing is marked, k + 1 where label k is.
struct Marks {
  std::size_t w = 0;
  std::size_t h = 0;
  const std::uint8_t* values = nullptr;
};

// Pixels of one label that touch each other, also at corners.
struct Stroke {
  std::size_t label = 0;
  std::vector<std::size_t> pixels;  // y * w + x, along the stroke from one of its ends
};

// All strokes, in the order of their first pixels.
std::vector<Stroke> strokesOf(const Marks& marks);

// Marked pixels to learn from.
struct Sample {
  std::size_t pixel = 0;
  std::uint32_t label = 0;
  std::uint32_t fold = 0;    // the part of the strokes that it is held out with, or kNeverHeldOut
  std::uint32_t stroke = 0;  // the piece that it is of
};
inline constexpr std::uint32_t kNeverHeldOut = 0xFFFFFFFFu;

// At most perLabel pixels of each label, evenly taken from its strokes. Whole strokes share a fold;
// where a label has fewer strokes than there are folds, the longest are cut into pieces. Labels
// with a single pixel are never held out. Sorted by pixel.
std::vector<Sample> samplesOf(const std::vector<Stroke>& strokes, std::size_t perLabel,
                              std::size_t folds);

}  // namespace namespace_ratseg

#endif
