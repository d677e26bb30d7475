#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QColor>
#include <QCoreApplication>
#include <QImage>
#include <QImageReader>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/full_device.h"
#include "support/temp_dir.h"
#include "util/fileio.h"

namespace namespace_ratseg {
namespace {

using OwnedImage = std::unique_ptr<QImage>;

QImage smallImage() {
  QImage image(3, 2, QImage::Format_RGB32);
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x) image.setPixel(x, y, qRgb(x * 100, y * 200, 7));
  }
  return image;
}

OwnedImage load(const std::string& file) {
  QImage* image = nullptr;
  EXPECT_TRUE(FileIO::loadImage(file, image)) << file;
  return OwnedImage(image);
}

std::string startOf(const std::string& file, std::size_t bytes) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {}).substr(0, bytes);
}

class ImageFile : public testing::Test {
 protected:
  // A file name with a folder that does not exist.
  std::string nowhere() const { return dir_.file("missing/image.png"); }
  std::string notAnImage() const {
    std::ofstream(dir_.file("text.png")) << "this is no image\n";
    return dir_.file("text.png");
  }

  const TempDir dir_;
};

TEST_F(ImageFile, IsSavedAsPNGWhateverItsName) {
  const QImage image = smallImage();
  EXPECT_TRUE(FileIO::saveImagePNG(&image, dir_.file("image.dat")));
  EXPECT_EQ(startOf(dir_.file("image.dat"), 8), "\x89PNG\r\n\x1A\n");
  EXPECT_EQ(load(dir_.file("image.dat"))->convertToFormat(QImage::Format_RGB32), image);
}

TEST_F(ImageFile, HoldsTheColoursThatWereSaved) {
  const std::vector<float4> colours = {{1, 0, 0, 1}, {0.5f, 2, -1, 0}};
  EXPECT_TRUE(FileIO::saveImagePNG(colours.data(), 1, 2, dir_.file("colours.png")));
  const OwnedImage image = load(dir_.file("colours.png"));
  EXPECT_EQ(image->size(), QSize(1, 2));
  EXPECT_EQ(image->pixel(0, 0), 0xFFFF0000u);
  EXPECT_EQ(image->pixel(0, 1), 0xFF7FFF00u);
}

TEST_F(ImageFile, HoldsTheBytesThatWereSaved) {
  const std::vector<unsigned char> bytes = {1, 2, 3, 255, 0, 128};
  EXPECT_TRUE(FileIO::saveImagePNG(bytes.data(), 2, 1, dir_.file("bytes.png")));
  const OwnedImage image = load(dir_.file("bytes.png"));
  EXPECT_EQ(image->size(), QSize(2, 1));
  EXPECT_EQ(image->pixel(0, 0), 0xFF030201u);
  EXPECT_EQ(image->pixel(1, 0), 0xFF8000FFu);
}

TEST_F(ImageFile, ThatCannotBeWrittenIsAFailure) {
  const QImage image = smallImage();
  const float4 colour = {1, 1, 1, 1};
  const unsigned char bytes[3] = {};
  EXPECT_FALSE(FileIO::saveImagePNG(&image, nowhere()));
  EXPECT_FALSE(FileIO::saveImagePNG(&colour, 1, 1, nowhere()));
  EXPECT_FALSE(FileIO::saveImagePNG(bytes, 1, 1, nowhere()));
  const QImage none;
  std::string error;
  EXPECT_FALSE(FileIO::saveImagePNG(&none, dir_.file("none.png"), &error));
  EXPECT_EQ(error, "it cannot be encoded as PNG");
  EXPECT_FALSE(FileIO::saveImagePNG(&colour, 1, 1, nowhere(), &error));
  EXPECT_EQ(error, "No such file or directory");
  EXPECT_FALSE(FileIO::saveImagePNG(&image, ""));
}

TEST_F(ImageFile, NamesAreUTF8) {
  const std::string name = dir_.file("Bild \xC3\xBC \xE6\xBC\xA2.png");
  const QImage image = smallImage();
  EXPECT_TRUE(FileIO::saveImagePNG(&image, name));
  EXPECT_TRUE(std::filesystem::exists(name));
  EXPECT_EQ(load(name)->size(), QSize(3, 2));
}

TEST_F(ImageFile, NamesMayBeAnyBytes) {
  const QImage image = smallImage();
  const std::string name = dir_.file("caf\xE9.png");
  EXPECT_TRUE(FileIO::saveImagePNG(&image, name));
  EXPECT_TRUE(std::filesystem::exists(name));
  EXPECT_EQ(load(name)->convertToFormat(QImage::Format_RGB32), image);
  QImage* none = nullptr;
  EXPECT_FALSE(FileIO::loadImage(dir_.file("missing\xE9.png"), none));
}

TEST_F(ImageFile, ThatDoesNotFitOntoTheDiskIsAFailure) {
  const std::string full = fullDevice(dir_);
  if (full.empty()) GTEST_SKIP() << "no device that is full";
  const QImage image = smallImage();
  EXPECT_FALSE(FileIO::saveImagePNG(&image, full));
  std::string error;
  EXPECT_FALSE(FileIO::saveImagePNG(&image, full, &error));
  EXPECT_EQ(error, "No space left on device");
}

TEST_F(ImageFile, ThatCannotBeLoadedIsNull) {
  for (const std::string& name : {std::string(), nowhere(), notAnImage(), dir_.path().string()}) {
    QImage other;
    QImage* image = &other;
    EXPECT_FALSE(FileIO::loadImage(name, image)) << name;
    EXPECT_EQ(image, nullptr) << name;
  }
}

int qtMessages = 0;

TEST_F(ImageFile, WithoutANameIsNotOpened) {
  // Qt complains when it is to open a file without a name.
  qtMessages = 0;
  const QtMessageHandler before = qInstallMessageHandler(
      [](QtMsgType, const QMessageLogContext&, const QString&) { ++qtMessages; });
  QImage* image = nullptr;
  EXPECT_FALSE(FileIO::loadImage("", image));
  EXPECT_EQ(qtMessages, 0);
  QImageReader(QString()).read();
  EXPECT_GE(qtMessages, 1);
  qInstallMessageHandler(before);
}

TEST_F(ImageFile, IsLoadedAsColours) {
  const QImage saved = smallImage();
  ASSERT_TRUE(FileIO::saveImagePNG(&saved, dir_.file("image.png")));
  float4* image = nullptr;
  int w = 0, h = 0;
  ASSERT_TRUE(FileIO::loadImage(dir_.file("image.png"), image, w, h, true));
  const std::unique_ptr<float4[]> owner(image);
  EXPECT_EQ(w, 3);
  EXPECT_EQ(h, 2);
  const float4 pixel = image[1 * 3 + 2];
  EXPECT_EQ(pixel.x, 200 / 255.0f);
  EXPECT_EQ(pixel.y, 200 / 255.0f);
  EXPECT_EQ(pixel.z, 7 / 255.0f);
  EXPECT_EQ(pixel.w, 1.0f);
}

TEST_F(ImageFile, IsLoadedIntoTheCallersArray) {
  const QImage saved = smallImage();
  ASSERT_TRUE(FileIO::saveImagePNG(&saved, dir_.file("image.png")));
  std::vector<float4> own(6);
  float4* image = own.data();
  std::size_t w = 0, h = 0;
  EXPECT_TRUE(FileIO::loadImage(dir_.file("image.png"), image, w, h, false));
  EXPECT_EQ(image, own.data());
  EXPECT_EQ(w, 3u);
  EXPECT_EQ(h, 2u);
  EXPECT_EQ(own[5].x, 200 / 255.0f);
}

TEST_F(ImageFile, FailureLeavesColoursAndSizeAlone) {
  float4 pixel;
  for (const std::string& name : {std::string(), nowhere(), notAnImage()}) {
    float4* image = &pixel;
    int w = 11, h = 22;
    EXPECT_FALSE(FileIO::loadImage(name, image, w, h, true));
    EXPECT_EQ(image, &pixel);
    EXPECT_EQ(w, 11);
    EXPECT_EQ(h, 22);
  }
}

TEST_F(ImageFile, FailureReturnsLargeSizesThroughInt) {
  float4* image = nullptr;
  std::size_t w = 11, h = 22;
  EXPECT_FALSE(FileIO::loadImage(nowhere(), image, w, h, true));
  EXPECT_EQ(w, 11u);
  EXPECT_EQ(h, 22u);
  w = 0xFFFFFFFFu;
  h = (std::size_t{1} << 32) + 5;
  EXPECT_FALSE(FileIO::loadImage(nowhere(), image, w, h, true));
  EXPECT_EQ(w, std::numeric_limits<std::size_t>::max());
  EXPECT_EQ(h, 5u);
}

TEST_F(ImageFile, TellsWhyItCannotBeLoaded) {
  const QImage image = smallImage();
  const auto errorOf = [](const std::string& name) {
    float4 own[6];
    float4* pixels = own;
    int w = 0, h = 0;
    std::string error = "before";
    const bool loaded = FileIO::loadImage(name, pixels, w, h, false, &error);
    EXPECT_EQ(loaded, error.empty());
    return error;
  };
  for (const std::string& name : {dir_.file("image.png"), dir_.file("caf\xE9.png")}) {
    ASSERT_TRUE(FileIO::saveImagePNG(&image, name));
    EXPECT_EQ(errorOf(name), "");
    std::filesystem::resize_file(name, 45);
    EXPECT_EQ(errorOf(name), "the file ends early: 0 of 2 rows are there");
  }
  EXPECT_EQ(errorOf(notAnImage()), "Unsupported image format");
  EXPECT_EQ(errorOf(nowhere()), "No such file or directory");
  EXPECT_EQ(errorOf(dir_.path().string()), "Is a directory");
}

TEST_F(ImageFile, OfAnotherNameIsNotTaken) {
  const QImage image = smallImage();
  ASSERT_TRUE(FileIO::saveImagePNG(&image, dir_.file("image.png")));
  ASSERT_TRUE(FileIO::saveImagePNG(&image, dir_.file("photo.jpg.png")));
  for (const char* name : {"image", "photo.jpg", ":image.png"}) {
    QImage* none = nullptr;
    EXPECT_FALSE(FileIO::loadImage(dir_.file(name), none)) << name;
  }
  // Whatever the name says, the format is found out from the file.
  std::filesystem::rename(dir_.file("image.png"), dir_.file(":image.tga"));
  EXPECT_EQ(load(dir_.file(":image.tga"))->size(), image.size());
}

TEST_F(ImageFile, MayBeAPipe) {
  const QImage image = smallImage();
  ASSERT_TRUE(FileIO::saveImagePNG(&image, dir_.file("image.png")));
  const std::string bytes = startOf(dir_.file("image.png"), 10000);
  ASSERT_EQ(mkfifo(dir_.file("pipe").c_str(), 0600), 0);
  std::thread writer([&] { std::ofstream(dir_.file("pipe"), std::ios::binary) << bytes; });
  EXPECT_EQ(load(dir_.file("pipe"))->convertToFormat(QImage::Format_RGB32), image);
  writer.join();
}

TEST_F(ImageFile, FormatsOfPluginsNeedNoApplication) {
  ASSERT_EQ(QCoreApplication::instance(), nullptr);
  const QImage saved = smallImage().scaled(30, 20);
  ASSERT_TRUE(saved.save(QString::fromStdString(dir_.file("image.jpg")), "JPG", 95));
  EXPECT_EQ(load(dir_.file("image.jpg"))->size(), QSize(30, 20));
  if (!QImageReader::supportedImageFormats().contains("tiff")) {
    GTEST_SKIP() << "Qt's TIFF plugin is not installed";
  }
  ASSERT_TRUE(saved.save(QString::fromStdString(dir_.file("image.tif")), "TIFF"));
  EXPECT_EQ(load(dir_.file("image.tif"))->convertToFormat(QImage::Format_RGB32), saved);
}

TEST_F(ImageFile, IsNotTooLargeForQt) {
  // 144 MB of pixels; Qt's own limit is 128.
  QImage large(6000, 6000, QImage::Format_RGB32);
  large.fill(qRgb(1, 2, 3));
  ASSERT_TRUE(FileIO::saveImagePNG(&large, dir_.file("large.png")));
  large = QImage();
  QImageReader::setAllocationLimit(128);
  const OwnedImage image = load(dir_.file("large.png"));
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->size(), QSize(6000, 6000));
  EXPECT_EQ(image->depth(), 32);
  EXPECT_EQ(image->pixel(5999, 5999), qRgb(1, 2, 3));
}

// Real pictures: 8- and 16-bit grey, grey with alpha, RGB and RGBA, PNG and TIFF of both byte
// orders.

std::vector<std::filesystem::path> pictures() {
  std::vector<std::filesystem::path> files;
  std::error_code missing;
  const std::filesystem::path root = std::filesystem::path(RATSEG_SHARED_DIR) / "pictures";
  for (const auto& folder : std::filesystem::directory_iterator(root, missing)) {
    for (const char* name : {"image.png", "image.tif"}) {
      if (std::filesystem::exists(folder.path() / name)) files.push_back(folder.path() / name);
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

void expectColours(const float4* image, const QImage& expected) {
  float lowest = 1, highest = 0;
  for (int y = 0; y < expected.height(); y += 37) {
    for (int x = 0; x < expected.width(); x += 29) {
      const float4& pixel = image[static_cast<std::size_t>(y) * expected.width() + x];
      const QColor colour = expected.pixelColor(x, y);
      const double tolerance = 1 / 255.0 + 1e-6;
      ASSERT_NEAR(pixel.x, colour.redF(), tolerance) << x << ", " << y;
      ASSERT_NEAR(pixel.y, colour.greenF(), tolerance) << x << ", " << y;
      ASSERT_NEAR(pixel.z, colour.blueF(), tolerance) << x << ", " << y;
      lowest = std::min(lowest, pixel.y);
      highest = std::max(highest, pixel.y);
    }
  }
  EXPECT_LT(lowest + 0.1f, highest) << "the picture is of one colour";
}

TEST(Pictures, AreLoadedWithTheirColours) {
  const auto files = pictures();
  if (files.empty()) GTEST_SKIP() << "no folder " << RATSEG_SHARED_DIR << "/pictures";
  ASSERT_EQ(QCoreApplication::instance(), nullptr);
  for (const auto& file : files) {
    SCOPED_TRACE(file);
    float4* loaded = nullptr;
    int w = 0, h = 0;
    ASSERT_TRUE(FileIO::loadImage(file.string(), loaded, w, h, true));
    const std::unique_ptr<float4[]> image(loaded);
    EXPECT_EQ(QSize(w, h), load((file.parent_path() / "truth.png").string())->size());
    expectColours(image.get(), *load(file.string()));
  }
}

}  // namespace
}  // namespace namespace_ratseg
