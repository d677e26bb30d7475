// Headers that say something else than the file holds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <string>

#include "app/malformed/loading.h"
#include "app/malformed/samples.h"

namespace namespace_ratseg {
namespace {

using raw_pictures::little16;
using raw_pictures::little32;

class LyingHeaders : public Malformed {};

std::string big32(unsigned number) {
  const std::string text = little32(number);
  return {text.rbegin(), text.rend()};
}

struct Lie {
  const char* sample;
  std::size_t at;     // of the bytes that are replaced
  std::string bytes;  // instead of them
  char outcome;       // as in malformed_test.cpp
  const char* says;   // what the error or the first warning begins with
};

TEST_F(LyingHeaders, AreNoticed) {
  const std::string huge = little32(0x7fffffff);
  const Lie lies[] = {
      // BMP: where the pixels are, width, height, bits, compression, colours.
      {"24.bmp", 10, huge, 'E', "ends early: 0 of 17 rows"},
      {"24.bmp", 18, little32(25), 'E', "ends early: 16 of 17 rows"},
      {"24.bmp", 18, huge, 'E', "ends early: 0 of 17 rows"},
      {"24.bmp", 22, little32(18), 'E', "ends early: 17 of 18 rows"},
      {"24.bmp", 22, little32(16), 'W', "holds 72 bytes more"},
      {"24.bmp", 22, huge, 'E', "ends early: 17 of 2147483647 rows"},
      {"24.bmp", 28, little16(32), 'E', "ends early: 12 of 17 rows"},
      {"24.bmp", 28, little16(7), 'E', "cannot be decoded: "},
      {"24.bmp", 30, little32(1), 'E', ""},
      {"8.bmp", 46, little32(4), 'W', "has colour numbers up to 5, but a palette of 4 colours"},
      {"8.bmp", 46, little32(10000), 'E', "ends early: "},
      {"rle8.bmp", 22, little32(30), 'W', "holds 17 of 30 rows"},
      {"rle8.bmp", 22, little32(9), 'W', "is damaged: pixels lie outside"},
      // ICO: how many pictures there are, bytes of the first, where it is, its own height.
      {"dib.ico", 4, little16(500), 'E', "ends early: "},
      {"dib.ico", 14, huge, 'E', "ends early: "},
      {"dib.ico", 18, huge, 'E', "ends early: "},
      {"dib.ico", 30, little32(80), 'E', "ends early: "},
      {"two.ico", 34, huge, 'W', "ends early: 1 of 2 pictures"},
      // GIF: the screen's and the picture's size, the palette's, the bits of a pixel.
      {"one.gif", 6, little16(30), 'W', "shows a picture of 24 x 17 pixels"},
      {"one.gif", 6, little16(65535) + little16(65535), 'E', "has 65535 x 65535 pixels"},
      {"one.gif", 42, little16(23), 'W', "is damaged: it holds more pixels"},
      {"one.gif", 44, little16(40), 'E', "ends early: 17 of 40 rows"},
      {"one.gif", 47, "\2", 'E', ""},
      {"one.gif", 47, "\14", 'E', "is damaged: pixels of 12 bits"},
      // JPEG: the length of the first segment.
      {"colour.jpg", 4, "\xff\xff", 'E', "ends early: "},
      // TIFF: width, height, where the first strip is and its bytes, the directory.
      {"strips.tif", 18, little32(25), 'E', "cannot be decoded: "},
      {"strips.tif", 30, little32(100), 'E', "cannot be decoded: "},
      {"strips.tif", 18, huge, 'E', "has 2147483647 x 17 pixels"},
      {"strips.tif", 128, huge, 'E', "cannot be decoded: "},
      {"strips.tif", 148, huge, 'E', "cannot be decoded: "},
      {"strips.tif", 4, huge, 'E', "cannot be decoded: "},
      // Width and height of the others, or their length.
      {"colour.ppm", 3, "25", 'E', "ends early: "},
      {"colour.ppm", 6, "16", 'W', "holds 72 bytes more"},
      {"text.ppm", 21, "25", 'E', "ends early: "},
      {"text.ppm", 24, "16", 'W', "holds more numbers"},
      {"colour.webp", 4, little32(100000), 'E', "ends early: "},
      {"colour.tga", 14, little16(18), 'E', "ends early: "},
      {"colour.icns", 4, big32(1000000), 'E', "ends early: "},
      {"colour.icns", 12, big32(1000000), 'E', ""},
  };
  for (const Lie& lie : lies) {
    std::string bytes = sample(lie.sample).bytes;
    bytes.replace(lie.at, lie.bytes.size(), lie.bytes);
    const Outcome outcome = load(lie.sample, bytes);
    const std::string said = outcome.letter() == 'W' ? outcome.warnings[0] : outcome.error;
    EXPECT_EQ(outcome.letter(), lie.outcome) << lie.sample << " at " << lie.at << ": " << said;
    EXPECT_THAT(said, testing::StartsWith(lie.says)) << lie.sample << " at " << lie.at;
  }
}

// The header has a check sum, which says nothing of a lie.
TEST_F(LyingHeaders, OfPNGAreNoticed) {
  const auto withSize = [](unsigned w, unsigned h) {
    std::string bytes = sample("indexed.png").bytes;
    bytes.replace(16, 8, big32(w) + big32(h));
    const auto sum = crc32(0, reinterpret_cast<const Bytef*>(bytes.data() + 12), 17);
    return bytes.replace(29, 4, big32(static_cast<unsigned>(sum)));
  };
  EXPECT_EQ(load("a.png", withSize(24, 17)).letter(), '.');
  EXPECT_THAT(load("a.png", withSize(24, 18)).error, testing::StartsWith("is damaged: "));
  EXPECT_THAT(load("a.png", withSize(70000, 70000)).error,
              testing::StartsWith("has 70000 x 70000 pixels, 4900 megapixels"));
  EXPECT_THAT(load("a.png", withSize(0, 17)).error, testing::StartsWith("is damaged: "));
  // Too few rows are asked for: libpng says so.
  const Outcome less = load("a.png", withSize(24, 16));
  EXPECT_THAT(less.warnings,
              testing::ElementsAre("was read with a complaint: IDAT: Too much image data"));
}

// Rows that the data does not have. libjpeg fills them, and says so.
TEST_F(LyingHeaders, OfJPEGAreWarnedOf) {
  std::string bytes = sample("colour.jpg").bytes;
  const std::size_t frame = bytes.find("\xff\xc0");
  ASSERT_NE(frame, std::string::npos);
  bytes[frame + 6] = 100;
  const Outcome outcome = load("a.jpg", bytes);
  EXPECT_THAT(outcome.warnings,
              testing::ElementsAre(
                  "was read with a complaint: Corrupt JPEG data: premature end of data segment"));
  bytes[frame + 5] = bytes[frame + 7] = '\xff';
  EXPECT_THAT(load("a.jpg", bytes).error, testing::StartsWith("has 65304 x 65380 pixels"));
}

}  // namespace
}  // namespace namespace_ratseg
