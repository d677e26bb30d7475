#include "app/dataterm/label_picture.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>
#include <utility>

#include "app/dataterm/input_error.h"
#include "app/image_warnings.h"
#include "files/deep_png.h"
#include "files/file_error.h"
#include "files/tiff_reader.h"
#include "util/pictures/png_reader.h"
#include "util/pictures/wholeness.h"
#include "util/whole_file.h"

namespace namespace_ratseg {

namespace {

constexpr char kExpected[] = "an 8-bit grey or indexed PNG, or a TIFF of label numbers";

// "a PNG of 16-bit grey"
std::string describe(const PngHeader& header) {
  const std::map<int, std::string> names = {{PngHeader::kGrey, "grey"},
                                            {2, "colour"},
                                            {PngHeader::kIndexed, "indexed"},
                                            {4, "grey with alpha"},
                                            {6, "colour with alpha"}};
  const auto name = names.find(header.colourType);
  const std::string colours = name == names.end() ? "unknown colours" : name->second;
  return "a PNG of " + std::to_string(header.bits) + "-bit " + colours;
}

constexpr std::size_t kMaxBytes = std::size_t{1} << 31;

PngHeader usableHeader(const std::string& bytes, const std::string& file) {
  PngHeader header;
  if (!readPngHeader(bytes, header)) throw InputError(file, kExpected, "a file that is neither");
  const bool indexed = header.colourType == PngHeader::kIndexed;
  const bool grey = header.colourType == PngHeader::kGrey && header.bits == 8;
  if (!indexed && !grey) throw InputError(file, kExpected, describe(header));
  return header;
}

LabelPicture decodePng(const std::string& bytes, const std::string& file,
                       const LabelPicture::Hooks& hooks) {
  const PngHeader header = usableHeader(bytes, file);
  if (hooks.checkSize) hooks.checkSize(header.w, header.h);
  LabelPicture picture{header.w, header.h, {}};
  const PngRows read = readPngRows(bytes, [&](std::size_t y, const std::uint8_t* row) {
    picture.pixels.resize(picture.w * picture.h);
    std::copy_n(row, picture.w, picture.pixels.data() + y * picture.w);
  });
  const Wholeness whole = wholenessOf(read, picture.h);
  if (!whole.error.empty()) {
    throw InputError(file, kExpected, "a PNG that cannot be decoded: it " + whole.error);
  }
  if (hooks.warn) {
    if (!whole.warning.empty()) hooks.warn(whole.warning);
    const bool indexed = header.colourType == PngHeader::kIndexed;
    if (indexed && picture.highest() >= read.colours) {
      hooks.warn(beyondPalette(picture.highest(), read.colours));
    }
    for (const std::string& line : read.warnings) hooks.warn(readWithComplaint(line));
  }
  return picture;
}

Raster tiffPage(const std::string& bytes, const std::string& file, const PageChoice& page,
                const CheckRasterSize& check) {
  const TiffFile tiff(bytes);
  // A file of one page has the marks of any page of the image.
  const std::size_t number = tiff.pages() == 1 ? 1 : page.of(file, tiff.pages());
  TiffFile::Wanted wanted;
  wanted.paletteNumbers = true;
  return tiff.read(number, check, wanted);
}

// The numbers of a raster of one channel.
LabelPicture fromRaster(const Raster& raster, const LabelPicture::Hooks& hooks) {
  LabelPicture picture{raster.w, raster.h, {}};
  picture.pixels.resize(raster.count());
  for (std::size_t p = 0; p < picture.pixels.size(); ++p) {
    const float value = raster.values[p];
    const bool usable = value >= 0 && value <= 255 && value == std::floor(value);
    if (!usable) {
      std::ostringstream number;
      number << value;
      throw FileError("has " + number.str() + " at column " + std::to_string(p % raster.w) +
                      ", row " + std::to_string(p / raster.w) +
                      ", which is no whole number from 0 to 255");
    }
    picture.pixels[p] = static_cast<std::uint8_t>(value);
  }
  if (hooks.warn) {
    for (const std::string& line : raster.complaints) hooks.warn(readWithComplaint(line));
  }
  return picture;
}

}  // namespace

std::string LabelPicture::read(const std::string& file, const std::string& expected) {
  WholeFile read = readWholeFile(file, kMaxBytes, [](const std::string& begin) {
    PngHeader ignored;
    return readPngHeader(begin, ignored) || beginsTiff(begin);
  });
  if (!read.error.empty()) {
    throw InputError::unopened(file, expected, read.error);
  }
  if (read.tooLong) throw InputError(file, expected, "a file of more than 2 GiB");
  return std::move(read.bytes);
}

LabelPicture LabelPicture::load(const std::string& file, const Hooks& hooks,
                                const PageChoice& page) {
  return decode(read(file, kExpected), file, hooks, page);
}

LabelPicture LabelPicture::decode(const std::string& bytes, const std::string& file,
                                  const Hooks& hooks, const PageChoice& page) {
  PngHeader png;
  const bool deep =
      readPngHeader(bytes, png) && png.bits == 16 && png.colourType == PngHeader::kGrey;
  if (!deep && !beginsTiff(bytes)) return decodePng(bytes, file, hooks);
  try {
    const CheckRasterSize check = [&](std::size_t w, std::size_t h, std::size_t channels) {
      if (channels != 1) {
        throw FileError("has " + std::to_string(channels) + " channels, not one of label numbers");
      }
      if (hooks.checkSize) hooks.checkSize(w, h);
    };
    return fromRaster(deep ? readDeepPng(bytes, check) : tiffPage(bytes, file, page, check), hooks);
  } catch (const FileError& e) {
    throw InputError(file, kExpected, "a file that " + std::string(e.what()));
  }
}

std::array<std::size_t, 256> LabelPicture::histogram() const {
  std::array<std::size_t, 256> counts{};
  for (std::uint8_t p : pixels) ++counts[p];
  return counts;
}

std::size_t LabelPicture::highest() const {
  return pixels.empty() ? 0 : *std::max_element(pixels.begin(), pixels.end());
}

}  // namespace namespace_ratseg
