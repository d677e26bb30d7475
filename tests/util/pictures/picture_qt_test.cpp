#include <gtest/gtest.h>

#include <QBuffer>
#include <QImage>
#include <fstream>
#include <iterator>
#include <string>

#include "support/raw_pictures.h"
#include "support/temp_dir.h"
#include "support/turned_photo.h"
#include "util/pictures/picture.h"

namespace namespace_ratseg {
namespace {

std::string encoded(const QImage& image, const char* format) {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  EXPECT_TRUE(buffer.open(QIODevice::WriteOnly) && image.save(&buffer, format));
  return bytes.toStdString();
}

QImage blueImage(QImage::Format format = QImage::Format_RGB32) {
  QImage image(3, 2, format);
  image.fill(Qt::blue);
  return image;
}

TEST(Picture, TellsWhetherItHas16BitsPerChannel) {
  for (const auto& [format, is] : {std::pair{QImage::Format_Grayscale16, true},
                                   {QImage::Format_RGBX64, true},
                                   {QImage::Format_RGBA64, true},
                                   {QImage::Format_Grayscale8, false},
                                   {QImage::Format_RGB32, false},
                                   {QImage::Format_ARGB32, false}}) {
    EXPECT_EQ(Picture(encoded(blueImage(format), "PNG"), "a.png").has16Bits(), is) << format;
  }
  EXPECT_FALSE(Picture("no picture", "a.png").has16Bits());
}

TEST(Picture, TellsWhetherItAsksToBeTurned) {
  const TempDir dir;
  for (const auto& [orientation, is] : {std::pair{'\1', false}, {'\6', true}}) {
    saveTurnedPhoto(blueImage(), dir.file("photo.jpg"), orientation);
    std::ifstream in(dir.file("photo.jpg"), std::ios::binary);
    const Picture photo(std::string(std::istreambuf_iterator<char>(in), {}), "photo.jpg");
    EXPECT_EQ(photo.asksToBeTurned(), is);
    std::string error;
    EXPECT_EQ(photo.decode(0, error).size(), QSize(3, 2));
  }
}

TEST(Picture, TellsItsSizeBeforeItIsDecoded) {
  for (const char* format : {"PNG", "JPG", "BMP", "PPM", "TIFF", "WEBP", "XPM", "XBM", "ICO"}) {
    const Picture picture(encoded(blueImage(), format), "picture");
    EXPECT_TRUE(picture.formatIsKnown()) << format;
    EXPECT_EQ(picture.w(), 3u) << format;
    EXPECT_EQ(picture.h(), 2u) << format;
  }
  EXPECT_EQ(Picture("no picture", "a.png").w(), 0u);
}

TEST(Picture, OfNoFormatThatIsKnown) {
  const Picture picture("no picture", "a.png");
  EXPECT_FALSE(picture.formatIsKnown());
  std::string error;
  EXPECT_TRUE(picture.decode(0, error).isNull());
  EXPECT_EQ(error, "Unsupported image format");
  EXPECT_FALSE(Picture::formatIsKnown("no picture", "a.png"));
  EXPECT_FALSE(Picture::formatIsKnown("", ""));
  EXPECT_TRUE(Picture::formatIsKnown(encoded(blueImage(), "PNG").substr(0, 50), ""));
}

TEST(Picture, OfTGAIsKnownByItsName) {
  const raw_pictures::Example example;
  const std::string tga = raw_pictures::tga(example);
  const std::string c = raw_pictures::Example::colour(example.number(23, 16));
  const auto part = [&c](std::size_t k) { return static_cast<unsigned char>(c[k]); };
  for (const char* name : {"a.tga", "A.TGA"}) {
    const Picture picture(tga, name);
    ASSERT_TRUE(picture.formatIsKnown()) << name;
    EXPECT_EQ(picture.w(), 24u);
    EXPECT_EQ(picture.wholeness().error, "");
    std::string error;
    EXPECT_EQ(picture.decode(0, error).pixel(23, 16), qRgb(part(2), part(1), part(0))) << error;
    // Without its end it could be anything.
    EXPECT_FALSE(Picture(tga.substr(0, tga.size() - 1), name).formatIsKnown());
  }
  std::string lie = tga;
  lie[14] = 18;
  EXPECT_EQ(Picture(lie, "a.tga").wholeness().error, "ends early: 1242 of 1314 bytes are there");
  // The name alone makes no TGA file.
  EXPECT_EQ(Picture(encoded(blueImage(), "PNG"), "a.tga").w(), 3u);
}

TEST(Picture, IsDecodedUpToALimit) {
  QImage image(1000, 1000, QImage::Format_RGB32);
  image.fill(Qt::blue);
  const Picture picture(encoded(image, "PNG"), "a.png");
  std::string error;
  EXPECT_TRUE(picture.decode(1 << 20, error).isNull());
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(picture.decode(5 << 20, error).size(), image.size());
}

}  // namespace
}  // namespace namespace_ratseg
