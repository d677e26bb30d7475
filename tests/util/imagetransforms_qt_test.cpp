#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QColor>
#include <QImage>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "support/reference_case.h"
#include "util/fileio.h"
#include "util/imagetransforms.h"

namespace namespace_ratseg {
namespace {

using testing::Each;
using testing::ElementsAre;

using OwnedImage = std::unique_ptr<QImage>;

std::vector<QRgb> pixels(const QImage& image) {
  std::vector<QRgb> result;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) result.push_back(image.pixel(x, y));
  }
  return result;
}

// To Qt.

OwnedImage fromColours(const std::vector<float4>& colours, int w, int h, QImage* reuse = nullptr) {
  return OwnedImage(ImageTransforms::imageToQImage(colours.data(), w, h, reuse));
}

TEST(ImageToQImage, ColoursAreTruncatedAndOpaque) {
  const OwnedImage image = fromColours({{0, 0.5f, 1, 0}, {0.999f, 0.0039f, 0.00393f, 0.5f}}, 2, 1);
  EXPECT_EQ(image->size(), QSize(2, 1));
  EXPECT_EQ(image->format(), QImage::Format_ARGB32);
  EXPECT_THAT(pixels(*image), ElementsAre(0xFF007FFFu, 0xFFFE0001u));
}

TEST(ImageToQImage, ColoursOutsideOfTheRangeAreClamped) {
  const float inf = std::numeric_limits<float>::infinity();
  const OwnedImage image = fromColours(
      {{-0.1f, 1.1f, -0.001f, 1}, {1e30f, -1e30f, 1.003f, 1}, {inf, -inf, inf, 1}}, 3, 1);
  EXPECT_THAT(pixels(*image), ElementsAre(0xFF00FF00u, 0xFFFF00FFu, 0xFFFF00FFu));
}

TEST(ImageToQImage, PixelsAreRowByRow) {
  std::vector<float4> colours;
  for (int i = 0; i < 6; ++i) colours.push_back({i / 255.0f + 0.001f, 0, 0, 1});
  const OwnedImage image = fromColours(colours, 3, 2);
  EXPECT_EQ(qRed(image->pixel(2, 0)), 2);
  EXPECT_EQ(qRed(image->pixel(0, 1)), 3);
}

// An image that says when it is deleted.
QImage* watchedImage(int w, int h, std::vector<QRgb>& buffer, bool& deleted) {
  buffer.assign(static_cast<std::size_t>(w) * h, 0);
  return new QImage(
      reinterpret_cast<uchar*>(buffer.data()), w, h, QImage::Format_ARGB32,
      [](void* flag) { *static_cast<bool*>(flag) = true; }, &deleted);
}

TEST(ImageToQImage, ImageOfTheSameSizeIsWrittenInto) {
  std::vector<QRgb> buffer;
  bool deleted = false;
  QImage* reuse = watchedImage(2, 1, buffer, deleted);
  {
    const OwnedImage image = fromColours({{1, 0, 0, 1}, {0, 1, 0, 1}}, 2, 1, reuse);
    EXPECT_EQ(image.get(), reuse);
    EXPECT_FALSE(deleted);
    EXPECT_THAT(buffer, ElementsAre(0xFFFF0000u, 0xFF00FF00u));
  }
  const std::vector<unsigned char> bytes = {255, 0, 0, 0, 0, 255};
  reuse = watchedImage(2, 1, buffer, deleted);
  const OwnedImage image(ImageTransforms::imageToQImage(bytes.data(), 2, 1, reuse));
  EXPECT_EQ(image.get(), reuse);
  EXPECT_THAT(buffer, ElementsAre(0xFF0000FFu, 0xFFFF0000u));
}

// One that says when it is deleted itself, not only its pixels.
class WatchedQImage : public QImage {
 public:
  WatchedQImage(int w, int h, bool& deleted)
      : QImage(w, h, QImage::Format_ARGB32), deleted_(deleted) {}
  ~WatchedQImage() override { deleted_ = true; }

 private:
  bool& deleted_;
};

TEST(ImageToQImage, ImageOfAnotherSizeIsDeleted) {
  const std::pair<int, int> sizes[] = {{1, 2}, {2, 2}, {3, 1}};
  for (const auto& [w, h] : sizes) {
    bool deleted = false;
    QImage* reuse = new WatchedQImage(w, h, deleted);
    const OwnedImage image = fromColours({{1, 0, 0, 1}, {0, 1, 0, 1}}, 2, 1, reuse);
    EXPECT_TRUE(deleted);
    EXPECT_EQ(image->size(), QSize(2, 1));
    EXPECT_THAT(pixels(*image), ElementsAre(0xFFFF0000u, 0xFF00FF00u));
  }
  const OwnedImage image = fromColours({{1, 0, 0, 1}}, 1, 1, new QImage());
  EXPECT_THAT(pixels(*image), ElementsAre(0xFFFF0000u));
}

TEST(ImageToQImage, ImageOfAnotherFormatBecomesARGB) {
  auto* reuse = new QImage(3, 1, QImage::Format_Grayscale8);
  const OwnedImage image = fromColours({{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1}}, 3, 1, reuse);
  EXPECT_EQ(image.get(), reuse);
  EXPECT_EQ(image->format(), QImage::Format_ARGB32);
  EXPECT_THAT(pixels(*image), ElementsAre(0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu));
}

TEST(ImageToQImage, BytesAreBlueGreenRed) {
  const std::vector<unsigned char> bytes = {1, 2, 3, 254, 0, 255};
  const OwnedImage image(ImageTransforms::imageToQImage(bytes.data(), 1, 2, nullptr));
  EXPECT_EQ(image->size(), QSize(1, 2));
  EXPECT_EQ(image->format(), QImage::Format_ARGB32);
  EXPECT_THAT(pixels(*image), ElementsAre(0xFF030201u, 0xFFFF00FEu));
}

TEST(ImageToQImage, GreyIsTruncatedAndClamped) {
  const std::vector<float> grey = {0, 0.5f, 1, -0.5f, 1.5f, 1e30f, -1e30f, std::nanf("")};
  const OwnedImage image(ImageTransforms::imageToQImage<float>(grey.data(), 4, 2));
  EXPECT_EQ(image->size(), QSize(4, 2));
  EXPECT_EQ(image->format(), QImage::Format_ARGB32);
  EXPECT_THAT(pixels(*image), ElementsAre(0xFF000000u, 0xFF7F7F7Fu, 0xFFFFFFFFu, 0xFF000000u,
                                          0xFFFFFFFFu, 0xFFFFFFFFu, 0xFF000000u, 0xFF000000u));
}

TEST(ImageToQImage, TooLargeAnImageIsNull) {
  // More bytes than Qt's images can have; no pixel is read.
  const OwnedImage image(
      ImageTransforms::imageToQImage<float>(nullptr, std::numeric_limits<int>::max(), 1));
  EXPECT_TRUE(image->isNull());
}

// From Qt.

struct Colours {
  std::vector<float4> pixels;
  int w = -1, h = -1;
};

Colours coloursOf(const QImage& qimage) {
  Colours result;
  float4* image = nullptr;
  ImageTransforms::imageFromQImage_rgb(&qimage, image, result.w, result.h, true);
  result.pixels.assign(image, image + static_cast<std::size_t>(result.w) * result.h);
  delete[] image;
  return result;
}

// Corners of the colour cube, greys and mixtures, of three opacities, in rows that need padding.
QImage colourful() {
  QImage image(13, 9, QImage::Format_ARGB32);
  for (int y = 0; y < 9; ++y) {
    for (int x = 0; x < 13; ++x) {
      const int alpha = y < 3 ? 255 : y < 6 ? 128 : 0;
      image.setPixel(x, y, qRgba(x * 21, y * 31, (x + y) % 3 * 127, alpha));
    }
  }
  return image;
}

TEST(ImageFromQImage, EveryFormatGivesItsColours) {
  for (int f = QImage::Format_Invalid + 1; f < QImage::NImageFormats; ++f) {
    const QImage image = colourful().convertToFormat(static_cast<QImage::Format>(f));
    ASSERT_FALSE(image.isNull()) << f;
    const Colours colours = coloursOf(image);
    EXPECT_EQ(colours.w, 13) << f;
    EXPECT_EQ(colours.h, 9) << f;
    for (int y = 0; y < 9; ++y) {
      for (int x = 0; x < 13; ++x) {
        const QColor expected = image.pixelColor(x, y).toRgb();
        const float4& pixel = colours.pixels[y * 13 + x];
        const double tolerance = 1 / 255.0 + 1e-6;
        ASSERT_NEAR(pixel.x, expected.redF(), tolerance) << f << ": " << x << ", " << y;
        ASSERT_NEAR(pixel.y, expected.greenF(), tolerance) << f << ": " << x << ", " << y;
        ASSERT_NEAR(pixel.z, expected.blueF(), tolerance) << f << ": " << x << ", " << y;
        ASSERT_EQ(pixel.w, 1.0f);
      }
    }
  }
}

TEST(ImageFromQImage, ChannelsAreExact255ths) {
  QImage image(256, 1, QImage::Format_RGB32);
  for (int x = 0; x < 256; ++x) image.setPixel(x, 0, qRgb(x, 255 - x, x / 2));
  const Colours colours = coloursOf(image);
  for (int x = 0; x < 256; ++x) {
    EXPECT_EQ(colours.pixels[x].x, x / 255.0f);
    EXPECT_EQ(colours.pixels[x].y, (255 - x) / 255.0f);
    EXPECT_EQ(colours.pixels[x].z, (x / 2) / 255.0f);
  }
}

TEST(ImageFromQImage, EightAnd24BitImagesAreThoseOfTheirConversion) {
  for (const QImage::Format format :
       {QImage::Format_Indexed8, QImage::Format_Grayscale8, QImage::Format_RGB888}) {
    const QImage image = colourful().convertToFormat(format);
    ASSERT_NE(image.depth(), 32);
    const std::vector<float4> direct = coloursOf(image).pixels;
    const std::vector<float4> converted =
        coloursOf(image.convertToFormat(QImage::Format_ARGB32)).pixels;
    ASSERT_EQ(direct.size(), converted.size());
    for (std::size_t i = 0; i < direct.size(); ++i) {
      EXPECT_EQ(direct[i].x, converted[i].x);
      EXPECT_EQ(direct[i].y, converted[i].y);
      EXPECT_EQ(direct[i].z, converted[i].z);
    }
  }
}

TEST(ImageFromQImage, FillsTheCallersArray) {
  QImage qimage(2, 1, QImage::Format_ARGB32);
  qimage.setPixel(0, 0, 0xFFFF0000u);
  qimage.setPixel(1, 0, 0x0000FF00u);
  float4 own[2] = {};
  float4* image = own;
  int w = 0, h = 0;
  ImageTransforms::imageFromQImage_rgb(&qimage, image, w, h, false);
  EXPECT_EQ(image, own);
  EXPECT_EQ(w, 2);
  EXPECT_EQ(h, 1);
  EXPECT_EQ(own[0].x, 1.0f);
  EXPECT_EQ(own[1].y, 1.0f);
}

TEST(ImageFromQImage, ImageWithoutPixelsHasNoArray) {
  float4 pixel;
  float4* image = &pixel;
  int w = 1, h = 1;
  const QImage none;
  ImageTransforms::imageFromQImage_rgb(&none, image, w, h, true);
  EXPECT_EQ(image, nullptr);
  EXPECT_EQ(w, 0);
  EXPECT_EQ(h, 0);
}

TEST(ImageFromQImage, ReturnsWhatImageToQImageMade) {
  const std::vector<float4> colours = {{0.2f, 0.4f, 0.6f, 1}, {1, 0, 51 / 255.0f, 1}};
  const std::vector<float4> again = coloursOf(*fromColours(colours, 2, 1)).pixels;
  for (std::size_t i = 0; i < colours.size(); ++i) {
    EXPECT_NEAR(again[i].x, colours[i].x, 1 / 255.0);
    EXPECT_NEAR(again[i].y, colours[i].y, 1 / 255.0);
    EXPECT_NEAR(again[i].z, colours[i].z, 1 / 255.0);
  }
}

// The weight of real images.

TEST(ComputeWeightCases, AgreeWithTheReference) {
  const std::vector<std::string> names = referenceCaseNames();
  if (names.empty()) GTEST_SKIP() << "no folder " << referenceCaseFolder();
  for (const std::string& name : names) {
    const ReferenceCase reference = loadReferenceCase(name);
    float4* loaded = nullptr;
    std::size_t w = 0, h = 0;
    ASSERT_TRUE(FileIO::loadImage(reference.file("image.png"), loaded, w, h, true)) << name;
    const std::unique_ptr<float4[]> image(loaded);
    ASSERT_EQ(w, reference.w) << name;
    ASSERT_EQ(h, reference.h) << name;
    float gamma = reference.weightcoeff;
    if (gamma == 0) {
      // Callers leave the weight at 1 then.
      EXPECT_THAT(reference.weight, Each(1.0f)) << name;
      continue;
    }
    const std::unique_ptr<float[]> weight(ImageTransforms::computeWeight(
        image.get(), static_cast<int>(w), static_cast<int>(h), 1, &gamma));
    EXPECT_EQ(gamma, reference.weightcoeff);
    for (std::size_t i = 0; i < w * h; ++i) {
      ASSERT_NEAR(weight[i], reference.weight[i], 1e-6) << name << ", pixel " << i;
    }
  }
}

}  // namespace
}  // namespace namespace_ratseg
