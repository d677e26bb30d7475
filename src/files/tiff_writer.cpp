#include "files/tiff_writer.h"

#include <cstring>

#include "files/file_error.h"
#include "files/memory_tiff.h"
#include "files/tiff_tags.h"

namespace namespace_ratseg {

namespace {

void putPalette(TIFF* tiff, const Palette& palette) {
  std::array<std::array<std::uint16_t, 256>, 3> maps = {};
  for (std::size_t k = 0; k < palette.size(); ++k) {
    for (std::size_t c = 0; c < 3; ++c) {
      maps[c][k] = static_cast<std::uint16_t>(palette[k][c] * 257);
    }
  }
  TIFFSetField(tiff, TIFFTAG_COLORMAP, maps[0].data(), maps[1].data(), maps[2].data());
}

void putForm(TIFF* tiff, std::size_t w, std::size_t h, int bits) {
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(w));
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(h));
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, bits == 8 ? PHOTOMETRIC_PALETTE : PHOTOMETRIC_MINISBLACK);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
}

bool putRows(TIFF* tiff, const int* labels, std::size_t w, std::size_t h, int bits) {
  std::vector<std::uint16_t> deep(w);
  std::vector<std::uint8_t> row(w);
  for (std::size_t y = 0; y < h; ++y) {
    for (std::size_t x = 0; x < w; ++x) {
      deep[x] = static_cast<std::uint16_t>(labels[y * w + x]);
      row[x] = static_cast<std::uint8_t>(labels[y * w + x]);
    }
    void* const bytes = bits == 8 ? static_cast<void*>(row.data()) : deep.data();
    if (TIFFWriteScanline(tiff, bytes, static_cast<std::uint32_t>(y), 0) < 0) return false;
  }
  return true;
}

}  // namespace

std::string tiffOfLabels(const int* labels, std::size_t w, std::size_t h, const Palette& palette,
                         const KeptTags& kept) {
  MemoryTiff file;
  const int bits = palette.empty() ? 16 : 8;
  putForm(file.get(), w, h, bits);
  if (bits == 8) putPalette(file.get(), palette);
  putTags(file.get(), kept);
  const bool ok = putRows(file.get(), labels, w, h, bits) && TIFFFlush(file.get()) != 0;
  file.close();
  if (!ok || !file.errors().empty()) throw FileError("cannot be made" + file.because());
  return std::move(file.bytes());
}

}  // namespace namespace_ratseg
