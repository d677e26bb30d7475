#include "app/dataterm/label_picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

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
    return file_ +
           ": expected an 8-bit grey or indexed PNG, or a TIFF of label numbers, but found " +
           found;
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

TEST_F(LabelPictureTest, GreyOf16BitsIsReadUpTo255) {
  const auto picture = load({2, 1, 16, RawPng::kGrey, {"\x00\x01\x00\xff", 4}, "", ""});
  EXPECT_THAT(picture.pixels, ElementsAre(1, 255));
  EXPECT_EQ(
      complaint({2, 1, 16, RawPng::kGrey, {"\x00\x01\x01\x00", 4}, "", ""}),
      expectedBut("a file that has 256 at column 1, row 0, which is no whole number from 0 to "
                  "255"));
}

TEST_F(LabelPictureTest, GreyOfFewerBitsIsRefused) {
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
  EXPECT_EQ(complaint(), expectedBut("a file that is neither"));
  std::ofstream(file_) << "\x89PNG\r\n";
  EXPECT_EQ(complaint(), expectedBut("a file that is neither"));
}

TEST_F(LabelPictureTest, ABrokenPngIsRefused) {
  const RawPng png{3, 2, 8, RawPng::kGrey, {"\x00\x01\x02\x03\xfe\xff", 6}, "", ""};
  std::ofstream(file_, std::ios::binary) << png.bytes().substr(0, 45);
  EXPECT_EQ(complaint(), expectedBut("a PNG that cannot be decoded: it ends early: 0 of 2 rows are "
                                     "there"));
  std::string bytes = png.bytes();
  bytes[45] = static_cast<char>(bytes[45] ^ 1);  // in the pixels
  std::ofstream(file_, std::ios::binary) << bytes;
  EXPECT_THAT(complaint(),
              testing::StartsWith(expectedBut("a PNG that cannot be decoded: it is damaged: ")));
  bytes = png.bytes();
  bytes[29] = static_cast<char>(bytes[29] ^ 1);
  std::ofstream(file_, std::ios::binary) << bytes;
  EXPECT_EQ(complaint(), expectedBut("a PNG that cannot be decoded: it is damaged: IHDR: CRC "
                                     "error; 0 of 2 rows are there"));
}

TEST_F(LabelPictureTest, IndicesBeyondThePaletteAreKept) {
  const std::string palette(5 * 3, 'c');
  std::vector<std::string> warnings;
  const LabelPicture::Hooks hooks = {[&](const std::string& line) { warnings.push_back(line); },
                                     {}};
  const auto loadWith = [&](const RawPng& png) {
    png.save(file_);
    return LabelPicture::load(file_, hooks).pixels;
  };
  const std::string rows("\x00\x01\x02\x03\x04\x05\x06\xff", 8);
  EXPECT_THAT(loadWith({4, 2, 8, RawPng::kIndexed, rows, palette, ""}),
              ElementsAre(0, 1, 2, 3, 4, 5, 6, 255));
  EXPECT_THAT(loadWith({4, 1, 4, RawPng::kIndexed, "\x14\x6f", palette, ""}),
              ElementsAre(1, 4, 6, 15));
  EXPECT_THAT(loadWith({4, 1, 2, RawPng::kIndexed, "\x6c", palette.substr(0, 6), ""}),
              ElementsAre(1, 2, 3, 0));
  EXPECT_THAT(warnings, ElementsAre("has colour numbers up to 255, but a palette of 5 colours",
                                    "has colour numbers up to 15, but a palette of 5 colours",
                                    "has colour numbers up to 3, but a palette of 2 colours"));
}

TEST_F(LabelPictureTest, InterlacedOnesAreReadAsStored) {
  RawPng png{9, 10, 8, RawPng::kGrey, "", "", ""};
  for (int k = 0; k < 90; ++k) png.rows += static_cast<char>(k * 2);
  png.interlaced = true;
  const auto picture = load(png);
  ASSERT_EQ(picture.pixels.size(), 90u);
  for (std::size_t k = 0; k < 90; ++k) EXPECT_EQ(picture.pixels[k], k * 2) << k;
}

TEST_F(LabelPictureTest, SizeIsAskedBeforeThePixelsAreDecoded) {
  // 60000 x 60000 pixels that are not there.
  RawPng{60000, 60000, 8, RawPng::kGrey, std::string(60000, 'x'), "", ""}.save(file_);
  const auto refuse = [](std::size_t w, std::size_t h) {
    throw std::runtime_error(std::to_string(w) + " x " + std::to_string(h));
  };
  try {
    LabelPicture::load(file_, {{}, refuse});
    ADD_FAILURE() << "taken";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "60000 x 60000");
  }
}

TEST_F(LabelPictureTest, MayBeAPipe) {
  const RawPng png{3, 1, 8, RawPng::kGrey, {"\x00\x01\x02", 3}, "", ""};
  ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
  std::thread writer([&] { png.save(file_); });
  EXPECT_THAT(LabelPicture::load(file_).pixels, ElementsAre(0, 1, 2));
  writer.join();
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
