#include "app/dataterm/label_picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "app/dataterm/input_error.h"
#include "app/dataterm/raw_png.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;

class LabelPictureTest : public testing::Test {
 protected:
  LabelPicture load(const RawPng& png) {
    png.save(file_);
    return LabelPicture::load(file_);
  }

  // What is said of a file that cannot be used.
  std::string complaint() {
    try {
      LabelPicture::load(file_);
    } catch (const InputError& e) {
      return e.what();
    }
    return "no complaint";
  }
  std::string complaint(const RawPng& png) {
    png.save(file_);
    return complaint();
  }
  std::string expectedBut(const std::string& found) {
    return file_ + ": expected an 8-bit grey or indexed PNG, but found " + found;
  }

  const TempDir dir_;
  const std::string file_ = dir_.file("labels.png");
};

TEST_F(LabelPictureTest, GreyValuesAreTheNumbersRowByRow) {
  const auto picture = load({3, 2, 8, RawPng::kGrey, {"\x00\x01\x02\x03\xfe\xff", 6}, "", ""});
  EXPECT_EQ(picture.w, 3u);
  EXPECT_EQ(picture.h, 2u);
  EXPECT_THAT(picture.pixels, ElementsAre(0, 1, 2, 3, 254, 255));
}

TEST_F(LabelPictureTest, GreyValuesSurviveATransparentOne) {
  const auto picture =
      load({3, 1, 8, RawPng::kGrey, {"\x00\x01\x02", 3}, "", std::string("\x00\x01", 2)});
  EXPECT_THAT(picture.pixels, ElementsAre(0, 1, 2));
}

TEST_F(LabelPictureTest, IndicesAreTheNumbersWhateverTheirColours) {
  const std::string palette("\xff\xff\xff\x00\x00\x00\xff\x00\x00", 9);
  const auto picture = load({4, 1, 8, RawPng::kIndexed, {"\x02\x00\x01\x02", 4}, palette, ""});
  EXPECT_THAT(picture.pixels, ElementsAre(2, 0, 1, 2));
}

TEST_F(LabelPictureTest, IndicesSurviveTransparentColours) {
  const std::string palette("\x00\x00\x00\xff\x00\x00\x00\xff\x00", 9);
  const auto picture =
      load({3, 1, 8, RawPng::kIndexed, {"\x00\x02\x01", 3}, palette, std::string("\x00", 1)});
  EXPECT_THAT(picture.pixels, ElementsAre(0, 2, 1));
}

TEST_F(LabelPictureTest, IndicesWithTheSameColourStayApart) {
  const auto picture = load({2, 1, 8, RawPng::kIndexed, {"\x01\x00", 2}, "abcabc", ""});
  EXPECT_THAT(picture.pixels, ElementsAre(1, 0));
}

TEST_F(LabelPictureTest, IndicesOfFewerBitsAreRead) {
  const std::string palette("\xff\xff\xff\x00\x00\x00\xff\x00\x00\x00\xff\x00", 12);
  const auto two = load({4, 1, 2, RawPng::kIndexed, "\x6c", palette, ""});
  EXPECT_THAT(two.pixels, ElementsAre(1, 2, 3, 0));
  const auto one = load({4, 1, 1, RawPng::kIndexed, "\x60", palette.substr(0, 6), ""});
  EXPECT_THAT(one.pixels, ElementsAre(0, 1, 1, 0));
}

TEST_F(LabelPictureTest, GreyOfOtherDepthsIsRefused) {
  EXPECT_EQ(complaint({1, 1, 16, RawPng::kGrey, {"\x00\x01", 2}, "", ""}),
            expectedBut("a PNG of 16-bit grey"));
  EXPECT_EQ(complaint({2, 1, 4, RawPng::kGrey, "\x12", "", ""}),
            expectedBut("a PNG of 4-bit grey"));
}

TEST_F(LabelPictureTest, ColoursAreRefused) {
  EXPECT_EQ(complaint({1, 1, 8, RawPng::kColour, "abc", "", ""}),
            expectedBut("a PNG of 8-bit colour"));
  EXPECT_EQ(complaint({1, 1, 8, RawPng::kGreyAlpha, "ab", "", ""}),
            expectedBut("a PNG of 8-bit grey with alpha"));
  EXPECT_EQ(complaint({1, 1, 8, RawPng::kColourAlpha, "abcd", "", ""}),
            expectedBut("a PNG of 8-bit colour with alpha"));
}

TEST_F(LabelPictureTest, OtherFilesAreRefused) {
  EXPECT_EQ(complaint(), expectedBut("a file that does not open: No such file or directory"));
  std::ofstream(file_) << "P2 1 1 255 0 and so on, long enough for a header";
  EXPECT_EQ(complaint(), expectedBut("a file that is no PNG"));
  std::ofstream(file_) << "\x89PNG\r\n";
  EXPECT_EQ(complaint(), expectedBut("a file that is no PNG"));
}

TEST_F(LabelPictureTest, ABrokenPngIsRefused) {
  const RawPng png{3, 2, 8, RawPng::kGrey, {"\x00\x01\x02\x03\xfe\xff", 6}, "", ""};
  std::ofstream(file_, std::ios::binary) << png.bytes().substr(0, 45);
  EXPECT_EQ(complaint(), expectedBut("a PNG that cannot be decoded"));
}

TEST_F(LabelPictureTest, AnUnknownColourTypeIsRefused) {
  EXPECT_EQ(complaint({1, 1, 8, 9, "a", "", ""}), expectedBut("a PNG of 8-bit unknown colours"));
}

TEST(LabelPictureCounts, HistogramAndHighestNumber) {
  const LabelPicture picture{3, 2, {0, 255, 7, 7, 0, 7}};
  const auto counts = picture.histogram();
  EXPECT_EQ(counts[0], 2u);
  EXPECT_EQ(counts[7], 3u);
  EXPECT_EQ(counts[255], 1u);
  EXPECT_EQ(counts[1], 0u);
  EXPECT_EQ(picture.highest(), 255u);
  EXPECT_EQ(LabelPicture().highest(), 0u);
}

}  // namespace
}  // namespace namespace_ratseg
