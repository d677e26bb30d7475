#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <QImageReader>
#include <QString>
#include <cerrno>
#include <fstream>
#include <memory>
#include <new>
#include <sstream>

#include "util/file_replacement.h"
#include "util/fileio.h"
#include "util/imagetransforms.h"
#include "util/png_encoder.h"

namespace namespace_ratseg {

namespace {

// Whether Qt opens the file of that name: its names are UTF-8, and those that begin with ':' are of
// resources in the program.
bool isQtName(const std::string& filename) {
  return !filename.starts_with(':') && QString::fromUtf8(filename).toStdString() == filename;
}

QByteArray readBytes(const std::string& filename) {
  std::ostringstream bytes;
  bytes << std::ifstream(filename, std::ios::binary).rdbuf();
  return QByteArray::fromStdString(bytes.str());
}

// Calls ask(QImageReader&) with a reader of the file of any name.
template <class Ask>
auto askReader(const std::string& filename, Ask&& ask) {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  QImageReader reader;
  if (isQtName(filename)) {
    reader.setFileName(QString::fromUtf8(filename));
  } else {
    bytes = readBytes(filename);
    buffer.open(QIODevice::ReadOnly);
    reader.setDevice(&buffer);
  }
  return ask(reader);
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
  QImageReader::setAllocationLimit(0);  // Qt's own limit is 128 MB of pixels.
  auto loaded = std::make_unique<QImage>(askReader(filename, [error](QImageReader& reader) {
    QImage read = reader.read();
    if (read.isNull() && error != nullptr) *error = reader.errorString().toStdString();
    return read;
  }));
  if (loaded->isNull()) return false;
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

bool FileIO::imageAsksToBeTurned(const std::string& filename) {
  if (filename.empty()) return false;
  return askReader(filename, [](QImageReader& reader) {
    return reader.transformation() != QImageIOHandler::TransformationNone;
  });
}

bool FileIO::imageHas16Bits(const std::string& filename) {
  if (filename.empty()) return false;
  switch (askReader(filename, [](QImageReader& reader) { return reader.imageFormat(); })) {
    case QImage::Format_Grayscale16:
    case QImage::Format_RGBX64:
    case QImage::Format_RGBA64:
    case QImage::Format_RGBA64_Premultiplied:
      return true;
    default:
      return false;
  }
}

bool FileIO::imageFormatIsKnown(const std::string& filename) {
  if (filename.empty()) return false;
  return askReader(filename, [](QImageReader& reader) { return reader.canRead(); });
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
