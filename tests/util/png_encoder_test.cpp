#include "util/png_encoder.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <cstdint>
#include <random>
#include <string>

namespace namespace_ratseg {
namespace {

QByteArray savedByQt(const QImage& image) {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  EXPECT_TRUE(image.save(&buffer, "PNG", -1));
  return bytes;
}

TEST(PngEncoder, MakesTheBytesThatQtMakes) {
  std::minstd_rand random(3);
  for (const auto format : {QImage::Format_ARGB32, QImage::Format_RGB32, QImage::Format_Grayscale8,
                            QImage::Format_Indexed8, QImage::Format_Mono}) {
    for (const auto& [w, h] : {std::pair(1, 1), std::pair(7, 3), std::pair(301, 77)}) {
      QImage image(w, h, format);
      if (image.colorCount() == 0 && format == QImage::Format_Indexed8) {
        image.setColorTable({qRgb(0, 0, 0), qRgb(255, 0, 0)});
      }
      for (int y = 0; y < h; ++y) {
        for (int k = 0; k < (w * image.depth() + 7) / 8; ++k) {
          image.scanLine(y)[k] = static_cast<std::uint8_t>(
              format == QImage::Format_Indexed8 ? random() % 2 : random() / (k % 3 + 1));
        }
      }
      QByteArray png;
      std::string error;
      EXPECT_TRUE(encodePNG(image, png, error));
      EXPECT_EQ(png, savedByQt(image)) << "format " << format << ", " << w << " x " << h;
    }
  }
}

TEST(PngEncoder, RefusesAnImageWithoutPixels) {
  QByteArray png;
  std::string error;
  EXPECT_FALSE(encodePNG(QImage(), png, error));
  EXPECT_EQ(error, "it cannot be encoded as PNG");
}

}  // namespace
}  // namespace namespace_ratseg
