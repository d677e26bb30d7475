#include "app/load_picture.h"

#include <QImage>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <limits>
#include <new>
#include <sstream>
#include <utility>
#include <vector>

#include "app/image_warnings.h"
#include "files/turn.h"
#include "util/available_memory.h"
#include "util/imagetransforms.h"
#include "util/pictures/complaints.h"
#include "util/pictures/picture.h"
#include "util/whole_file.h"

namespace namespace_ratseg {

namespace {

using Kind = PictureError::Kind;

constexpr double kMega = 1e6;

std::string number(double value) {
  return (std::ostringstream() << std::setprecision(10) << value).str();
}

// No format takes more than this for a picture, uncompressed and with 16 bits a channel.
std::size_t maxFileBytes(const PictureLimits& limits) {
  constexpr double kBytesPerPixel = 8, kBeside = 64 << 20, kMaxBytes = 1e15;
  const double bytes = limits.megapixels * kMega * kBytesPerPixel + kBeside;
  return static_cast<std::size_t>(std::min({bytes, limits.bytes(), kMaxBytes}));
}

Picture pictureOf(std::string bytes, const std::string& file) {
  const Complaints ignored;  // of formats that it might have been
  Picture picture(std::move(bytes), file);
  if (!picture.formatIsKnown()) {
    throw PictureError(Kind::unknownFormat, "is not an image of a format that can be read");
  }
  return picture;
}

// The decoders' complaints in one line.
std::string inOneLine(const std::vector<std::string>& complaints) {
  std::string line;
  for (const std::string& complaint : complaints) line += (line.empty() ? "" : "; ") + complaint;
  return line;
}

void tell(const std::vector<std::string>& complaints,
          const std::function<void(const std::string&)>& warn) {
  constexpr std::size_t kMaxShown = 10;
  const std::size_t shown = std::min(kMaxShown, complaints.size());
  for (std::size_t k = 0; k < shown; ++k) warn(readWithComplaint(complaints[k]));
  if (complaints.size() > shown) {
    warn("was read with " + std::to_string(complaints.size() - shown) + " more complaints");
  }
}

QImage decode(const Picture& picture, const PictureLimits& limits, const Complaints& complaints) {
  // The header of some formats does not tell the size.
  constexpr double kMaxBytes = 1e15;
  const double maxBytes =
      std::min({limits.bytes(), limits.megapixels * kMega * sizeof(RGB), kMaxBytes});
  std::string error;
  QImage decoded = picture.decode(static_cast<std::uint64_t>(maxBytes), error);
  if (decoded.isNull()) {
    const std::string said = inOneLine(complaints.lines());
    throw PictureError(Kind::unusable,
                       "cannot be decoded: " + error + (said.empty() ? "" : " (" + said + ")"));
  }
  checkPictureSize(static_cast<std::size_t>(decoded.width()),
                   static_cast<std::size_t>(decoded.height()), limits);
  return decoded;
}

Image convert(const QImage& decoded) {
  Image image;
  RGB* pixels = nullptr;
  try {
    ImageTransforms::imageFromQImage_rgb(&decoded, pixels, image.w, image.h, true);
  } catch (const std::bad_alloc&) {
    throw PictureError(Kind::unusable, "does not fit into memory");
  }
  image.pixels.reset(pixels);
  return image;
}

Image turned(const Image& image, int orientation) {
  Image result;
  result.w = swapsSides(orientation) ? image.h : image.w;
  result.h = swapsSides(orientation) ? image.w : image.h;
  result.pixels = std::make_unique_for_overwrite<RGB[]>(image.count());
  turn(image.pixels.get(), static_cast<std::size_t>(image.w), static_cast<std::size_t>(image.h),
       orientation, result.pixels.get());
  return result;
}

}  // namespace

std::string sizeText(std::size_t w, std::size_t h) {
  return std::to_string(w) + " x " + std::to_string(h) + " pixels";
}

std::string sizeText(std::size_t w, std::size_t h, std::size_t labels) {
  return sizeText(w, h) + " x " + std::to_string(labels) + " labels";
}

double PictureLimits::bytes() const {
  constexpr double kGiB = 1 << 30;
  if (gib > 0) return gib * kGiB;
  const auto available = availableMemory();
  return available ? static_cast<double>(*available) : std::numeric_limits<double>::infinity();
}

// The image as Qt has it, its conversion to 4 bytes a pixel, the colours, and what decoders take.
double bytesToLoad(double pixels) {
  constexpr double kDecoded = 8, kConverted = 4;
  return pixels * (kDecoded + kConverted + sizeof(RGB));
}

void checkPictureSize(std::size_t w, std::size_t h, const PictureLimits& limits,
                      double bytesPerPixel) {
  const double pixels = static_cast<double>(w) * static_cast<double>(h);
  const std::string size = "has " + sizeText(w, h) + ", ";
  if (pixels > limits.megapixels * kMega) {
    throw PictureError(Kind::unusable, size + number(std::ceil(pixels / kMega * 10) / 10) +
                                           " megapixels, but at most " + number(limits.megapixels) +
                                           " are allowed (-max-megapixels M allows others)");
  }
  const double needed = bytesPerPixel > 0 ? pixels * bytesPerPixel : bytesToLoad(pixels);
  if (needed > limits.bytes()) {
    throw PictureError(Kind::unusable, size + "for which about " + memoryText(needed) +
                                           " of memory are needed, but " +
                                           memoryText(limits.bytes()) +
                                           (limits.gib > 0 ? " are allowed" : " are available") +
                                           " (-max-memory GIB allows others)");
  }
}

std::string readPictureFile(const std::string& file, const PictureLimits& limits) {
  const Complaints ignored;  // of formats that it might have been
  const std::size_t maxBytes = maxFileBytes(limits);
  const auto isPicture = [&file](const std::string& begin) {
    return Picture::formatIsKnown(begin, file);
  };
  WholeFile read = readWholeFile(file, maxBytes, isPicture);
  if (!read.error.empty()) throw PictureError(Kind::unreadable, read.error);
  if (read.tooLong) {
    throw PictureError(Kind::unusable,
                       "has more than " + memoryText(static_cast<double>(maxBytes)) +
                           " and is not read to its end (-max-megapixels M and -max-memory GIB "
                           "allow more)");
  }
  return std::move(read.bytes);
}

Image decodePicture(std::string bytes, const std::string& file, const PictureLimits& limits,
                    const std::function<void(const std::string&)>& warn, bool turn) {
  const Picture picture = pictureOf(std::move(bytes), file);
  Complaints complaints;
  checkPictureSize(picture.w(), picture.h(), limits);
  const Wholeness whole = picture.wholeness();
  for (const std::string& complaint : whole.complaints) complaints.add(complaint);
  if (!whole.error.empty()) throw PictureError(Kind::unusable, whole.error);
  Image image = convert(decode(picture, limits, complaints));
  if (!whole.warning.empty()) warn(whole.warning);
  tell(complaints.lines(), warn);
  for (const std::string& line : imageWarnings(picture, image.pixels.get(), image.count(), turn)) {
    warn(line);
  }
  if (turn && picture.asksToBeTurned()) image = turned(image, picture.orientation());
  return image;
}

Image loadPicture(const std::string& file, const PictureLimits& limits,
                  const std::function<void(const std::string&)>& warn) {
  return decodePicture(readPictureFile(file, limits), file, limits, warn);
}

}  // namespace namespace_ratseg
