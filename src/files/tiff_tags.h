#ifndef RATSEG_FILES_TIFF_TAGS_H
#define RATSEG_FILES_TIFF_TAGS_H

#include <tiffio.h>

#include <string>

#include "files/raster.h"

namespace namespace_ratseg {

// Resolution, ImageJ's units and the place on earth of the current directory.
KeptTags keptTags(TIFF* tiff, const std::string& description);

// Puts them into a directory that is being written.
void putTags(TIFF* tiff, const KeptTags& tags);

}  // namespace namespace_ratseg

#endif
