#include "app/load_picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QImage>
#include <QString>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "support/turned_photo.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

class LoadPicture : public testing::Test {
 protected:
  LoadPicture() {
    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(qRgb(255, 0, 51));
    image.save(QString::fromStdString(dir_.file("image.png")));
  }

  Image load(const std::string& name, const PictureLimits& limits = kRoomy) {
    return loadPicture(name, limits, [this](const auto& line) { warnings_.push_back(line); });
  }
  std::string errorOf(const std::string& name, const PictureLimits& limits = kRoomy,
                      PictureError::Kind kind = PictureError::Kind::unusable) {
    try {
      load(name, limits);
    } catch (const PictureError& e) {
      EXPECT_EQ(e.kind, kind);
      return e.what();
    }
    return "no error";
  }
  std::string bytesOf(const std::string& name) const {
    std::ifstream in(dir_.file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  // Writes the bytes into a pipe as often as somebody reads them, and calls use(name of the pipe).
  template <class Use>
  void throughPipe(const std::string& bytes, Use&& use) const {
    const std::string pipe = dir_.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::thread writer([&] { std::ofstream(pipe, std::ios::binary) << bytes; });
    use(pipe);
    writer.join();
  }

  static constexpr PictureLimits kRoomy = {.megapixels = 10, .gib = 4};
  const TempDir dir_;
  std::vector<std::string> warnings_;
};

TEST_F(LoadPicture, GivesColoursFromZeroToOne) {
  const Image image = load(dir_.file("image.png"));
  EXPECT_EQ(image.w, 40);
  EXPECT_EQ(image.h, 30);
  EXPECT_EQ(image.count(), 1200u);
  EXPECT_EQ(image.pixels[1199].x, 1.0f);
  EXPECT_EQ(image.pixels[1199].y, 0.0f);
  EXPECT_EQ(image.pixels[1199].z, 0.2f);
  EXPECT_THAT(warnings_, ElementsAre());
}

TEST_F(LoadPicture, OfExactlyThatNameOnly) {
  using Kind = PictureError::Kind;
  const std::string reason = "No such file or directory";
  EXPECT_EQ(errorOf(dir_.file("image"), kRoomy, Kind::unreadable), reason);
  EXPECT_EQ(errorOf(":image.png", kRoomy, Kind::unreadable), reason);
  EXPECT_EQ(errorOf("", kRoomy, Kind::unreadable), reason);
  EXPECT_EQ(errorOf(dir_.path().string(), kRoomy, Kind::unreadable), "Is a directory");
}

TEST_F(LoadPicture, OfAnotherFormat) {
  std::ofstream(dir_.file("text.png")) << "no image";
  EXPECT_EQ(errorOf(dir_.file("text.png"), kRoomy, PictureError::Kind::unknownFormat),
            "is not an image of a format that can be read");
}

TEST_F(LoadPicture, FromAPipe) {
  saveTurnedPhoto(QImage(dir_.file("image.png").c_str()), dir_.file("photo.jpg"));
  throughPipe(bytesOf("photo.jpg"), [this](const auto& pipe) { EXPECT_EQ(load(pipe).w, 40); });
  EXPECT_THAT(warnings_, ElementsAre(StartsWith("asks to be shown turned")));
}

TEST_F(LoadPicture, FromAPipeWithoutEnd) {
  EXPECT_EQ(errorOf("/dev/zero", kRoomy, PictureError::Kind::unknownFormat),
            "is not an image of a format that can be read");
  const std::string begin = "P6 100 100 255\n";
  const PictureLimits small = {.megapixels = 0.1, .gib = 0.0625};
  throughPipe(begin + std::string(std::size_t{65} << 20, 'x'), [&](const auto& pipe) {
    std::ifstream keepsTheWriterGoing(pipe);
    EXPECT_EQ(
        errorOf(pipe, small),
        "has more than 64.0 MiB and is not read to its end (-max-megapixels M and -max-memory "
        "GIB allow more)");
    keepsTheWriterGoing.ignore(std::numeric_limits<std::streamsize>::max());
  });
}

TEST_F(LoadPicture, OfMorePixelsThanAllowedIsNotDecoded) {
  const std::string image = dir_.file("image.png");
  EXPECT_EQ(errorOf(image, {.megapixels = 0.0011, .gib = 1}),
            "has 40 x 30 pixels, 0.1 megapixels, but at most 0.0011 are allowed (-max-megapixels M "
            "allows others)");
  EXPECT_EQ(load(image, {.megapixels = 0.0012, .gib = 1}).w, 40);
  // Nothing follows the header: it is asked first.
  std::ofstream(dir_.file("huge.ppm")) << "P6 32000 6600 255\n";
  EXPECT_EQ(
      errorOf(dir_.file("huge.ppm")),
      "has 32000 x 6600 pixels, 211.2 megapixels, but at most 10 are allowed (-max-megapixels "
      "M allows others)");
}

TEST_F(LoadPicture, ThatNeedsMoreMemoryThanAllowedIsNotDecoded) {
  std::ofstream(dir_.file("large.ppm")) << "P6 4096 2048 255\n";
  EXPECT_EQ(bytesToLoad(1), 28.0);
  EXPECT_EQ(errorOf(dir_.file("large.ppm"), {.megapixels = 10, .gib = 0.125}),
            "has 4096 x 2048 pixels, for which about 224.0 MiB of memory are needed, but 128.0 MiB "
            "are allowed (-max-memory GIB allows others)");
  EXPECT_THAT(errorOf(dir_.file("large.ppm"), {.megapixels = 10, .gib = 0.25}),
              StartsWith("ends early: "));
}

TEST_F(LoadPicture, WithWhatItsDecoderComplainsAbout) {
  QImage(dir_.file("image.png").c_str()).save(dir_.file("photo.jpg").c_str());
  std::string jpeg = bytesOf("photo.jpg");
  jpeg.insert(jpeg.size() - 2, "bytes too many");
  std::ofstream(dir_.file("photo.jpg"), std::ios::binary) << jpeg;
  load(dir_.file("photo.jpg"));
  EXPECT_THAT(
      warnings_,
      ElementsAre("was read with a complaint: Corrupt JPEG data: 13 extraneous bytes before "
                  "marker 0xd9"));
  // Where it cannot be decoded, the complaint is part of the reason.
  jpeg[jpeg.find("\xff\xc0") + 4] = 77;
  std::ofstream(dir_.file("photo.jpg"), std::ios::binary) << jpeg;
  EXPECT_EQ(errorOf(dir_.file("photo.jpg")),
            "cannot be decoded: Unable to read image data (Unsupported JPEG data precision 77)");
}

TEST(PictureLimits, AreWhatTheUserSaysOrWhatThereIs) {
  EXPECT_EQ((PictureLimits{.megapixels = 1, .gib = 0.5}.bytes()), 0.5 * (1 << 30));
  EXPECT_GT(PictureLimits().bytes(), 0.0);
  EXPECT_EQ(PictureLimits().megapixels, 150.0);
}

}  // namespace
}  // namespace namespace_ratseg
