#include <QImage>
#include <cstddef>
#include <memory>
#include <new>

#include "util/imagetransforms.h"

namespace namespace_ratseg {

namespace {

// Whole 255ths of a channel, truncated, in [0, 255]. NaN is 0.
int toByte(double value) {
  const double scaled = value * 255.0;
  if (!(scaled > 0)) return 0;
  return scaled < 255 ? static_cast<int>(scaled) : 255;
}

// An ARGB32 image of w x h pixels: reuse where it has that size, otherwise a new one.
QImage* makeQImage(int w, int h, QImage* reuse) {
  std::unique_ptr<QImage> image(reuse);
  if (!image) image = std::make_unique<QImage>();
  const bool fits = image->width() == w && image->height() == h;
  if (!fits) image = std::make_unique<QImage>(w, h, QImage::Format_ARGB32);
  if (image->format() != QImage::Format_ARGB32) *image = QImage(w, h, QImage::Format_ARGB32);
  return image.release();
}

// Stores colour(i) in every pixel i of the image that makeQImage returns.
template <class ColourOf>
QImage* fillQImage(int w, int h, QImage* reuse, ColourOf&& colour) {
  QImage* image = makeQImage(w, h, reuse);
  // Without memory for its pixels an image is null.
  const int rows = image->isNull() ? 0 : h;
  for (int y = 0; y < rows; ++y) {
    auto* row = reinterpret_cast<QRgb*>(image->scanLine(y));
    const std::size_t first = static_cast<std::size_t>(y) * w;
    for (int x = 0; x < w; ++x) row[x] = colour(first + x);
  }
  return image;
}

}  // namespace

QImage* ImageTransforms::imageToQImage(const float4* image, int w, int h, QImage* reuse) {
  return fillQImage(w, h, reuse, [image](std::size_t i) {
    return qRgb(toByte(image[i].x), toByte(image[i].y), toByte(image[i].z));
  });
}

QImage* ImageTransforms::imageToQImage(const unsigned char* image, int w, int h, QImage* reuse) {
  return fillQImage(w, h, reuse, [image](std::size_t i) {
    return qRgb(image[3 * i + 2], image[3 * i + 1], image[3 * i]);
  });
}

template <class T>
QImage* ImageTransforms::imageToQImage(const T* image, int w, int h) {
  return fillQImage(w, h, nullptr, [image](std::size_t i) {
    const int grey = toByte(image[i]);
    return qRgb(grey, grey, grey);
  });
}

template QImage* ImageTransforms::imageToQImage(const float*, int, int);

void ImageTransforms::imageFromQImage_rgb(const QImage* qimage, float4*& image, int& w, int& h,
                                          bool allocate) {
  const bool isARGB =
      qimage->format() == QImage::Format_ARGB32 || qimage->format() == QImage::Format_RGB32;
  const QImage argb = isARGB ? *qimage : qimage->convertToFormat(QImage::Format_ARGB32);
  if (argb.size() != qimage->size()) throw std::bad_alloc();
  const std::size_t pixels = static_cast<std::size_t>(argb.width()) * argb.height();
  if (allocate) image = pixels > 0 ? new float4[pixels] : nullptr;
  w = argb.width();
  h = argb.height();
  for (int y = 0; y < h; ++y) {
    const auto* src = reinterpret_cast<const QRgb*>(argb.constScanLine(y));
    float4* dst = image + static_cast<std::size_t>(y) * w;
    for (int x = 0; x < w; ++x) {
      dst[x] = {qRed(src[x]) / 255.0f, qGreen(src[x]) / 255.0f, qBlue(src[x]) / 255.0f, 1};
    }
  }
}

}  // namespace namespace_ratseg
