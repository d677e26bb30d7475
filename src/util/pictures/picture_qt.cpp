#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <QImageReader>
#include <QSize>
#include <algorithm>
#include <cctype>
#include <iterator>
#include <limits>
#include <utility>

#include "util/pictures/byte_reader.h"
#include "util/pictures/picture.h"
#include "util/pictures/png_reader.h"

namespace namespace_ratseg {

namespace {

bool endsInTGA(const std::string& name) {
  constexpr std::size_t kLength = 4;
  std::string end = name.size() < kLength ? "" : name.substr(name.size() - kLength);
  std::transform(end.begin(), end.end(), end.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return end == ".tga";
}

// Calls ask(QImageReader&) with a reader of the bytes, of the format or, where it is empty, of the
// one that they show. The reader has no file name: with one, Qt tries other names as well.
template <class Ask>
auto askReader(const std::string& bytes, const QByteArray& format, Ask&& ask) {
  QByteArray shared = QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size()));
  QBuffer buffer(&shared);
  buffer.open(QIODevice::ReadOnly);
  QImageReader reader;
  reader.setDevice(&buffer);
  reader.setFormat(format);
  reader.setDecideFormatFromContent(format.isEmpty());
  return ask(reader);
}

bool isDeep(QImage::Format format) {
  return format == QImage::Format_Grayscale16 || format == QImage::Format_RGBX64 ||
         format == QImage::Format_RGBA64 || format == QImage::Format_RGBA64_Premultiplied;
}

// Of damaged files of some of these formats, Qt answers the question for their pixels with memory
// that was never set.
bool mayBeDeep(const QByteArray& format) {
  static constexpr const char* kEightBits[] = {"bmp", "cur", "gif",  "icns", "ico", "jpeg",
                                               "mng", "tga", "wbmp", "webp", "xbm", "xpm"};
  return std::none_of(std::begin(kEightBits), std::end(kEightBits),
                      [&](const char* name) { return format == name; });
}

// Qt's name of what viewers do, as EXIF's number.
int orientationOf(QImageIOHandler::Transformations transformation) {
  switch (transformation) {
    case QImageIOHandler::TransformationMirror:
      return 2;
    case QImageIOHandler::TransformationRotate180:
      return 3;
    case QImageIOHandler::TransformationFlip:
      return 4;
    case QImageIOHandler::TransformationFlipAndRotate90:
      return 5;
    case QImageIOHandler::TransformationRotate90:
      return 6;
    case QImageIOHandler::TransformationMirrorAndRotate90:
      return 7;
    case QImageIOHandler::TransformationRotate270:
      return 8;
    default:
      return 1;
  }
}

bool canRead(QImageReader& reader) { return reader.canRead(); }

bool isTGA(const std::string& bytes, const std::string& name) {
  return endsInTGA(name) && askReader(bytes, "tga", canRead);
}

// The first bytes of TGA files, which have no mark, may be those of an icon or a cursor.
bool isDamagedTGA(const std::string& bytes, const std::string& name) {
  return endsInTGA(name) && bytes.starts_with('\0') && !isTGA(bytes, name);
}

}  // namespace

Picture::Picture(std::string bytes, const std::string& name)
    : bytes_(std::move(bytes)), isTGA_(isTGA(bytes_, name)) {
  PngHeader png;
  known_ = bytes_.starts_with(kPngMark);
  if (known_) {
    // Asked by Qt, libpng would print what it finds wrong.
    if (!readPngHeader(bytes_, png)) return;
    w_ = png.w;
    h_ = png.h;
    deep_ = png.bits == 16;
  } else if (!isDamagedTGA(bytes_, name)) {
    askReader(bytes_, isTGA_ ? "tga" : "", [this](QImageReader& reader) { ask(reader); });
  }
}

void Picture::ask(QImageReader& reader) {
  known_ = reader.canRead();
  if (!known_) return;
  const QByteArray format = reader.format();  // After a failure to read the size it is forgotten.
  isTGA_ = isTGA_ || format == "tga";
  const QSize size = reader.size();
  w_ = static_cast<std::uint64_t>(std::max(0, size.width()));
  h_ = static_cast<std::uint64_t>(std::max(0, size.height()));
  if (bytes_.starts_with("GIF8")) {  // Qt names the picture's size, but decodes the screen.
    w_ = ByteReader(bytes_).little16(6);
    h_ = ByteReader(bytes_).little16(8);
  }
  orientation_ = orientationOf(reader.transformation());
  deep_ = mayBeDeep(format) && isDeep(reader.imageFormat());
}

bool Picture::formatIsKnown(const std::string& begin, const std::string& name) {
  return endsInTGA(name) || askReader(begin, "", canRead);
}

Wholeness Picture::wholeness() const {
  return isTGA_ ? checkTGA(bytes_) : namespace_ratseg::checkWholeness(bytes_);
}

QImage Picture::decode(std::uint64_t maxBytes, std::string& error) const {
  constexpr std::uint64_t kMiB = 1 << 20;
  const std::uint64_t maxMiB = std::min<std::uint64_t>(maxBytes / kMiB + (maxBytes % kMiB != 0),
                                                       std::numeric_limits<int>::max());
  QImageReader::setAllocationLimit(static_cast<int>(maxMiB));  // Qt's own limit is 128 MiB.
  return askReader(bytes_, isTGA_ ? "tga" : "", [&error](QImageReader& reader) {
    QImage image = reader.read();
    if (image.isNull()) error = reader.errorString().toStdString();
    return image;
  });
}

}  // namespace namespace_ratseg
