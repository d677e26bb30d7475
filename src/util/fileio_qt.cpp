#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <cerrno>
#include <fstream>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "util/file_replacement.h"
#include "util/fileio.h"
#include "util/imagetransforms.h"
#include "util/pictures/picture.h"
#include "util/png_encoder.h"
#include "util/whole_file.h"

namespace namespace_ratseg {

namespace {

// A null image where that fails, with the reason.
QImage readImage(const std::string& filename, std::string& reason) {
  WholeFile file = readWholeFile(filename, std::numeric_limits<std::size_t>::max());
  reason = file.error;
  if (!reason.empty()) return {};
  const Picture picture(std::move(file.bytes), filename);
  if (!picture.formatIsKnown()) {
    reason = "Unsupported image format";
    return {};
  }
  const Wholeness whole = picture.wholeness();
  if (!whole.error.empty()) {
    reason = "the file " + whole.error;
    return {};
  }
  return picture.decode(0, reason);
}

bool savePNG(const QImage& image, const std::string& filename, std::string* error) {
  FileReplacement file(filename);
  if (!FileIO::makeImagePNG(file, image, error)) return false;
  const bool saved = file.finish();
  if (!saved && error != nullptr) *error = textOfErrno(errno);
  return saved;
}

}  // namespace

bool FileIO::loadImage(const std::string& filename, QImage*& image, std::string* error) {
  image = nullptr;
  if (filename.empty()) return false;
  std::string reason;
  auto loaded = std::make_unique<QImage>(readImage(filename, reason));
  if (loaded->isNull()) {
    if (error != nullptr) *error = reason;
    return false;
  }
  image = loaded.release();
  return true;
}

bool FileIO::loadImage(const std::string& filename, float4*& image, int& w, int& h, bool allocate,
                       std::string* error) {
  QImage* loaded = nullptr;
  if (error != nullptr) error->clear();
  if (!loadImage(filename, loaded, error)) return false;
  const std::unique_ptr<QImage> qimage(loaded);
  try {
    ImageTransforms::imageFromQImage_rgb(qimage.get(), image, w, h, allocate);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

bool FileIO::loadImage(const std::string& filename, float4*& image, std::size_t& w, std::size_t& h,
                       bool allocate) {
  int intW = static_cast<int>(w);
  int intH = static_cast<int>(h);
  const bool ok = loadImage(filename, image, intW, intH, allocate);
  w = static_cast<std::size_t>(intW);
  h = static_cast<std::size_t>(intH);
  return ok;
}

bool FileIO::makeImagePNG(FileReplacement& file, const QImage& image, std::string* error) {
  QByteArray png;
  std::string reason;
  if (!encodePNG(image, png, reason)) {
    if (error != nullptr) *error = reason;
    return false;
  }
  const bool made = file.make([&png](int descriptor) {
    return writeAll(descriptor, png.constData(), static_cast<std::size_t>(png.size()));
  });
  if (!made && error != nullptr) *error = textOfErrno(errno);
  return made;
}

bool FileIO::saveImagePNG(const QImage* image, const std::string& filename, std::string* error) {
  return savePNG(*image, filename, error);
}

bool FileIO::saveImagePNG(const float4* image, int w, int h, const std::string& filename,
                          std::string* error) {
  const std::unique_ptr<QImage> qimage(ImageTransforms::imageToQImage(image, w, h, nullptr));
  return savePNG(*qimage, filename, error);
}

bool FileIO::saveImagePNG(const unsigned char* image, int w, int h, const std::string& filename,
                          std::string* error) {
  const std::unique_ptr<QImage> qimage(ImageTransforms::imageToQImage(image, w, h, nullptr));
  return savePNG(*qimage, filename, error);
}

}  // namespace namespace_ratseg
