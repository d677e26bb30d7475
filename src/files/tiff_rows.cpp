#include "files/tiff_rows.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "files/file_error.h"

namespace namespace_ratseg {

namespace {

// Where samples go: to the plane of their channel, or to the transparency.
class Planes {
 public:
  Planes(const TiffPage& page, bool alpha, Raster& raster)
      : page_(page), alpha_(alpha && page.alphaSample >= 0), raster_(raster) {}

  // Whether anybody wants the sample.
  bool wants(std::size_t sample) const { return alpha_ || !isAlpha(sample); }

  // Takes count pixels of a row, with `together` samples each, of which the first one is `sample`.
  void take(std::size_t x, std::size_t y, std::size_t count, std::size_t sample,
            std::size_t together, const std::uint8_t* bytes) {
    makeRoom();
    row_.resize(count * together);
    toFloats(page_.samples, bytes, row_.size(), row_.data());
    for (std::size_t s = 0; s < together; ++s) {
      if (!wants(sample + s)) continue;
      float* const to = planeOf(sample + s) + y * raster_.w + x;
      for (std::size_t k = 0; k < count; ++k) to[k] = row_[k * together + s];
    }
  }

  // Transparency from 0 to 1.
  void finish() {
    if (!alpha_ || page_.samples.kind == SampleKind::floating) return;
    const auto opaque = static_cast<float>(std::ldexp(1.0, page_.samples.bits) - 1);
    for (float& value : raster_.alpha) value /= opaque;
  }

 private:
  bool isAlpha(std::size_t sample) const {
    return page_.alphaSample >= 0 && sample == static_cast<std::size_t>(page_.alphaSample);
  }

  // Only once there are pixels: a few bytes can promise any number.
  void makeRoom() {
    if (!raster_.values.empty()) return;
    raster_.values.resize(page_.channels * raster_.count());
    if (alpha_) raster_.alpha.resize(raster_.count());
  }

  float* planeOf(std::size_t sample) {
    if (isAlpha(sample)) return raster_.alpha.data();
    const bool behind =
        page_.alphaSample >= 0 && sample > static_cast<std::size_t>(page_.alphaSample);
    return raster_.plane(sample - (behind ? 1 : 0));
  }

  const TiffPage& page_;
  const bool alpha_;
  Raster& raster_;
  std::vector<float> row_;
};

[[noreturn]] void failAt(const MemoryTiff& file, std::size_t row, const Raster& raster) {
  throw FileError("is damaged or ends early: " + std::to_string(row) + " of " +
                  std::to_string(raster.h) + " rows are there" + file.because());
}

void readStrips(MemoryTiff& file, const TiffPage& page, Planes& planes, const Raster& raster) {
  const std::size_t together = page.separate ? 1 : page.samplesPerPixel;
  const auto stored = static_cast<std::size_t>(TIFFScanlineSize(file.get()));
  if (stored < sampleBytes(page.samples, raster.w * together)) failAt(file, 0, raster);
  std::vector<std::uint8_t> row(stored);
  for (std::size_t sample = 0; sample < page.samplesPerPixel; sample += together) {
    for (std::size_t y = 0; y < raster.h; ++y) {
      if (TIFFReadScanline(file.get(), row.data(), static_cast<std::uint32_t>(y),
                           static_cast<std::uint16_t>(sample)) < 0) {
        failAt(file, y, raster);
      }
      planes.take(0, y, raster.w, sample, together, row.data());
    }
  }
}

void readTiles(MemoryTiff& file, const TiffPage& page, Planes& planes, const Raster& raster) {
  const std::size_t together = page.separate ? 1 : page.samplesPerPixel;
  std::uint32_t tileW = 0, tileH = 0;
  TIFFGetField(file.get(), TIFFTAG_TILEWIDTH, &tileW);
  TIFFGetField(file.get(), TIFFTAG_TILELENGTH, &tileH);
  const auto rowBytes = static_cast<std::size_t>(TIFFTileRowSize(file.get()));
  const tmsize_t tileBytes = TIFFTileSize(file.get());
  constexpr tmsize_t kMostBytes = tmsize_t{1} << 31;
  const bool sane = tileW > 0 && tileH > 0 && tileBytes > 0 && tileBytes <= kMostBytes &&
                    rowBytes >= sampleBytes(page.samples, tileW * together) &&
                    rowBytes * tileH <= static_cast<std::size_t>(tileBytes);
  if (!sane) throw FileError("is a damaged TIFF: its tiles have no usable size" + file.because());
  std::vector<std::uint8_t> tile(static_cast<std::size_t>(tileBytes));
  for (std::size_t sample = 0; sample < page.samplesPerPixel; sample += together) {
    for (std::size_t y = 0; y < raster.h; y += tileH) {
      for (std::size_t x = 0; x < raster.w; x += tileW) {
        if (TIFFReadTile(file.get(), tile.data(), static_cast<std::uint32_t>(x),
                         static_cast<std::uint32_t>(y), 0,
                         static_cast<std::uint16_t>(sample)) < 0) {
          failAt(file, y, raster);
        }
        const std::size_t count = std::min<std::size_t>(tileW, raster.w - x);
        for (std::size_t k = 0; k < std::min<std::size_t>(tileH, raster.h - y); ++k) {
          planes.take(x, y + k, count, sample, together, tile.data() + k * rowBytes);
        }
      }
    }
  }
}

}  // namespace

void readSamples(MemoryTiff& file, const TiffPage& page, bool alpha, Raster& raster) {
  if (!samplesAreKnown(page.samples)) {
    throw FileError("has " + sampleText(page.samples) + ", which are not read");
  }
  Planes planes(page, alpha, raster);
  if (page.tiled) {
    readTiles(file, page, planes, raster);
  } else {
    readStrips(file, page, planes, raster);
  }
  planes.finish();
}

void readConvertedColours(MemoryTiff& file, Raster& raster) {
  char reason[1024] = "";
  if (TIFFRGBAImageOK(file.get(), reason) == 0) {
    throw FileError("has colours that are not read: " + std::string(reason));
  }
  std::vector<std::uint32_t> pixels(raster.count());
  std::uint16_t orientation = ORIENTATION_TOPLEFT;
  TIFFGetFieldDefaulted(file.get(), TIFFTAG_ORIENTATION, &orientation);
  if (TIFFReadRGBAImageOriented(file.get(), static_cast<std::uint32_t>(raster.w),
                                static_cast<std::uint32_t>(raster.h), pixels.data(), orientation,
                                1) == 0) {
    failAt(file, 0, raster);
  }
  raster.values.resize(3 * raster.count());
  raster.samples = {SampleKind::unsignedInteger, 8};
  for (std::size_t p = 0; p < pixels.size(); ++p) {
    raster.plane(0)[p] = static_cast<float>(TIFFGetR(pixels[p]));
    raster.plane(1)[p] = static_cast<float>(TIFFGetG(pixels[p]));
    raster.plane(2)[p] = static_cast<float>(TIFFGetB(pixels[p]));
  }
}

void takeColoursOfPalette(MemoryTiff& file, const TiffPage& page, Raster& raster) {
  std::uint16_t* maps[3] = {nullptr, nullptr, nullptr};
  const bool has = page.samples.bits <= 16 &&
                   TIFFGetField(file.get(), TIFFTAG_COLORMAP, &maps[0], &maps[1], &maps[2]) != 0;
  if (!has || maps[2] == nullptr) throw FileError("is a TIFF with colour numbers, but no palette");
  const std::vector<float> numbers = std::move(raster.values);
  raster.values.assign(3 * raster.count(), 0.0f);
  raster.samples = {SampleKind::unsignedInteger, 8};
  for (std::size_t c = 0; c < 3; ++c) {
    for (std::size_t p = 0; p < raster.count(); ++p) {
      const auto number = static_cast<std::size_t>(numbers[p]);
      raster.plane(c)[p] = static_cast<float>(maps[c][number] >> 8);
    }
  }
}

}  // namespace namespace_ratseg
