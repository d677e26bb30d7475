#include "util/pictures/wholeness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QBuffer>
#include <QImage>
#include <QImageWriter>
#include <string>
#include <vector>

#include "support/raw_pictures.h"

namespace namespace_ratseg {

void PrintTo(const Wholeness& whole, std::ostream* out) {
  *out << "error \"" << whole.error << "\", warning \"" << whole.warning << "\"";
}

namespace {

using raw_pictures::BMP;
using raw_pictures::Example;
using raw_pictures::GIF;
using std::string_literals::operator""s;

MATCHER(IsWhole, "") { return arg.error.empty() && arg.warning.empty(); }
MATCHER_P(IsRefused, text, "") { return arg.error == text; }
MATCHER_P(IsWarnedOf, text, "") { return arg.error.empty() && arg.warning == text; }

QImage image() {
  const Example example;
  QImage result(example.w, example.h, QImage::Format_RGB32);
  for (int y = 0; y < example.h; ++y) {
    for (int x = 0; x < example.w; ++x) {
      const unsigned n = example.number(x, y);
      result.setPixel(x, y, qRgb(static_cast<int>(n) * 40, x * 10, y * 15));
    }
  }
  return result;
}

std::string encoded(const std::string& format, bool progressive = false) {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  QImageWriter writer(&buffer, QByteArray::fromStdString(format));
  writer.setProgressiveScanWrite(progressive);
  EXPECT_TRUE(writer.write(format == "ICNS" ? image().scaled(32, 32) : image())) << format;
  return bytes.toStdString();
}

std::string with(std::string bytes, std::size_t at, const std::string& other) {
  return bytes.replace(at, other.size(), other);
}

TEST(Wholeness, OfWhatIsNotKnownIsNotJudged) {
  EXPECT_THAT(checkWholeness(""), IsWhole());
  EXPECT_THAT(checkWholeness("P"), IsWhole());
  EXPECT_THAT(checkWholeness("P9 some text"), IsWhole());
  EXPECT_THAT(checkWholeness(encoded("TIFF").substr(0, 100)), IsWhole());
}

// BMP

std::vector<BMP> unusualBMPs() {
  std::vector<BMP> all;
  for (const int bits : {4, 8, 16, 24, 32}) {
    for (const int header : {12, 40, 64, 108, 124}) {
      all.push_back({.bits = bits, .headerLength = header});
    }
    all.push_back({.bits = bits, .topDown = true, .gap = 6});
  }
  for (const int header : {12, 40, 124}) {
    all.push_back({.picture = {24, 17, 2}, .bits = 1, .headerLength = header});
  }
  all.push_back({.bits = 8, .runs = true});
  all.push_back({.bits = 4, .runs = true});
  all.push_back({.bits = 8, .runs = true, .paletteColours = 6});
  all.push_back({.bits = 8, .paletteColours = 6});
  all.push_back({.bits = 4, .paletteColours = 6});
  all.push_back({.bits = 16, .masks = true});
  all.push_back({.bits = 32, .masks = true});
  all.push_back({.picture = {23, 3, 6}, .bits = 4});
  return all;
}

TEST(WholenessOfBMP, UnusualOnesAreWhole) {
  for (const BMP& bmp : unusualBMPs()) {
    EXPECT_THAT(checkWholeness(bmp.bytes()), IsWhole())
        << bmp.bits << " bits, header of " << bmp.headerLength << ", runs " << bmp.runs;
  }
  EXPECT_THAT(checkWholeness(encoded("BMP")), IsWhole());
}

TEST(WholenessOfBMP, CutOnesTellTheRowsThatAreThere) {
  const std::string whole = BMP{.bits = 24}.bytes();
  EXPECT_THAT(checkWholeness(whole.substr(0, whole.size() - 1)),
              IsRefused("ends early: 16 of 17 rows are there"));
  EXPECT_THAT(checkWholeness(whole.substr(0, 54 + 72)),
              IsRefused("ends early: 1 of 17 rows are there"));
  EXPECT_THAT(checkWholeness(whole.substr(0, 54)), IsRefused("ends early: 0 of 17 rows are there"));
  EXPECT_THAT(checkWholeness(whole.substr(0, 53)),
              IsRefused("ends early: 53 of 54 bytes of its header are there"));
  EXPECT_THAT(checkWholeness(whole.substr(0, 17)),
              IsRefused("ends early: its header is not complete"));
  const std::string runs = BMP{.bits = 8, .runs = true}.bytes();
  EXPECT_THAT(checkWholeness(runs.substr(0, runs.size() - 2)), IsWarnedOf("has no end mark"));
  EXPECT_THAT(checkWholeness(runs.substr(0, 14 + 40 + 1024)),
              IsRefused("ends early: 0 of 17 rows are there"));
  EXPECT_THAT(checkWholeness(runs.substr(0, runs.size() - 7)),
              IsRefused("ends early: 16 of 17 rows are there"));
}

TEST(WholenessOfBMP, HeadersThatLie) {
  const std::string whole = BMP{.bits = 8}.bytes();
  EXPECT_THAT(checkWholeness(with(whole, 22, raw_pictures::little32(18))),
              IsRefused("ends early: 17 of 18 rows are there"));
  EXPECT_THAT(checkWholeness(with(whole, 22, raw_pictures::little32(0x7fffffff))),
              IsRefused("ends early: 17 of 2147483647 rows are there"));
  EXPECT_THAT(checkWholeness(with(whole, 22, raw_pictures::little32(16))),
              IsWarnedOf("holds 24 bytes more than its size needs"));
  EXPECT_THAT(checkWholeness(with(whole, 10, raw_pictures::little32(0xffffffff))),
              IsRefused("ends early: 0 of 17 rows are there"));
  EXPECT_THAT(checkWholeness(with(whole, 46, raw_pictures::little32(5))),
              IsWarnedOf("has colour numbers up to 5, but a palette of 5 colours"));
  EXPECT_THAT(checkWholeness(BMP{.bits = 4, .paletteColours = 3}.bytes()),
              IsWarnedOf("has colour numbers up to 5, but a palette of 3 colours"));
  EXPECT_THAT(checkWholeness(BMP{.bits = 4, .runs = true, .paletteColours = 3}.bytes()),
              IsWarnedOf("has colour numbers up to 5, but a palette of 3 colours"));
  const std::string runs = BMP{.bits = 8, .runs = true}.bytes();
  EXPECT_THAT(checkWholeness(with(runs, 18, raw_pictures::little32(23))),
              IsWarnedOf("is damaged: pixels lie outside of its size"));
  EXPECT_THAT(checkWholeness(with(runs, 18, raw_pictures::little32(25))),
              IsWarnedOf("has rows of at most 24 pixels, but a width of 25"));
  EXPECT_THAT(checkWholeness(with(runs, 22, raw_pictures::little32(19))),
              IsWarnedOf("holds 17 of 19 rows; the others are taken as empty"));
}

// ICO

TEST(WholenessOfICO, FirstPictureCounts) {
  const std::string bmp = BMP{.bits = 24}.inIcon(), png = encoded("PNG");
  const std::string two = raw_pictures::ico({bmp, png});
  EXPECT_THAT(checkWholeness(two), IsWhole());
  EXPECT_THAT(checkWholeness(with(two, 2, "\2")), IsWhole());  // a cursor
  EXPECT_THAT(checkWholeness(raw_pictures::ico({png, bmp})), IsWhole());
  EXPECT_THAT(checkWholeness(encoded("ICO")), IsWhole());
  EXPECT_THAT(checkWholeness(two.substr(0, two.size() - 1)),
              IsWarnedOf("ends early: 1 of 2 pictures in it are not complete; the first one is, "
                         "and is used"));
  EXPECT_THAT(checkWholeness(two.substr(0, 38 + bmp.size() - 1)),
              IsRefused("ends early: " + std::to_string(37 + bmp.size()) + " of " +
                        std::to_string(38 + bmp.size()) + " bytes are there"));
  EXPECT_THAT(checkWholeness(two.substr(0, 37)),
              IsRefused("ends early: 37 of 38 bytes of its header are there"));
  // Its entry speaks of less than its header.
  const std::string one = raw_pictures::ico({bmp});
  const std::string less = with(one, 14, raw_pictures::little32(100)).substr(0, one.size() - 50);
  EXPECT_THAT(checkWholeness(less),
              IsRefused("ends early: " + std::to_string(one.size() - 50) + " of " +
                        std::to_string(one.size()) + " bytes are there"));
  const std::string cutPng = raw_pictures::ico({png.substr(0, png.size() / 2)});
  EXPECT_THAT(checkWholeness(cutPng).error, testing::StartsWith("ends early: "));
}

// GIF

TEST(WholenessOfGIF, UnusualOnesAreWhole) {
  for (const GIF& gif :
       {GIF{}, GIF{.frames = 3}, GIF{.interlaced = true}, GIF{.localPalette = true},
        GIF{.extension = true}, GIF{.endCode = false}, GIF{.codeBits = 8},
        GIF{.picture = {24, 17, 2}, .codeBits = 2}, GIF{.picture = {24, 17, 2}, .codeBits = 1},
        GIF{.picture = {700, 500, 200}, .codeBits = 8}}) {
    EXPECT_THAT(checkWholeness(gif.bytes()), IsWhole());
  }
  EXPECT_THAT(checkWholeness(GIF{}.bytes() + "something behind"), IsWhole());
}

TEST(WholenessOfGIF, CutOnesTellTheRowsThatAreThere) {
  EXPECT_THAT(checkWholeness(GIF{.pixelsLeftOut = 1}.bytes()),
              IsRefused("ends early: 16 of 17 rows are there"));
  EXPECT_THAT(checkWholeness(GIF{.pixelsLeftOut = 24 * 17 - 25}.bytes()),
              IsRefused("ends early: 1 of 17 rows are there"));
  const std::string whole = GIF{}.bytes();
  const std::size_t begin = 13 + 24 + 10;
  EXPECT_THAT(checkWholeness(whole.substr(0, begin)),
              IsRefused("ends early: 0 of 17 rows are there"));
  EXPECT_THAT(checkWholeness(whole.substr(0, begin - 11)),
              IsRefused("ends early: no picture is in it"));
  EXPECT_THAT(checkWholeness(whole.substr(0, 8)), IsRefused("ends early: no picture is in it"));
}

TEST(WholenessOfGIF, WithoutItsEndIsWarnedOf) {
  const std::string noEnd = "has no end mark; its first picture is complete and is used";
  EXPECT_THAT(checkWholeness(GIF{.trailer = false}.bytes()), IsWarnedOf(noEnd));
  const std::string two = GIF{.frames = 2}.bytes();
  EXPECT_THAT(checkWholeness(two.substr(0, two.size() - 30)), IsWarnedOf(noEnd));
  const std::string one = GIF{.trailer = false}.bytes();
  EXPECT_THAT(checkWholeness(one.substr(0, one.size() - 1)), IsWarnedOf(noEnd));
  EXPECT_THAT(checkWholeness(one + "garbage"), IsWarnedOf(noEnd));
}

TEST(WholenessOfGIF, HeadersThatLie) {
  const std::string whole = GIF{}.bytes();
  const std::size_t picture = 13 + 24;
  EXPECT_THAT(checkWholeness(with(whole, picture + 7, raw_pictures::little16(18))),
              IsRefused("ends early: 17 of 18 rows are there"));
  EXPECT_THAT(checkWholeness(with(whole, picture + 7, raw_pictures::little16(16))),
              IsWarnedOf("is damaged: it holds more pixels than its size, 24 x 16, needs"));
  EXPECT_THAT(checkWholeness(with(whole, 6, raw_pictures::little16(25))),
              IsWarnedOf("shows a picture of 24 x 17 pixels, which is not what its screen of 25 x "
                         "17 shows"));
  EXPECT_THAT(checkWholeness(with(whole, picture + 10, "\x09")),
              IsRefused("is damaged: pixels of 9 bits"));
  EXPECT_THAT(checkWholeness(with(whole, picture, "?")),
              IsRefused("is damaged: a block of no known kind"));
  EXPECT_THAT(checkWholeness(with(whole, picture + 12, "\xff\xff")).error,
              testing::StartsWith("is damaged in row 0 of 17: a code that stands for nothing"));
}

// JPEG

TEST(WholenessOfJPEG, UnusualOnesAreWhole) {
  const std::string plain = encoded("JPG");
  EXPECT_THAT(checkWholeness(plain), IsWhole());
  EXPECT_THAT(checkWholeness(encoded("JPG", true)), IsWhole());
  EXPECT_THAT(checkWholeness(plain + std::string(1000, '\0')), IsWhole());
  EXPECT_THAT(checkWholeness(plain.substr(0, 2) + "\xff\xff\xff" + plain.substr(2)), IsWhole());
  // A preview of its own, with its end mark, in a segment.
  std::string preview = "\xff\xe1";
  preview += static_cast<char>((plain.size() + 2) >> 8);
  preview += static_cast<char>((plain.size() + 2) & 255);
  const std::string photo = plain.substr(0, 2) + preview + plain + plain.substr(2);
  EXPECT_THAT(checkWholeness(photo), IsWhole());
  EXPECT_THAT(checkWholeness(photo.substr(0, photo.size() - 200)).error,
              testing::StartsWith("ends early: "));
}

TEST(WholenessOfJPEG, CutOnesTellTheRowsThatAreThere) {
  const std::string plain = encoded("JPG");
  EXPECT_THAT(checkWholeness(plain.substr(0, plain.size() - 2)),
              IsWarnedOf("has no end mark, though all its rows are there"));
  EXPECT_THAT(checkWholeness(plain.substr(0, plain.size() - 2) + std::string(100, '\0')).error,
              testing::StartsWith("ends early: "));
  EXPECT_THAT(checkWholeness(plain.substr(0, plain.size() - 20)),
              IsRefused("ends early: 14 of 17 rows are there"));
  EXPECT_THAT(checkWholeness(plain.substr(0, 100)),
              IsRefused("ends early: its end mark is missing behind 100 bytes"));
  const std::string progressive = encoded("JPG", true);
  EXPECT_THAT(checkWholeness(progressive.substr(0, 600)),
              IsRefused("ends early: its end mark is missing behind 600 bytes"));
  EXPECT_THAT(checkWholeness("\xff\xd8"s),
              IsRefused("ends early: its end mark is missing behind 2 bytes"));
}

// PNG

TEST(WholenessOfPNG, TellsRowsAndDamage) {
  const std::string whole = encoded("PNG");
  EXPECT_THAT(checkWholeness(whole), IsWhole());
  EXPECT_THAT(checkWholeness(whole + "behind"), IsWhole());
  EXPECT_THAT(checkWholeness(whole.substr(0, whole.size() - 4)),
              IsWarnedOf("is cut in its end mark"));
  EXPECT_THAT(checkWholeness(whole.substr(0, whole.size() - 5)),
              IsRefused("ends early: its end mark is missing, though all its rows are there"));
  EXPECT_THAT(checkWholeness(whole.substr(0, 60)), IsRefused("ends early: 0 of 17 rows are there"));
  EXPECT_THAT(checkWholeness(whole.substr(0, 20)),
              IsRefused("ends early: its header is not complete"));
  EXPECT_THAT(checkWholeness(with(whole, 29, "\x01\x02\x03\x04")),
              IsRefused("is damaged: IHDR: CRC error; 0 of 17 rows are there"));
}

// Formats that tell their length.

TEST(WholenessOfOthers, TellHowMuchIsThere) {
  const std::string ppm = encoded("PPM");
  ASSERT_EQ(ppm.size(), 13u + 3 * 24 * 17);
  EXPECT_THAT(checkWholeness(ppm), IsWhole());
  EXPECT_THAT(checkWholeness(ppm + "\n"), IsWhole());
  EXPECT_THAT(checkWholeness(ppm + ppm), IsWhole());
  EXPECT_THAT(checkWholeness(ppm.substr(0, 1000)),
              IsRefused("ends early: 987 of 1224 bytes of pixels are there"));
  EXPECT_THAT(checkWholeness(ppm.substr(0, 8)),
              IsRefused("ends early: its header is not complete"));
  EXPECT_THAT(checkWholeness(with(ppm, 7, "6")),
              IsWarnedOf("holds 72 bytes more than its size needs"));
  EXPECT_THAT(checkWholeness("P5 # a comment\n2 1 65535\n1234"), IsWhole());
  EXPECT_THAT(checkWholeness("P4 9 2 1234"), IsWhole());
  EXPECT_THAT(checkWholeness("P4 9 2 123"),
              IsRefused("ends early: 3 of 4 bytes of pixels are there"));
  EXPECT_THAT(checkWholeness("P1 3 2 1 0 1 # row\n010"), IsWhole());
  EXPECT_THAT(checkWholeness("P1 3 2 10101"), IsRefused("ends early: 5 of 6 numbers are there"));
  EXPECT_THAT(checkWholeness("P3 1 1 255 1 20 255\n"), IsWhole());
  EXPECT_THAT(checkWholeness("P2 2 1 255 1"), IsRefused("ends early: 1 of 2 numbers are there"));
  EXPECT_THAT(checkWholeness("P2 2 1 255 1 b7"),
              IsWarnedOf("is damaged: it holds characters that are no numbers"));
  EXPECT_THAT(checkWholeness("P2 2 1 255 1 7 9"),
              IsWarnedOf("holds more numbers than its size needs"));
  const std::string xbm = encoded("XBM");
  EXPECT_THAT(checkWholeness(xbm), IsWhole());
  EXPECT_THAT(checkWholeness(xbm.substr(0, xbm.find('}'))), IsWarnedOf("has no end mark"));
  EXPECT_THAT(checkWholeness(xbm.substr(0, xbm.rfind("0x"))),
              IsRefused("ends early: 50 of 51 bytes of pixels are there"));
  const std::string webp = encoded("WEBP");
  EXPECT_THAT(checkWholeness(webp), IsWhole());
  EXPECT_THAT(checkWholeness(webp.substr(0, 50)),
              IsRefused("ends early: 50 of " + std::to_string(webp.size()) + " bytes are there"));
  EXPECT_THAT(checkWholeness("icns\0\0\1\0body"s),
              IsRefused("ends early: 12 of 256 bytes are there"));
  std::string icon = encoded("ICNS");
  EXPECT_THAT(checkWholeness(icon), IsWhole());
  icon[icon.size() / 2] = static_cast<char>(icon[icon.size() / 2] ^ 1);
  EXPECT_THAT(checkWholeness(icon).error, testing::StartsWith("holds a PNG that is damaged: "));
  EXPECT_THAT(checkWholeness("\x8aMNG\r\n\x1a\n\0\0\0\0MENDcrc_"s), IsWhole());
  EXPECT_THAT(checkWholeness("\x8aMNG\r\n\x1a\n\0\0\0\1MEND"s),
              IsRefused("ends early: its end mark is missing"));
  const std::string tga = raw_pictures::tga();
  EXPECT_THAT(checkTGA(tga), IsWhole());
  EXPECT_THAT(checkTGA(with(tga, 14, "\x12")),
              IsRefused("ends early: 1242 of 1314 bytes are there"));
  EXPECT_THAT(checkTGA(with(tga, 14, "\x10")),
              IsWarnedOf("holds 72 bytes more than its size needs"));
  EXPECT_THAT(checkTGA(with(with(tga, 14, "\x10"), tga.size() - 26, "\x01")), IsWhole());
  EXPECT_THAT(checkTGA(tga.substr(0, 10)),
              IsRefused("ends early: 10 of 44 bytes of its header are there"));
}

}  // namespace
}  // namespace namespace_ratseg
