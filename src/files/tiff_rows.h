#ifndef RATSEG_FILES_TIFF_ROWS_H
#define RATSEG_FILES_TIFF_ROWS_H

#include "files/memory_tiff.h"
#include "files/raster.h"
#include "files/tiff_reader.h"

namespace namespace_ratseg {

// The pixels of libtiff's current directory. They throw FileError where some are missing.

// The samples as they are, one plane a channel; with alpha the transparency as well.
void readSamples(MemoryTiff& file, const TiffPage& page, bool alpha, Raster& raster);

// Red, green and blue as libtiff makes them, from 0 to 255.
void readConvertedColours(MemoryTiff& file, Raster& raster);

// Turns the one plane of numbers into colours from 0 to 255.
void takeColoursOfPalette(MemoryTiff& file, const TiffPage& page, Raster& raster);

}  // namespace namespace_ratseg

#endif
