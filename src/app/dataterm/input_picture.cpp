#include "app/dataterm/input_picture.h"

#include <QImage>
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "app/dataterm/eight_bits.h"
#include "app/dataterm/input_error.h"
#include "app/image_warnings.h"
#include "app/messages.h"
#include "files/deep_png.h"
#include "files/file_error.h"
#include "files/stretch.h"
#include "files/tiff_reader.h"
#include "files/turn.h"
#include "util/fileio.h"
#include "util/pictures/complaints.h"
#include "util/pictures/png_reader.h"

namespace namespace_ratseg {

namespace {

constexpr char kExpected[] = "an image of a format that can be read";

[[noreturn]] void failLoading(const std::string& file, const PictureError& e) {
  switch (e.kind) {
    case PictureError::Kind::unreadable:
      throw InputError::unopened(file, kExpected, e.what());
    case PictureError::Kind::unknownFormat:
      throw InputError(file, kExpected, "a file that cannot be decoded: Unsupported image format");
    default:
      throw InputError(file, kExpected, "a file that " + std::string(e.what()));
  }
}

// Pictures that need nothing of ours: 8 bits of grey or colour, which ratseg would take.
bool isPlain(const TiffPage& page) {
  const bool eightBits = page.samples.kind == SampleKind::unsignedInteger && page.samples.bits <= 8;
  constexpr int kRgb = 2;
  const bool colour = page.channels == 3 && page.photometric == kRgb;
  // Qt takes the first directory, and has trouble with tiles and with channels apart.
  if (page.directory != 0 || page.tiled || page.separate) return false;
  return page.converted || (eightBits && (page.channels == 1 || colour));
}

bool isDeepPng(const std::string& bytes) {
  PngHeader header;
  return readPngHeader(bytes, header) && header.bits == 16;
}

CheckRasterSize checkerOf(const PictureLimits& limits) {
  return [&limits](std::size_t w, std::size_t h, std::size_t channels) {
    constexpr std::size_t kLongest = std::numeric_limits<int>::max();
    if (w > kLongest || h > kLongest) throw FileError("has sides of 2^31 pixels or more");
    // The values, the 8-bit planes, the colours.
    const double bytes = 4.0 * static_cast<double>(channels) + 3 + sizeof(RGB);
    checkPictureSize(w, h, limits, bytes);
  };
}

// Turns all planes.
void turnRaster(Raster& raster) {
  std::vector<float> shown(raster.values.size());
  for (std::size_t c = 0; c < raster.channels; ++c) {
    turn(raster.plane(c), raster.w, raster.h, raster.orientation,
         shown.data() + c * raster.count());
  }
  raster.values = std::move(shown);
  if (swapsSides(raster.orientation)) std::swap(raster.w, raster.h);
}

void mend(const std::string& file, Raster& raster) {
  const MendedValues mended = mendValues(raster);
  const auto values = [](std::size_t count, const std::string& of) {
    return std::to_string(count) + " " + of + (count == 1 ? " value" : " values");
  };
  if (mended.nans > 0) {
    warn(file + " has " + values(mended.nans, "NaN") + ", taken for the smallest value there is");
  }
  if (mended.infinite > 0) {
    warn(file + " has " + values(mended.infinite, "infinite") +
         ", taken for the greatest or the smallest finite one");
  }
}

InputPicture fromRaster(const std::string& file, const FileOptions& options, Raster raster) {
  const auto say = warnerOf(file);
  for (const std::string& line : raster.complaints) say(readWithComplaint(line));
  if (raster.orientation != 1 && !options.turn) say(usedAsStored());
  if (raster.orientation != 1 && options.turn) turnRaster(raster);
  mend(file, raster);
  InputPicture picture;
  makeEightBits(file, options.range, raster, picture);
  picture.kept = raster.kept;
  picture.raster = std::move(raster);
  return picture;
}

InputPicture decodePlain(const std::string& file, std::string bytes, const FileOptions& options,
                         const PictureLimits& limits) {
  InputPicture picture;
  picture.image = decodePicture(std::move(bytes), file, limits, warnerOf(file), options.turn);
  if (!options.range.empty()) stretchImage(file, options.range, picture.image);
  return picture;
}

InputPicture load(const std::string& file, const PageChoice& page, const FileOptions& options,
                  const PictureLimits& limits) {
  std::string bytes = readPictureFile(file, limits);
  if (!beginsTiff(bytes)) {
    page.of(file, 1);
    if (!isDeepPng(bytes)) return decodePlain(file, std::move(bytes), options, limits);
    return fromRaster(file, options, readDeepPng(bytes, checkerOf(limits)));
  }
  KeptTags kept;
  {
    const TiffFile tiff(bytes);
    const std::size_t number = page.of(file, tiff.pages());
    if (tiff.pages() > 1 || !isPlain(tiff.page(number))) {
      return fromRaster(file, options, tiff.read(number, checkerOf(limits)));
    }
    kept = tiff.kept(number);
  }
  InputPicture picture = decodePlain(file, std::move(bytes), options, limits);
  picture.kept = std::move(kept);
  return picture;
}

}  // namespace

InputPicture loadInputPicture(const std::string& file, const PageChoice& page,
                              const FileOptions& options, const PictureLimits& limits) {
  try {
    return load(file, page, options, limits);
  } catch (const PictureError& e) {
    failLoading(file, e);
  } catch (const FileError& e) {
    throw InputError(file, kExpected, "a file that " + std::string(e.what()));
  }
}

bool makePicture(FileReplacement& file, const InputPicture& picture, std::string* error) {
  const Image& image = picture.image;
  const auto byteOf = [](float part) { return static_cast<int>(std::lround(part * 255)); };
  QImage copy(image.w, image.h, picture.grey ? QImage::Format_Grayscale8 : QImage::Format_RGB888);
  if (copy.isNull()) throw std::bad_alloc();
  const RGB* from = image.pixels.get();
  for (int y = 0; y < image.h; ++y) {
    uchar* to = copy.scanLine(y);
    for (int x = 0; x < image.w; ++x, ++from) {
      *to++ = static_cast<uchar>(byteOf(from->x));
      if (picture.grey) continue;
      *to++ = static_cast<uchar>(byteOf(from->y));
      *to++ = static_cast<uchar>(byteOf(from->z));
    }
  }
  const Complaints ignored;  // of plugins that Qt looks for
  return FileIO::makeImagePNG(file, copy, error);
}

}  // namespace namespace_ratseg
