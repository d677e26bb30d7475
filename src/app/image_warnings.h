#ifndef RATSEG_APP_IMAGE_WARNINGS_H
#define RATSEG_APP_IMAGE_WARNINGS_H

#include <cstddef>
#include <string>
#include <vector>

#include "util/pictures/picture.h"
#include "util/rgb.h"

namespace namespace_ratseg {

// Warnings about properties of a loaded image that may surprise its user: a line each, without the
// file's name in front. pixels are its colours, from 0 to 1.
//   - It asks to be shown turned or mirrored, and was not turned.
//   - It has 16 bits per channel, of which so small values are used that few levels are left.
std::vector<std::string> imageWarnings(const Picture& picture, const RGB* pixels, std::size_t count,
                                       bool turned = false);

// The first of these lines.
std::string usedAsStored();

// A decoder's complaint as a line of this kind.
std::string readWithComplaint(const std::string& complaint);

}  // namespace namespace_ratseg

#endif
