#include "util/png_encoder.h"

#include <png.h>

#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <csetjmp>
#include <new>

namespace namespace_ratseg {

namespace {

// Receives the messages and the result of libpng's calls.
struct Output {
  QByteArray& bytes;
  std::string& error;
  bool memoryMissing = false;
};

// No exception may pass through libpng, which is C.
void append(png_structp png, png_bytep data, std::size_t count) {
  auto& output = *static_cast<Output*>(png_get_io_ptr(png));
  try {
    output.bytes.append(reinterpret_cast<const char*>(data), static_cast<qsizetype>(count));
  } catch (const std::bad_alloc&) {
    output.memoryMissing = true;
    png_error(png, "out of memory");
  }
}

void keepError(png_structp png, png_const_charp text) {
  auto& output = *static_cast<Output*>(png_get_error_ptr(png));
  try {
    output.error = text;
  } catch (const std::bad_alloc&) {
    output.memoryMissing = true;
  }
  png_longjmp(png, 1);
}

void ignoreWarning(png_structp, png_const_charp) {}

// Owner of libpng's structures.
struct Writer {
  png_structp png = nullptr;
  png_infop info = nullptr;

  explicit Writer(Output& output)
      : png(png_create_write_struct(PNG_LIBPNG_VER_STRING, &output, keepError, ignoreWarning)) {
    if (png != nullptr) info = png_create_info_struct(png);
  }
  ~Writer() { png_destroy_write_struct(&png, &info); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
};

// The part in which libpng may jump: nothing here has a destructor.
bool write(const Writer& writer, const QImage& image, Output& output) {
  png_structp png = writer.png;
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  const auto w = static_cast<png_uint_32>(image.width());
  const auto h = static_cast<png_uint_32>(image.height());
  const bool alpha = image.hasAlphaChannel();
  png_set_write_fn(png, &output, append, nullptr);
  png_set_IHDR(png, writer.info, w, h, 8, alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_bgr(png);  // In memory blue comes first.
  if (image.dotsPerMeterX() > 0 || image.dotsPerMeterY() > 0) {
    png_set_pHYs(png, writer.info, static_cast<png_uint_32>(image.dotsPerMeterX()),
                 static_cast<png_uint_32>(image.dotsPerMeterY()), PNG_RESOLUTION_METER);
  }
  png_write_info(png, writer.info);
  if (!alpha) png_set_filler(png, 0, PNG_FILLER_AFTER);
  for (int y = 0; y < image.height(); ++y) png_write_row(png, image.constScanLine(y));
  png_write_end(png, writer.info);
  return true;
}

}  // namespace

bool encodePNG(const QImage& image, QByteArray& png, std::string& error) {
  if (image.isNull()) {
    error = "it cannot be encoded as PNG";
    return false;
  }
  if (image.format() != QImage::Format_ARGB32 && image.format() != QImage::Format_RGB32) {
    QBuffer buffer(&png);
    const bool saved = buffer.open(QIODevice::WriteOnly) && image.save(&buffer, "PNG", -1);
    if (!saved) error = "it cannot be encoded as PNG";
    return saved;
  }
  Output output{png, error};
  const Writer writer(output);
  if (writer.info == nullptr) throw std::bad_alloc();
  const bool written = write(writer, image, output);
  if (output.memoryMissing) throw std::bad_alloc();
  return written;
}

}  // namespace namespace_ratseg
