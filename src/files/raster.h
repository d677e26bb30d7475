#ifndef RATSEG_FILES_RASTER_H
#define RATSEG_FILES_RASTER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "files/samples.h"

namespace namespace_ratseg {

// What a file made from a picture should keep of it: where and how large it is.
struct KeptTags {
  // A tag of a TIFF file; values are its elements in the machine's order of bytes.
  struct Tag {
    std::uint32_t number = 0;
    int type = 0;  // libtiff's TIFFDataType
    std::uint32_t count = 0;
    std::string values;
  };
  float xResolution = 0;  // pixels per unit; 0: not known
  float yResolution = 0;
  int resolutionUnit = 2;  // as in TIFF: 1 none, 2 inch, 3 centimetre
  std::string imageJ;      // the lines "unit=..." and so on of ImageJ's description
  std::vector<Tag> geo;    // GeoTIFF's
};

// A picture of any depth and any number of channels. Transparency is not one of them.
struct Raster {
  enum class Colours {
    grey,  // one channel
    rgb,   // red, green, blue
    other  // any number of channels of any meaning
  };
  std::size_t w = 0;
  std::size_t h = 0;
  std::size_t channels = 0;
  std::vector<float> values;  // one plane a channel, row-major, in the file's own units
  Colours colours = Colours::grey;
  bool hasAlpha = false;                // the file has transparency
  std::vector<float> alpha;             // where it was asked for: a plane from 0 to 1
  SampleType samples;                   // in the file
  std::size_t page = 1;                 // which one of
  std::size_t pages = 1;                // so many
  int orientation = 1;                  // as in EXIF: how it asks to be shown (turn.h)
  std::vector<std::string> complaints;  // of the library that read it, a line each
  KeptTags kept;

  std::size_t count() const { return w * h; }
  float* plane(std::size_t channel) { return values.data() + channel * count(); }
  const float* plane(std::size_t channel) const { return values.data() + channel * count(); }
};

// Called before memory is taken for a picture of w x h pixels and so many channels; throws where
// that is too much.
using CheckRasterSize = std::function<void(std::size_t w, std::size_t h, std::size_t channels)>;

}  // namespace namespace_ratseg

#endif
