#ifndef RATSEG_UTIL_RGB_H
#define RATSEG_UTIL_RGB_H

#include "device/types.h"

namespace namespace_ratseg {

// A colour pixel: x, y, z are red, green and blue, 0 to 1; w is 1 where this program writes a pixel
// and ignored where it reads one. A colour image is a row-major array of w * h pixels, pixel (x, y)
// at y * w + x.
using RGB = float4;

}  // namespace namespace_ratseg

#endif
