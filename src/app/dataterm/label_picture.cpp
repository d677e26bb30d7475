#include "app/dataterm/label_picture.h"

#include <QImage>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>

#include "app/dataterm/input_error.h"
#include "util/fileio.h"

namespace namespace_ratseg {

namespace {

constexpr char kExpected[] = "an 8-bit grey or indexed PNG";

// What the header of a PNG file says about its pixels.
struct PngHeader {
  static constexpr int kGrey = 0;
  static constexpr int kIndexed = 3;
  int bits = 0;
  int colourType = 0;

  // "a PNG of 16-bit grey"
  std::string describe() const {
    const std::map<int, std::string> names = {{kGrey, "grey"},
                                              {2, "colour"},
                                              {kIndexed, "indexed"},
                                              {4, "grey with alpha"},
                                              {6, "colour with alpha"}};
    const auto name = names.find(colourType);
    const std::string colours = name == names.end() ? "unknown colours" : name->second;
    return "a PNG of " + std::to_string(bits) + "-bit " + colours;
  }
};

PngHeader readPngHeader(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in)
    throw InputError(file, kExpected,
                     "a file that does not open: " + std::string(std::strerror(errno)));
  // The signature, and of the chunk IHDR: length, name, width, height, bit depth, colour type.
  unsigned char head[26] = {};
  in.read(reinterpret_cast<char*>(head), sizeof head);
  static const unsigned char signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  if (in.gcount() != sizeof head || !std::equal(signature, signature + 8, head) ||
      std::memcmp(head + 12, "IHDR", 4) != 0) {
    throw InputError(file, kExpected, "a file that is no PNG");
  }
  return {head[24], head[25]};
}

// The number of a pixel, whatever form its picture was decoded into.
std::uint8_t numberAt(const QImage& image, int x, int y) {
  switch (image.format()) {
    case QImage::Format_Grayscale8:
    case QImage::Format_Indexed8:
      return image.constScanLine(y)[x];
    case QImage::Format_Mono:
      return static_cast<std::uint8_t>(image.pixelIndex(x, y));
    default:
      // Grey with a transparent value comes in four channels.
      return static_cast<std::uint8_t>(qRed(image.pixel(x, y)));
  }
}

}  // namespace

LabelPicture LabelPicture::load(const std::string& file) {
  const PngHeader header = readPngHeader(file);
  const bool indexed = header.colourType == PngHeader::kIndexed;
  const bool grey = header.colourType == PngHeader::kGrey && header.bits == 8;
  if (!indexed && !grey) throw InputError(file, kExpected, header.describe());
  QImage* loaded = nullptr;
  FileIO::loadImage(file, loaded);
  const std::unique_ptr<QImage> image(loaded);
  if (!image) throw InputError(file, kExpected, "a PNG that cannot be decoded");
  LabelPicture picture;
  picture.w = static_cast<std::size_t>(image->width());
  picture.h = static_cast<std::size_t>(image->height());
  picture.pixels.reserve(picture.w * picture.h);
  for (int y = 0; y < image->height(); ++y) {
    for (int x = 0; x < image->width(); ++x) picture.pixels.push_back(numberAt(*image, x, y));
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
