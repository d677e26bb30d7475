#include <gtest/gtest.h>

#include <QImage>
#include <QString>
#include <string>
#include <vector>

#include "support/packed_array.h"
#include "support/program.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

// A truth of 8 pixels in 2 rows: labels 0, 0, 1 and the background 2 in the upper one, background
// in the lower one; and two labelings.
class CompareLabelings : public testing::Test {
 protected:
  CompareLabelings() {
    program_.path = RATSEG_BIN_DIR "/compare_labelings";
    program_.folder = dir_.path().string();
    saveGrey("truth.png", {0, 0, 1, 2, 2, 2, 2, 2});
    saveGrey("scribbles.png", {1, 0, 2, 3, 0, 0, 0, 3});
    writePackedArray<int>(dir_.file("a.gz"), {0, 1, 1, 2, 2, 2, 2, 2});
    writePackedArray<int>(dir_.file("b.gz"), {0, 0, 1, 1, 2, 2, 2, 3});
  }

  void saveGrey(const std::string& name, const std::vector<unsigned char>& values) const {
    QImage image(4, 2, QImage::Format_Grayscale8);
    for (int y = 0; y < 2; ++y) {
      for (int x = 0; x < 4; ++x)
        image.scanLine(y)[x] = values[static_cast<std::size_t>(y * 4 + x)];
    }
    ASSERT_TRUE(image.save(QString::fromStdString(dir_.file(name))));
  }

  ProgramResult run(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words = {"-truth",     "truth.png", "-scribbles", "scribbles.png",
                                      "-labelings", "a.gz",      "b.gz",       "-names",
                                      "first",      "the second"};
    words.insert(words.end(), more.begin(), more.end());
    return program_.run(words);
  }

  const TempDir dir_;
  Program program_;
};

TEST_F(CompareLabelings, PrintsTheTable) {
  const ProgramResult result = run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "            accuracy    share of the foreground of label\n"
            "                             0         1\n"
            "truth                   0.6667    0.3333\n"
            "first         0.7500    0.3333    0.6667\n"
            "the second    1.0000    0.5000    0.5000\n"
            "Accuracy is counted where there are no scribbles.\n");
}

TEST_F(CompareLabelings, PrintsSharesWhereTheTruthIsUnknown) {
  const ProgramResult result =
      program_.run({"-scribbles", "scribbles.png", "-labelings", "a.gz", "-names", "first",
                    "-image", "truth.png", "-sheet", "sheet.png"});
  EXPECT_EQ(result.out,
            "         share of the foreground of label\n"
            "              0         1\n"
            "first    0.3333    0.6667\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(QImage(QString::fromStdString(dir_.file("sheet.png"))).size(), QSize(2 * 4 + 6, 2));
}

TEST_F(CompareLabelings, PrintsSharesOfTheImage) {
  EXPECT_EQ(run({"-shares", "image"}).out,
            "            accuracy    share of the image of label\n"
            "                             0         1         2\n"
            "truth                   0.2500    0.1250    0.6250\n"
            "first         0.7500    0.1250    0.2500    0.6250\n"
            "the second    1.0000    0.2857    0.2857    0.4286\n"
            "Accuracy is counted where there are no scribbles.\n");
}

TEST_F(CompareLabelings, DrawsThePicturesSideBySide) {
  ASSERT_EQ(run({"-image", "truth.png", "-sheet", "sheet.png"}).status, 0);
  const QImage sheet(QString::fromStdString(dir_.file("sheet.png")));
  // Four panels with gaps of six pixels.
  ASSERT_EQ(sheet.size(), QSize(4 * 4 + 3 * 6, 2));
  EXPECT_EQ(sheet.pixel(2, 0), qRgb(1, 1, 1));
  const QRgb green = qRgb(0, 255, 0), white = qRgb(255, 255, 255);
  for (int panel = 1; panel <= 3; ++panel) {
    EXPECT_EQ(sheet.pixel(panel * 10, 0), green) << panel;
    EXPECT_EQ(sheet.pixel(panel * 10 + 3, 1), white) << panel;
  }
  EXPECT_EQ(sheet.pixel(11, 0), green);
  EXPECT_NE(sheet.pixel(21, 0), green);
}

TEST_F(CompareLabelings, SaysWhatIsWrong) {
  EXPECT_EQ(run({"-names", "one"}).err,
            "ERROR: -names: expected 2 names, one for each labeling, but found 1\n");
  EXPECT_EQ(run({"-labelings", "a.gz", "none.gz"}).err,
            "ERROR: none.gz: expected 8 labels, one for each pixel, but found something else\n");
  QImage other(3, 3, QImage::Format_Grayscale8);
  other.fill(0);
  ASSERT_TRUE(other.save(QString::fromStdString(dir_.file("other.png"))));
  EXPECT_EQ(run({"-truth", "other.png"}).err,
            "ERROR: other.png: expected 4 x 2 pixels as in the scribbles, but found 3 x 3 "
            "pixels\n");
  EXPECT_EQ(run({"-truth"}).err, "ERROR: -truth: expected a value, but found none\n");
  EXPECT_EQ(run({"-image", "truth.png", "-sheet", "nowhere/s.png"}).status, 1);
  EXPECT_EQ(run({"-image", "none.png", "-sheet", "s.png"}).err,
            "ERROR: none.png: expected an image, but found none\n");
}

}  // namespace
}  // namespace namespace_ratseg
