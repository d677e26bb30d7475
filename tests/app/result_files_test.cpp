#include "app/result_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QImage>
#include <QString>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "support/full_device.h"
#include "support/packed_array.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kLowest = std::numeric_limits<float>::lowest();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

void expectColour(const RGB& colour, float red, float green, float blue, float tolerance = 0) {
  EXPECT_NEAR(colour.x, red, tolerance);
  EXPECT_NEAR(colour.y, green, tolerance);
  EXPECT_NEAR(colour.z, blue, tolerance);
  EXPECT_EQ(colour.w, 1.0f);
}

TEST(LabelColours, OneForegroundLabelIsGreenAndTheBackgroundWhite) {
  const std::vector<RGB> colours = labelColours(2);
  ASSERT_EQ(colours.size(), 2u);
  expectColour(colours[0], 0, 1, 0);
  expectColour(colours[1], 1, 1, 1);
}

TEST(LabelColours, TwoForegroundLabelsAreGreenAndMagenta) {
  const std::vector<RGB> colours = labelColours(3);
  ASSERT_EQ(colours.size(), 3u);
  expectColour(colours[0], 0, 1, 0);
  expectColour(colours[1], 1, 0, 1);
  expectColour(colours[2], 1, 1, 1);
}

TEST(LabelColours, ThreeForegroundLabelsAreGreenBlueAndRed) {
  const std::vector<RGB> colours = labelColours(4);
  ASSERT_EQ(colours.size(), 4u);
  expectColour(colours[0], 0, 1, 0);
  expectColour(colours[1], 0, 0, 1);
  expectColour(colours[2], 1, 0, 0);
  expectColour(colours[3], 1, 1, 1);
}

TEST(LabelColours, HuesAdvanceInEqualStepsFromGreen) {
  // Twelve steps of half a sector: every sector's start and middle.
  const float hues[12][3] = {{0, 1, 0}, {0, 1, .5f}, {0, 1, 1}, {0, .5f, 1},
                             {0, 0, 1}, {.5f, 0, 1}, {1, 0, 1}, {1, 0, .5f},
                             {1, 0, 0}, {1, .5f, 0}, {1, 1, 0}, {.5f, 1, 0}};
  const std::vector<RGB> colours = labelColours(13);
  ASSERT_EQ(colours.size(), 13u);
  for (std::size_t i = 0; i < 12; ++i) {
    SCOPED_TRACE(i);
    expectColour(colours[i], hues[i][0], hues[i][1], hues[i][2], 2e-6f);
  }
  expectColour(colours[12], 1, 1, 1);
}

// The yellow of seven labels is a trace less than full green, which a picture shows as 254.
TEST(LabelColours, AreComputedInSinglePrecision) {
  expectColour(labelColours(5)[1], 0, 0.499999762f, 1);
  expectColour(labelColours(6)[4], 1, 0.799999952f, 0);
  expectColour(labelColours(7)[5], 1, 0.999999762f, 0);
  expectColour(labelColours(8)[6], 0.857142925f, 1, 0);
  expectColour(labelColours(12)[1], 0, 1, 0.545454502f);
  expectColour(labelColours(12)[5], 0.727272987f, 0, 1);
  expectColour(labelColours(12)[7], 1, 0, 0.181818008f);
}

TEST(LabelColours, ManyLabelsStayWithinTheColourRange) {
  for (const RGB& c : labelColours(1024)) {
    EXPECT_TRUE(c.x >= 0 && c.x <= 1 && c.y >= 0 && c.y <= 1 && c.z >= 0 && c.z <= 1);
  }
}

TEST(HardLabeling, TakesTheGreatestValueOfEachPixel) {
  const std::vector<float> solution = {0, 1, 0, -5,   // label 0
                                       0, 0, 1, -3,   // label 1
                                       1, 0, 0, -4};  // label 2
  EXPECT_EQ(hardLabeling(solution.data(), 4, 3), (std::vector<int>{2, 0, 1, 1}));
}

TEST(HardLabeling, TiesGoToTheLowestLabel) {
  const std::vector<float> solution = {0,    0.2f,   // label 0
                                       0.5f, 0.4f,   // label 1
                                       0.5f, 0.4f};  // label 2
  EXPECT_EQ(hardLabeling(solution.data(), 2, 3), (std::vector<int>{1, 1}));
}

TEST(HardLabeling, HalfAndHalfIsLabelZeroEverywhere) {
  const std::vector<float> solution(2 * 6, 0.5f);
  EXPECT_EQ(hardLabeling(solution.data(), 6, 2), std::vector<int>(6, 0));
}

TEST(HardLabeling, PixelsWithoutAGreatestValueAreLabelZero) {
  const std::vector<float> solution = {kNaN, kLowest, -kInfinity, kNaN, kNaN,      // label 0
                                       kNaN, kLowest, -kInfinity, 0.0f, kLowest};  // label 1
  EXPECT_EQ(hardLabeling(solution.data(), 5, 2), (std::vector<int>{0, 0, 0, 1, 0}));
}

TEST(ColourLabeling, GivesEachPixelItsLabelsColour) {
  const std::vector<RGB> image = colourLabeling({1, 0, 1}, labelColours(2));
  ASSERT_EQ(image.size(), 3u);
  expectColour(image[0], 1, 1, 1);
  expectColour(image[1], 0, 1, 0);
  expectColour(image[2], 1, 1, 1);
}

TEST(BlendOverImage, TakesFourTenthsOfTheImageAndSixTenthsOfTheColour) {
  const RGB image[2] = {{1, 0.5f, 0, 0}, {0.25f, 0.75f, 1, 0}};
  std::vector<RGB> colours = {{0, 1, 0.5f, 0.5f}, {1, 1, 1, 1}};
  blendOverImage(colours, image);
  expectColour(colours[0], 0.4f, 0.5f * 0.4f + 0.6f, 0.5f * 0.6f);
  expectColour(colours[1], 0.25f * 0.4f + 0.6f, 0.75f * 0.4f + 0.6f, 0.4f + 0.6f);
}

class ResultFiles : public testing::Test {
 protected:
  std::string write(const std::string& prefix) const {
    testing::internal::CaptureStdout();
    writeResultFiles(prefix, {2, 1, 2, labeling_, image_, weight_});
    return testing::internal::GetCapturedStdout();
  }
  QImage saved(const std::string& name) const {
    return QImage(QString::fromStdString(dir_.file(name)));
  }

  const TempDir dir_;
  const std::vector<int> labeling_ = {1, 0};
  const RGB image_[2] = {{0, 0, 0, 1}, {1, 1, 1, 1}};
  const float weight_[2] = {1.0f, 0.5f};
};

TEST_F(ResultFiles, AreAnnouncedInOrderWithTheLegendOfTheColours) {
  const std::string p = dir_.file("p");
  EXPECT_EQ(write(p), "Saved " + p + "_result_labeling.gz  (zlib-packed plain int array)\n" +
                          "Saved " + p + "_result_labeling.png\n" +
                          "  Color for foreground label 0: (0, 1, 0)\n"
                          "  Color for background label 1: (1, 1, 1)\n"
                          "Saved " +
                          p + "_result_labeling_overlaid.png\n" + "Saved " + p +
                          "_regularizer_weight.png\n");
}

TEST_F(ResultFiles, HaveALegendOfSixDigits) {
  testing::internal::CaptureStdout();
  writeResultFiles(dir_.file("p"), {2, 1, 8, labeling_, image_, weight_});
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              testing::HasSubstr("_result_labeling.png\n"
                                 "  Color for foreground label 0: (0, 1, 0)\n"
                                 "  Color for foreground label 1: (0, 1, 0.857143)\n"
                                 "  Color for foreground label 2: (0, 0.285714, 1)\n"
                                 "  Color for foreground label 3: (0.571429, 0, 1)\n"
                                 "  Color for foreground label 4: (1, 0, 0.571428)\n"
                                 "  Color for foreground label 5: (1, 0.285715, 0)\n"
                                 "  Color for foreground label 6: (0.857143, 1, 0)\n"
                                 "  Color for background label 7: (1, 1, 1)\n"
                                 "Saved "));
}

TEST_F(ResultFiles, HoldLabelingColoursOverlayAndWeight) {
  write(dir_.file("p"));
  EXPECT_EQ(readPackedArray<int>(dir_.file("p_result_labeling.gz")), labeling_);
  EXPECT_EQ(saved("p_result_labeling.png").pixel(0, 0), qRgb(255, 255, 255));
  EXPECT_EQ(saved("p_result_labeling.png").pixel(1, 0), qRgb(0, 255, 0));
  EXPECT_EQ(saved("p_result_labeling_overlaid.png").pixel(0, 0), qRgb(153, 153, 153));
  EXPECT_EQ(saved("p_result_labeling_overlaid.png").pixel(1, 0), qRgb(102, 255, 102));
  EXPECT_EQ(saved("p_regularizer_weight.png").pixel(0, 0), qRgb(255, 255, 255));
  EXPECT_EQ(saved("p_regularizer_weight.png").pixel(1, 0), qRgb(127, 127, 127));
}

TEST_F(ResultFiles, ThatCannotBeWrittenAreReportedOneByOneAndWithoutLegend) {
  const std::string p = dir_.file("missing/p");
  EXPECT_EQ(write(p), "ERROR saving " + p + "_result_labeling.gz  (zlib-packed plain int array)\n" +
                          "ERROR saving " + p + "_result_labeling.png\n" + "ERROR saving " + p +
                          "_result_labeling_overlaid.png\n" + "ERROR saving " + p +
                          "_regularizer_weight.png\n");
}

TEST_F(ResultFiles, AreWrittenAlthoughOneBeforeThemCouldNotBe) {
  std::filesystem::create_directory(dir_.file("p_result_labeling.png"));
  const std::string p = dir_.file("p");
  EXPECT_EQ(write(p), "Saved " + p + "_result_labeling.gz  (zlib-packed plain int array)\n" +
                          "ERROR saving " + p + "_result_labeling.png\n" + "Saved " + p +
                          "_result_labeling_overlaid.png\n" + "Saved " + p +
                          "_regularizer_weight.png\n");
  EXPECT_EQ(saved("p_result_labeling_overlaid.png").pixel(1, 0), qRgb(102, 255, 102));
}

TEST_F(ResultFiles, MayFailOneByOne) {
  const std::vector<std::string> suffixes = {
      "_result_labeling.gz  (zlib-packed plain int array)\n", "_result_labeling.png\n",
      "_result_labeling_overlaid.png\n", "_regularizer_weight.png\n"};
  for (const std::string& failing : suffixes) {
    const TempDir dir;
    const std::string p = dir.file("p");
    const std::string ending = failing.substr(0, failing.find_first_of(" \n"));
    std::filesystem::create_directory(p + ending);
    std::string expected;
    for (const std::string& suffix : suffixes) {
      expected += (suffix == failing ? "ERROR saving " : "Saved ") + p + suffix;
      if (suffix == suffixes[1] && failing != suffix) {
        expected +=
            "  Color for foreground label 0: (0, 1, 0)\n"
            "  Color for background label 1: (1, 1, 1)\n";
      }
    }
    EXPECT_EQ(write(p), expected);
  }
}

TEST_F(ResultFiles, ThatDoNotFitOntoTheDiskAreNotSaved) {
  const std::string full = fullDevice(dir_);
  if (full.empty()) GTEST_SKIP() << "no device that is full";
  const std::string p = dir_.file("p");
  for (const char* suffix : {"_result_labeling.gz", "_result_labeling.png",
                             "_result_labeling_overlaid.png", "_regularizer_weight.png"}) {
    std::filesystem::create_symlink(full, p + suffix);
  }
  EXPECT_EQ(write(p), "ERROR saving " + p + "_result_labeling.gz  (zlib-packed plain int array)\n" +
                          "ERROR saving " + p + "_result_labeling.png\n" + "ERROR saving " + p +
                          "_result_labeling_overlaid.png\n" + "ERROR saving " + p +
                          "_regularizer_weight.png\n");
}

TEST_F(ResultFiles, ReplaceOlderOnes) {
  writePackedArray(dir_.file("p_result_labeling.gz"), std::vector<int>(1000, 7));
  write(dir_.file("p"));
  EXPECT_EQ(readPackedArray<int>(dir_.file("p_result_labeling.gz")), labeling_);
}

}  // namespace
}  // namespace namespace_ratseg
