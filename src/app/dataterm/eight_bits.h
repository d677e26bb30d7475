#ifndef RATSEG_APP_DATATERM_EIGHT_BITS_H
#define RATSEG_APP_DATATERM_EIGHT_BITS_H

#include <string>
#include <vector>

#include "app/dataterm/input_picture.h"

namespace namespace_ratseg {

// Makes the 8-bit image of a raster whose values are finite, and says which values became black and
// white. Integers of up to 8 bits keep their values unless a range is given. Of more than three
// channels, or of two, the first three or the first one are taken. The raster's values are then
// scaled, black to 0 and white to 1, and keep what is beyond; channels that are not shown have
// ranges of their own. Throws InputError for a range that does not fit the channels; file is the
// picture's name.
void makeEightBits(const std::string& file, const std::vector<float>& range, Raster& raster,
                   InputPicture& picture);

// Applies a range, in units of 0 to 255, to an image that has 8 bits already.
void stretchImage(const std::string& file, const std::vector<float>& range, Image& image);

}  // namespace namespace_ratseg

#endif
