#ifndef RATSEG_APP_INPUTS_H
#define RATSEG_APP_INPUTS_H

// The image, the data term and the edge weight of a run. Failures end the process with status 1.

#include <cstddef>
#include <memory>
#include <string>

#include "app/load_picture.h"

namespace namespace_ratseg {

// Loads an image of any format that Qt reads and says so on standard output.
Image loadImage(const std::string& file, const PictureLimits& limits);

// Loads the data term of n labels for the image, a packed array of n planes of w * h floats, and
// says so on standard output. NaN in it is an error; infinite values are not.
std::unique_ptr<float[]> loadDataterm(const std::string& file, const Image& image, std::size_t n);

// The weight of the length term, w * h floats: exp(-gamma |grad image|), with a gamma from the
// image's mean gradient where the given one is negative; 1 everywhere for a gamma of 0.
std::unique_ptr<float[]> edgeWeight(const Image& image, float gamma);

}  // namespace namespace_ratseg

#endif
