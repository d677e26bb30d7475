#ifndef RATSEG_FILES_DEEP_PNG_H
#define RATSEG_FILES_DEEP_PNG_H

#include <string_view>

#include "files/raster.h"

namespace namespace_ratseg {

// A PNG of direct grey or colour values (no palette) of 8 or 16 bits, in full depth. With alpha,
// transparency is read too. Throws FileError.
Raster readDeepPng(std::string_view file, const CheckRasterSize& check, bool alpha = false);

}  // namespace namespace_ratseg

#endif
