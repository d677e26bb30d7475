#include "files/deep_png.h"

#include "files/file_error.h"
#include "util/pictures/png_reader.h"

namespace namespace_ratseg {

namespace {

constexpr int kGreyAlpha = 4, kColour = 2, kColourAlpha = 6;

float sampleAt(const std::uint8_t* row, std::size_t k, int bits) {
  return bits == 16 ? static_cast<float>(row[2 * k] << 8 | row[2 * k + 1])
                    : static_cast<float>(row[k]);
}

// The form of the picture, without pixels.
Raster rasterOf(const PngHeader& header) {
  const int type = header.colourType;
  const bool direct =
      type == PngHeader::kGrey || type == kColour || type == kGreyAlpha || type == kColourAlpha;
  if (!direct || (header.bits != 8 && header.bits != 16)) {
    throw FileError("is no PNG of 8 or 16 bits with direct colours");
  }
  Raster raster;
  raster.w = header.w;
  raster.h = header.h;
  raster.channels = type == kColour || type == kColourAlpha ? 3 : 1;
  raster.colours = raster.channels == 3 ? Raster::Colours::rgb : Raster::Colours::grey;
  raster.hasAlpha = type == kGreyAlpha || type == kColourAlpha;
  raster.samples = {SampleKind::unsignedInteger, header.bits};
  return raster;
}

}  // namespace

Raster readDeepPng(std::string_view file, const CheckRasterSize& check, bool alpha) {
  PngHeader header;
  if (!readPngHeader(file, header)) throw FileError("is no PNG");
  Raster raster = rasterOf(header);
  const bool takeAlpha = alpha && raster.hasAlpha;
  const std::size_t samples = raster.channels + (raster.hasAlpha ? 1 : 0);
  const float opaque = header.bits == 16 ? 65535 : 255;
  check(raster.w, raster.h, raster.channels + (takeAlpha ? 1 : 0));
  const PngRows read = readPngRows(file, [&](std::size_t y, const std::uint8_t* row) {
    if (raster.values.empty()) {
      raster.values.resize(raster.channels * raster.count());
      if (takeAlpha) raster.alpha.resize(raster.count());
    }
    for (std::size_t x = 0; x < raster.w; ++x) {
      const std::size_t p = y * raster.w + x;
      for (std::size_t c = 0; c < raster.channels; ++c) {
        raster.plane(c)[p] = sampleAt(row, x * samples + c, header.bits);
      }
      if (takeAlpha) {
        raster.alpha[p] = sampleAt(row, x * samples + raster.channels, header.bits) / opaque;
      }
    }
  });
  const Wholeness whole = wholenessOf(read, raster.h);
  if (!whole.error.empty()) throw FileError(whole.error);
  if (!whole.warning.empty()) raster.complaints.push_back(whole.warning);
  for (const std::string& line : read.warnings) raster.complaints.push_back(line);
  return raster;
}

}  // namespace namespace_ratseg
