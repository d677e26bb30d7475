#include "app/dataterm/label_picture.h"

#include <QImage>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
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
    static const char* const names[] = {
        "grey", "", "colour", "indexed", "grey with alpha", "", "colour with alpha"};
    const char* name = colourType >= 0 && colourType < 7 ? names[colourType] : "";
    return "a PNG of " + std::to_string(bits) + "-bit " + name;
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

// The bytes of an image of one byte a pixel, or of one bit a pixel.
void copyIndices(const QImage& image, std::vector<std::uint8_t>& pixels) {
  const int w = image.width();
  for (int y = 0; y < image.height(); ++y) {
    std::uint8_t* row = pixels.data() + static_cast<std::size_t>(y) * w;
    if (image.depth() == 8) {
      std::copy_n(image.constScanLine(y), w, row);
    } else {
      for (int x = 0; x < w; ++x) row[x] = static_cast<std::uint8_t>(image.pixelIndex(x, y));
    }
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
  std::unique_ptr<QImage> image(loaded);
  if (image && grey && image->format() != QImage::Format_Grayscale8) {
    // A grey PNG with a transparent colour comes in four channels.
    *image = image->convertToFormat(QImage::Format_Grayscale8);
  }
  if (!image || image->isNull() || (image->depth() != 8 && image->depth() != 1)) {
    throw InputError(file, kExpected, "a PNG that cannot be decoded");
  }
  LabelPicture picture;
  picture.w = static_cast<std::size_t>(image->width());
  picture.h = static_cast<std::size_t>(image->height());
  picture.pixels.resize(picture.w * picture.h);
  copyIndices(*image, picture.pixels);
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
