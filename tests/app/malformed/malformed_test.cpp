// What becomes of damaged pictures. The tables are the test: they say of each format what is
// refused, what is taken with a warning and what nobody can notice.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "app/malformed/loading.h"
#include "app/malformed/samples.h"

namespace namespace_ratseg {
namespace {

std::string pixelsOf(const raw_pictures::Example& picture) {
  std::string pixels;
  for (int y = 0; y < picture.h; ++y) {
    for (int x = 0; x < picture.w; ++x) {
      const std::string c = raw_pictures::Example::colour(picture.number(x, y));
      pixels += {c[2], c[1], c[0]};
    }
  }
  return pixels;
}

TEST_F(Malformed, WholePicturesAreTakenWithTheirPixels) {
  for (const Sample& sample : samples()) {
    const Outcome outcome = load(sample.name, sample.bytes);
    EXPECT_EQ(outcome.error, "") << sample.name;
    EXPECT_THAT(outcome.warnings, testing::IsEmpty()) << sample.name;
    EXPECT_EQ(outcome.w, sample.picture.w) << sample.name;
    EXPECT_EQ(outcome.h, sample.picture.h) << sample.name;
    if (sample.name == "cmyk.jpg") continue;  // libjpeg leaves its colours to others
    const bool lossy = sample.name.ends_with(".jpg");
    EXPECT_TRUE(outcome.pixels ==
                (lossy ? decodedByLibjpeg(sample.bytes) : pixelsOf(sample.picture)))
        << sample.name;
  }
}

struct Row {
  const char* name;
  const char* cuts;  // at 1/14, 2/14, ... 13/14 of the bytes and before the last byte
  // Of 200 files with a wrong bit each, how many are taken without a word, but with other pixels:
  // what the format cannot show.
  int unnoticed;
  int resized = 0;  // those of them that have another size then
};

const Row kRows[] = {
    {"colour.png", "EEEEEEEEEEEEEW", 0},     {"indexed.png", "EEEEEEEEEEEEEW", 0},
    {"interlaced.png", "EEEEEEEEEEEEEW", 0}, {"colour.jpg", "EEEEEEEEEEEEEW", 86},
    {"restarts.jpg", "EEEEEEEEEEEEEW", 78},  {"progressive.jpg", "EEEEEEEEEEEEEE", 82},
    {"grey.jpg", "EEEEEEEEEEEEEW", 72},      {"cmyk.jpg", "EEEEEEEEEEEEEW", 123},
    {"one.gif", "EEEEEEEEEEEEEW", 57},       {"interlaced.gif", "EEEEEEEEEEEEEW", 50},
    {"animated.gif", "EEEEEEEEWWWWWW", 24},  {"24.bmp", "EEEEEEEEEEEEEE", 189},
    {"32.bmp", "EEEEEEEEEEEEEE", 139},       {"down.bmp", "EEEEEEEEEEEEEE", 171},
    {"8.bmp", "EEEEEEEEEEEEEE", 51},         {"os2.bmp", "EEEEEEEEEEEEEE", 68},
    {"4.bmp", "EEEEEEEEEEEEEE", 95},         {"1.bmp", "EEEEEEEEEEEEEE", 104, 1},
    {"rle8.bmp", "EEEEEEEEEEEEEW", 41},      {"rle4.bmp", "EEEEEEEEEEEEEW", 44},
    {"dib.ico", "EEEEEEEEEEEEEE", 182},      {"png.ico", "EEEEEEEEEEEEEE", 0},
    {"two.ico", "EEEEEEEWWWWWWW", 94},       {"strips.tif", "EEEEEEEEEEEEEE", 185},
    {"plain.tif", "EEEEEEEEEEEEEE", 160},    {"lzw.tif", "EEEEEEEEEEEEEE", 41},
    {"colour.ppm", "EEEEEEEEEEEEEE", 198},   {"two.pbm", "EEEEEEEEEEEEEE", 170, 1},
    {"text.ppm", "EEEEEEEEEEEEE.", 58},      {"text.pbm", "EEEEEEEEEEEEE.", 12},
    {"colour.xpm", "EEEEEEEEEEEEE.", 130},   {"two.xbm", "EEEEEEEEEEEEE.", 26},
    {"colour.webp", "EEEEEEEEEEEEEE", 57},   {"colour.tga", "EEEEEEEEEEEEEE", 190},
    {"colour.icns", "EEEEEEEEEEEEEE", 0},    {"two.wbmp", "EEEEEEEEEEEEEE", 184},
};

TEST_F(Malformed, CutOnesAreRefusedOrWarnedOf) {
  for (const Row& row : kRows) {
    const Sample whole = sample(row.name);
    const std::string pixels = load(whole.name, whole.bytes).pixels;
    std::string letters;
    for (std::size_t k = 1; k <= 14; ++k) {
      const std::size_t length = k < 14 ? whole.bytes.size() * k / 14 : whole.bytes.size() - 1;
      const Outcome outcome = load(whole.name, whole.bytes.substr(0, length));
      letters += outcome.letter();
      EXPECT_TRUE(outcome.letter() != '.' || outcome.pixels == pixels) << row.name << " " << k;
    }
    EXPECT_EQ(letters, row.cuts) << row.name;
  }
}

TEST_F(Malformed, WrongBitsAreNoticedAsFarAsTheFormatShowsThem) {
  for (const Row& row : kRows) {
    const Sample whole = sample(row.name);
    const std::string pixels = load(whole.name, whole.bytes).pixels;
    std::mt19937 random(12345);
    int unnoticed = 0, resized = 0;
    std::map<char, int> letters;
    for (int k = 0; k < 200; ++k) {
      const std::size_t bit = random() % (whole.bytes.size() * 8);
      std::string bytes = whole.bytes;
      bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
      const Outcome outcome = load(whole.name, bytes);
      ++letters[outcome.letter()];
      if (outcome.letter() != '.') continue;
      if (outcome.pixels != pixels) ++unnoticed;
      if (outcome.w != whole.picture.w || outcome.h != whole.picture.h) ++resized;
    }
    EXPECT_EQ(unnoticed, row.unnoticed)
        << row.name << ": " << letters['E'] << " refused, " << letters['W'] << " warned of";
    EXPECT_EQ(resized, row.resized) << row.name;
  }
}

TEST_F(Malformed, EachSampleIsInTheTable) {
  const auto all = samples();
  ASSERT_EQ(all.size(), std::size(kRows));
  for (std::size_t k = 0; k < all.size(); ++k) EXPECT_EQ(all[k].name, kRows[k].name);
}

}  // namespace
}  // namespace namespace_ratseg
