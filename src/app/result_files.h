#ifndef RATSEG_APP_RESULT_FILES_H
#define RATSEG_APP_RESULT_FILES_H

// From the solution to the result files. Per-pixel arrays are row-major, w * h elements; colours
// have channels in [0, 1].

#include <cstddef>
#include <string>
#include <vector>

#include "util/rgb.h"

namespace namespace_ratseg {

// One colour per label, n >= 1: white for the background, which is label n-1, and for the
// foreground labels saturated hues in equal steps around the hue circle, from green on.
std::vector<RGB> labelColours(std::size_t n);

// The label of the greatest value at each pixel; the lowest one on ties, and 0 where all values are
// NaN. solution holds n planes of pixels floats.
std::vector<int> hardLabeling(const float* solution, std::size_t pixels, std::size_t n);

// The colour of each pixel's label.
std::vector<RGB> colourLabeling(const std::vector<int>& labeling, const std::vector<RGB>& colours);

// Blends each colour with the image's pixel below it: 0.4 image + 0.6 colour.
void blendOverImage(std::vector<RGB>& colours, const RGB* image);

// The data that the result files show. Points into the caller's arrays.
struct Results {
  int w, h;
  std::size_t n;                     // labels
  const std::vector<int>& labeling;  // w * h labels, 0 to n-1
  const RGB* image;                  // w * h pixels, what was segmented
  const float* weight;               // w * h, the regulariser's weight
};

// Writes the result files, which take their places together when all are made. Says of each on
// standard output whether it was saved; one that cannot be written does not keep the others from
// being written.
void writeResultFiles(const std::string& prefix, const Results& results);

}  // namespace namespace_ratseg

#endif
