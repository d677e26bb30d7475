// What ratseg-dataterm writes and says.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QImage>
#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

#include "app/dataterm/dataterm_program.h"
#include "app/dataterm/options.h"
#include "support/packed_array.h"
#include "support/turned_photo.h"

namespace namespace_ratseg {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;

// CIELAB lightness of a grey value; the other two coordinates of greys are nearly 0.
double lightness(int grey) {
  const double v = grey / 255.0;
  const double y = v > 0.04045 ? std::pow((v + 0.055) / 1.055, 2.4) : v / 12.92;
  return y > 0.008856 ? 116 * std::cbrt(y) - 16 : 903.3 * y;
}

class DatatermResults : public DatatermProgram {
 protected:
  std::vector<float> dataterm() const { return readPackedArray<float>(dir_.file("dataterm.gz")); }

  // One label's costs.
  static std::vector<float> plane(const std::vector<float>& rho, int label) {
    return {rho.begin() + label * pixels, rho.begin() + (label + 1) * pixels};
  }
};

TEST_F(DatatermResults, WithoutArgumentsTheUsageScreenIsPrinted) {
  const ProgramResult result = program_.run({});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, std::string(kDatatermUsage) + kFileOptionsUsage);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out,
              HasSubstr("ratseg-dataterm -image F -scribbles F -out F [-scribbled-image F]\n"));
}

TEST_F(DatatermResults, HelpIsTheUsageScreen) {
  for (const char* word : {"-help", "--help"}) {
    const ProgramResult result = program_.run({word});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, std::string(kDatatermUsage) + kFileOptionsUsage);
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(DatatermResults, CostsAreLowWhereColoursAreAlikeAndThrElsewhere) {
  ASSERT_EQ(run().status, 0);
  const std::vector<float> rho = dataterm();
  ASSERT_EQ(rho.size(), 3u * pixels);
  for (int label = 0; label < 3; ++label) {
    for (int p = 0; p < pixels; ++p) {
      const bool isLabel = p % w / 2 == label;
      EXPECT_EQ(rho[static_cast<std::size_t>(label * pixels + p)], isLabel ? 0 : 10)
          << "label " << label << ", pixel " << p;
    }
  }
}

TEST_F(DatatermResults, CostsFollowTheColourKernel) {
  // One pixel is a bit brighter than the grey that is marked.
  saveGrey("image.png", {0, 0, 119, 119, 255, 255, 0, 0, 119, 133, 255, 255});
  ASSERT_EQ(run().status, 0);
  const double d = lightness(133) - lightness(119);
  EXPECT_NEAR(plane(dataterm(), 1)[9], d * d / 2 / 25, 2e-3);
  ASSERT_EQ(run({{"-sigma", "2.5"}}).status, 0);
  EXPECT_NEAR(plane(dataterm(), 1)[9], d * d / 2 / 6.25, 8e-3);
}

TEST_F(DatatermResults, ThrCapsTheCosts) {
  ASSERT_EQ(run({{"-thr", "3.5"}}).status, 0);
  EXPECT_THAT(plane(dataterm(), 0),
              ElementsAre(0, 0, 3.5, 3.5, 3.5, 3.5, 0, 0, 3.5, 3.5, 3.5, 3.5));
}

TEST_F(DatatermResults, ScribblesOnAnotherImageHaveItsSizeAndColours) {
  ASSERT_EQ(run().status, 0);
  const std::vector<float> own = dataterm();
  // The same colours in a picture of 3 x 1 pixels.
  saveGrey("first.png", {119, 0, 255}, 3);
  saveGrey("scribbles.png", {2, 1, 3}, 3);
  const ProgramResult result = run({{"-scribbled-image", "first.png"}});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.out.find("(data term of 3 labels, 6 x 2 pixels)"), std::string::npos)
      << result.out;
  EXPECT_NE(result.err.find("3 of 3 pixels are marked in scribbles.png"), std::string::npos)
      << result.err;
  EXPECT_EQ(dataterm(), own);
}

TEST_F(DatatermResults, IndexedScribblesAreReadByIndex) {
  ASSERT_EQ(run().status, 0);
  const std::string fromGrey = text("dataterm.gz");
  const std::string palette("\xff\xff\xff\xff\x00\x00\x00\x00\xff\x00\xff\x00", 12);
  const std::string marks("\x01\x00\x02\x02\x03\x00\x00\x00\x00\x00\x00\x00", 12);
  RawPng{w, h, 8, RawPng::kIndexed, marks, palette, ""}.save(dir_.file("scribbles.png"));
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(text("dataterm.gz"), fromGrey);
}

TEST_F(DatatermResults, ProportionsAreSharesOfTheForeground) {
  saveGrey("truth.png", {0, 0, 1, 1, 2, 2, 0, 0, 1, 2, 2, 2});
  ASSERT_EQ(runWithTruth().status, 0);
  EXPECT_EQ(text("proportions.txt"), "0.571428571 0.02\n0.428571429 0.02\n");
  EXPECT_EQ(dataterm().size(), 3u * pixels);
}

TEST_F(DatatermResults, SpreadIsTheSecondColumn) {
  ASSERT_EQ(runWithTruth({{"-spread", "0.125"}}).status, 0);
  EXPECT_EQ(text("proportions.txt"), "0.5 0.125\n0.5 0.125\n");
}

TEST_F(DatatermResults, SharesOfTheImageAppendAVoidBackground) {
  saveGrey("truth.png", {0, 0, 0, 1, 2, 2, 0, 0, 0, 1, 1, 2});
  ASSERT_EQ(runWithTruth({{"-shares", "image"}, {"-thr", "4"}}).status, 0);
  EXPECT_EQ(text("proportions.txt"), "0.5 0.02\n0.25 0.02\n0.25 0.02\n");
  const std::vector<float> rho = dataterm();
  ASSERT_EQ(rho.size(), 4u * pixels);
  EXPECT_THAT(plane(rho, 2), ElementsAre(4, 4, 4, 4, 0, 0, 4, 4, 4, 4, 0, 0));
  EXPECT_THAT(plane(rho, 3), Each(400));
}

TEST_F(DatatermResults, TheVoidBackgroundComesWithoutATruthToo) {
  ASSERT_EQ(run({{"-shares", "image"}}).status, 0);
  EXPECT_EQ(dataterm().size(), 4u * pixels);
}

TEST_F(DatatermResults, SaysWhatItWrote) {
  const ProgramResult result = runWithTruth();
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out,
              EndsWith("Saved dataterm.gz  (data term of 3 labels, 6 x 2 pixels)\n"
                       "Saved proportions.txt  (shares of the foreground of 2 labels, spread "
                       "0.02)\n"
                       "  foreground label 0: 1 scribble pixels, share 0.5\n"
                       "  foreground label 1: 2 scribble pixels, share 0.5\n"
                       "  background label 2: 1 scribble pixels\n"));
}

TEST_F(DatatermResults, SaysWhatItWroteWithSharesOfTheImage) {
  const ProgramResult result = runWithTruth({{"-shares", "image"}});
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out,
              EndsWith("Saved dataterm.gz  (data term of 4 labels, 6 x 2 pixels)\n"
                       "Saved proportions.txt  (shares of the image of 3 labels, spread 0.02)\n"
                       "  foreground label 0: 1 scribble pixels, share 0.333333333\n"
                       "  foreground label 1: 2 scribble pixels, share 0.333333333\n"
                       "  foreground label 2: 1 scribble pixels, share 0.333333333\n"
                       "  background label 3: void, costs 1000 everywhere\n"));
}

TEST_F(DatatermResults, WithoutATruthNoSharesAreWrittenOrSaid) {
  const ProgramResult result = run();
  EXPECT_THAT(result.out, EndsWith("Saved dataterm.gz  (data term of 3 labels, 6 x 2 pixels)\n"
                                   "  foreground label 0: 1 scribble pixels\n"
                                   "  foreground label 1: 2 scribble pixels\n"
                                   "  background label 2: 1 scribble pixels\n"));
  EXPECT_FALSE(std::filesystem::exists(dir_.file("proportions.txt")));
}

TEST_F(DatatermResults, LabelsWithoutScribblesCostThrAndAreWarnedOf) {
  saveGrey("truth.png", {0, 0, 1, 1, 2, 2, 0, 0, 1, 1, 2, 4});
  const ProgramResult result = runWithTruth({{"-thr", "6.5"}});
  ASSERT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "ratseg-dataterm: warning: truth.png holds label numbers up to 4, but scribbles.png "
            "marks labels up to 2: the data term is made for 5 labels, with 4 as the background\n"
            "ratseg-dataterm: warning: label 3 has no scribbles in scribbles.png: it costs thr = "
            "6.5 everywhere\n"
            "ratseg-dataterm: warning: label 4 has no scribbles in scribbles.png: it costs thr = "
            "6.5 everywhere\n");
  const std::vector<float> rho = dataterm();
  ASSERT_EQ(rho.size(), 5u * pixels);
  EXPECT_THAT(plane(rho, 3), Each(6.5f));
  EXPECT_THAT(plane(rho, 4), Each(6.5f));
  EXPECT_THAT(plane(rho, 0), ElementsAreArray({0., 0., 6.5, 6.5, 6.5, 6.5,  //
                                               0., 0., 6.5, 6.5, 6.5, 6.5}));
}

TEST_F(DatatermResults, ScribblesThatMarkMostOfTheImageAreWarnedOf) {
  saveGrey("scribbles.png", {1, 4, 2, 2, 3, 4, 4, 4, 4, 4, 4, 4});
  const ProgramResult result = run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "ratseg-dataterm: warning: 12 of 12 pixels are marked in scribbles.png; the usual "
            "reason is a black background that became another grey value or colour index than "
            "0\n");
}

TEST_F(DatatermResults, ASingleForegroundLabelIsWarnedOfUnlessSharesAreOfTheImage) {
  saveGrey("scribbles.png", {1, 0, 2, 2, 2, 0, 0, 0, 0, 0, 0, 0});
  const ProgramResult result = run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "ratseg-dataterm: warning: with a single foreground label, shares of the foreground "
            "say nothing; -shares image makes the prior work\n");
  EXPECT_EQ(run({{"-shares", "image"}}).err, "");
}

TEST_F(DatatermResults, AnImageThatAsksToBeTurnedIsWarnedOfAndUsedAsStored) {
  QImage image(w, h, QImage::Format_RGB32);
  image.fill(Qt::gray);
  saveTurnedPhoto(image, dir_.file("photo.jpg"));
  const ProgramResult result = run({{"-image", "photo.jpg"}});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "ratseg-dataterm: warning: photo.jpg asks to be shown turned or mirrored (EXIF "
            "orientation); its pixels are used as stored\n");
}

TEST_F(DatatermResults, AnImageOf16BitsOfOneValueIsWarnedOf) {
  QImage image(w, h, QImage::Format_Grayscale16);
  image.fill(Qt::black);
  ASSERT_TRUE(image.save(QString::fromStdString(dir_.file("dark.png"))));
  const ProgramResult result = run({{"-image", "dark.png"}});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "ratseg-dataterm: warning: dark.png has a channel whose values are all 0; it is "
            "black\n");
}

TEST_F(DatatermResults, TheDeviceOptionGoesBeforeTheEnvironment) {
  program_.environment["RATSEG_DEVICE"] = "nonsense";
  EXPECT_EQ(run({{"-device", "host"}}).status, 0);
}

TEST_F(DatatermResults, SeveralDevicesGiveTheSameBytes) {
  ASSERT_EQ(run().status, 0);
  const std::string one = text("dataterm.gz");
  program_.environment["RATSEG_HOST_DEVICES"] = "2";
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(text("dataterm.gz"), one);
}

TEST_F(DatatermResults, CanBeReadByTheMainProgram) {
  for (const std::string shares : {"foreground", "image"}) {
    ASSERT_EQ(runWithTruth({{"-shares", shares}}).status, 0);
    Program ratseg = program_;
    ratseg.path = RATSEG_BIN_DIR "/ratseg";
    const ProgramResult result =
        ratseg.run({"-image", "image.png", "-dataterm", "dataterm.gz", "-proportions",
                    "proportions.txt", "-lambda", "0.1", "-mu", "100", "-iterations", "50"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_THAT(readPackedArray<int>(dir_.file("out_result_labeling.gz")),
                ElementsAre(0, 0, 1, 1, 2, 2, 0, 0, 1, 1, 2, 2))
        << shares;
  }
}

}  // namespace
}  // namespace namespace_ratseg
