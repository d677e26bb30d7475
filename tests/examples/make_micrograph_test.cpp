#include <gtest/gtest.h>

#include <QImage>
#include <QString>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "app/dataterm/label_picture.h"
#include "support/program.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

class MakeMicrograph : public testing::Test {
 protected:
  MakeMicrograph() { program_.path = RATSEG_BIN_DIR "/make_micrograph"; }

  const TempDir dir_;
  Program program_;
};

TEST_F(MakeMicrograph, WritesThePictureItsLabelsAndScribbles) {
  const ProgramResult result = program_.run({dir_.path().string()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
  const QImage image(QString::fromStdString(dir_.file("image.png")));
  EXPECT_EQ(image.size(), QSize(640, 480));
  EXPECT_EQ(image.format(), QImage::Format_Grayscale8);
  const LabelPicture truth = LabelPicture::load(dir_.file("truth.png"));
  EXPECT_EQ(truth.w, 640u);
  EXPECT_EQ(truth.h, 480u);
  EXPECT_EQ(truth.highest(), 3u);
  EXPECT_EQ(LabelPicture::load(dir_.file("scribbles.png")).highest(), 4u);
}

TEST_F(MakeMicrograph, TakesASeed) {
  ASSERT_EQ(program_.run({dir_.path().string()}).status, 0);
  const auto first = LabelPicture::load(dir_.file("truth.png")).pixels;
  std::filesystem::create_directory(dir_.file("8"));
  ASSERT_EQ(program_.run({dir_.file("8"), "8"}).status, 0);
  EXPECT_NE(LabelPicture::load(dir_.file("8/truth.png")).pixels, first);
}

TEST_F(MakeMicrograph, LeavesOtherPicturesAlone) {
  ASSERT_EQ(program_.run({dir_.path().string()}).status, 0);
  const auto text = [&](const std::string& name) {
    std::ifstream in(dir_.file(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  const std::string drawn = text("image.png");
  EXPECT_EQ(program_.run({dir_.path().string()}).status, 0);
  EXPECT_EQ(text("image.png"), drawn);

  QImage scribbles(QString::fromStdString(dir_.file("scribbles.png")));
  scribbles.setPixel(0, 0, scribbles.pixelIndex(0, 0) == 1 ? 2 : 1);
  ASSERT_TRUE(scribbles.save(QString::fromStdString(dir_.file("scribbles.png"))));
  const auto expectRefused = [&](const std::string& name) {
    const std::string before = text(name);
    std::filesystem::remove(dir_.file("image.png"));
    const ProgramResult result = program_.run({dir_.path().string()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "ERROR: " + dir_.file(name) +
                  ": is another picture than the one to be drawn; nothing is written\n");
    EXPECT_EQ(text(name), before);
    EXPECT_FALSE(std::filesystem::exists(dir_.file("image.png")));
  };
  expectRefused("scribbles.png");
  std::ofstream(dir_.file("truth.png")) << "no picture";
  expectRefused("truth.png");
}

TEST_F(MakeMicrograph, SaysHowItIsCalled) {
  for (const auto& words : {std::vector<std::string>{}, {".", "x"}, {".", "1", "2"}}) {
    const ProgramResult result = program_.run(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "Usage: make_micrograph FOLDER [SEED]\n");
  }
}

TEST_F(MakeMicrograph, SaysThatItCannotWrite) {
  const std::string folder = dir_.file("nowhere");
  const ProgramResult result = program_.run({folder});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "ERROR: " + folder + "/image.png: cannot be written: No such file or directory\n");
}

}  // namespace
}  // namespace namespace_ratseg
