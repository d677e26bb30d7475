#include "app/dataterm/label_picture.h"

#include <algorithm>
#include <map>
#include <utility>

#include "app/dataterm/input_error.h"
#include "app/image_warnings.h"
#include "util/pictures/png_reader.h"
#include "util/pictures/wholeness.h"
#include "util/whole_file.h"

namespace namespace_ratseg {

namespace {

constexpr char kExpected[] = "an 8-bit grey or indexed PNG";

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

std::string readBytes(const std::string& file) {
  WholeFile read = readWholeFile(file, kMaxBytes, [](const std::string& begin) {
    PngHeader ignored;
    return readPngHeader(begin, ignored);
  });
  if (!read.error.empty()) {
    throw InputError::unopened(file, kExpected, read.error);
  }
  if (read.tooLong) throw InputError(file, kExpected, "a file of more than 2 GiB");
  return std::move(read.bytes);
}

PngHeader usableHeader(const std::string& bytes, const std::string& file) {
  PngHeader header;
  if (!readPngHeader(bytes, header)) throw InputError(file, kExpected, "a file that is no PNG");
  const bool indexed = header.colourType == PngHeader::kIndexed;
  const bool grey = header.colourType == PngHeader::kGrey && header.bits == 8;
  if (!indexed && !grey) throw InputError(file, kExpected, describe(header));
  return header;
}

}  // namespace

LabelPicture LabelPicture::load(const std::string& file, const Hooks& hooks) {
  const std::string bytes = readBytes(file);
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

std::array<std::size_t, 256> LabelPicture::histogram() const {
  std::array<std::size_t, 256> counts{};
  for (std::uint8_t p : pixels) ++counts[p];
  return counts;
}

std::size_t LabelPicture::highest() const {
  return pixels.empty() ? 0 : *std::max_element(pixels.begin(), pixels.end());
}

}  // namespace namespace_ratseg
