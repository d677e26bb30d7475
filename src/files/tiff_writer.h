#ifndef RATSEG_FILES_TIFF_WRITER_H
#define RATSEG_FILES_TIFF_WRITER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "files/raster.h"

namespace namespace_ratseg {

// A colour for each label number.
using Palette = std::vector<std::array<std::uint8_t, 3>>;

// The bytes of a TIFF file of w * h labels, with their tags: 8-bit numbers of the palette's colours
// (at most 256), or without a palette 16-bit grey values. Throws FileError where it cannot be made.
std::string tiffOfLabels(const int* labels, std::size_t w, std::size_t h, const Palette& palette,
                         const KeptTags& kept);

}  // namespace namespace_ratseg

#endif
