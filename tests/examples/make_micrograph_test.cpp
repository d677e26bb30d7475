#include <gtest/gtest.h>

#include <QImage>
#include <QString>
#include <filesystem>

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
  ASSERT_EQ(program_.run({dir_.path().string(), "8"}).status, 0);
  EXPECT_NE(LabelPicture::load(dir_.file("truth.png")).pixels, first);
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
  EXPECT_EQ(result.err, "ERROR: " + folder + "/image.png: cannot be written\n");
}

}  // namespace
}  // namespace namespace_ratseg
