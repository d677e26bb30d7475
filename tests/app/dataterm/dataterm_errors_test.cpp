// What ratseg-dataterm says of inputs that it cannot use: one line, and exit status 1.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "app/dataterm/dataterm_program.h"
#include "support/full_device.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

class DatatermErrors : public DatatermProgram {
 protected:
  // Expects that the run ends with this one line and that nothing is written.
  void expectError(const ProgramResult& result, const std::string& line) const {
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ERROR: " + line + "\n");
    EXPECT_FALSE(std::filesystem::exists(dir_.file("dataterm.gz")));
    EXPECT_FALSE(std::filesystem::exists(dir_.file("proportions.txt")));
  }
};

TEST_F(DatatermErrors, WrongOptions) {
  expectError(run({{"-image", ""}}),
              "-image: expected a file name, but found that the option is missing");
  expectError(run({{"-sigma", "wide"}}),
              "-sigma: expected a number greater than 0, but found \"wide\"");
}

TEST_F(DatatermErrors, AnImageThatCannotBeRead) {
  expectError(run({{"-image", "none.png"}}),
              "none.png: expected an image of a format that can be read, but found a file that "
              "does not open: No such file or directory");
  std::ofstream(dir_.file("text.png")) << "no image";
  expectError(run({{"-image", "text.png"}}),
              "text.png: expected an image of a format that can be read, but found a file that "
              "cannot be decoded: Unsupported image format");
  const std::string whole = text("image.png");
  std::ofstream(dir_.file("broken.png"), std::ios::binary) << whole.substr(0, 45);
  expectError(run({{"-image", "broken.png"}}),
              "broken.png: expected an image of a format that can be read, but found a file that "
              "ends early: 0 of 2 rows are there");
}

TEST_F(DatatermErrors, ScribblesOfTheWrongKind) {
  const std::string expected =
      ": expected scribbles as label numbers (8-bit grey or indexed PNG, TIFF) or as pure colours "
      "(PNG, TIFF), but found ";
  const std::string numbers =
      ": expected an 8-bit grey or indexed PNG, or a TIFF of label numbers, but found ";
  RawPng{w, h, 4, RawPng::kGrey, std::string(pixels / 2, '\1'), "", ""}.save(
      dir_.file("grey4.png"));
  expectError(run({{"-scribbles", "grey4.png"}}), "grey4.png" + numbers + "a PNG of 4-bit grey");
  expectError(run({{"-scribbles", "none.png"}}),
              "none.png" + expected + "a file that does not open: No such file or directory");
  const std::string whole = text("scribbles.png");
  std::ofstream(dir_.file("broken.png"), std::ios::binary) << whole.substr(0, 45);
  expectError(run({{"-scribbles", "broken.png"}}),
              "broken.png" + numbers +
                  "a PNG that cannot be decoded: it ends early: 0 of 2 rows are there");
}

TEST_F(DatatermErrors, ATruthInColours) {
  RawPng{w, h, 8, RawPng::kColour, std::string(3 * pixels, '\1'), "", ""}.save(
      dir_.file("colour.png"));
  expectError(runWithTruth({{"-truth", "colour.png"}}),
              "colour.png: expected an 8-bit grey or indexed PNG, or a TIFF of label numbers, but "
              "found a PNG of 8-bit colour");
}

TEST_F(DatatermErrors, PicturesOfAnotherSize) {
  saveGrey("scribbles.png", {1, 2, 3, 0, 0, 0}, 3);
  expectError(run(),
              "scribbles.png: expected 6 x 2 pixels as in image.png, but found 3 x 2 pixels");
  saveGrey("scribbles.png", {1, 0, 2, 2, 3, 0, 0, 0, 0, 0, 0, 0});
  saveGrey("truth.png", {0, 1, 2, 0, 1, 2}, 6);
  expectError(runWithTruth(),
              "truth.png: expected 6 x 2 pixels as in image.png, but found 6 x 1 pixels");
  saveGrey("first.png", {0, 119, 255}, 3);
  expectError(run({{"-scribbled-image", "first.png"}}),
              "scribbles.png: expected 3 x 1 pixels as in first.png, but found 6 x 2 pixels");
}

TEST_F(DatatermErrors, ScribblesWithoutMarks) {
  saveGrey("scribbles.png", std::vector<unsigned char>(pixels, 0));
  expectError(run(), "scribbles.png: expected marked pixels (numbers above 0), but found none");
}

TEST_F(DatatermErrors, ASingleLabel) {
  saveGrey("scribbles.png", {1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  expectError(run(),
              "scribbles.png: expected marks of at least two labels (a 2 or higher), but found no "
              "mark above 1");
  expectError(run({{"-shares", "image"}}),
              "scribbles.png: expected marks of at least two labels (a 2 or higher), but found no "
              "mark above 1");
}

TEST_F(DatatermErrors, ATruthWithoutForeground) {
  saveGrey("truth.png", std::vector<unsigned char>(pixels, 2));
  expectError(runWithTruth(),
              "truth.png: expected foreground pixels (labels below 2), but found background alone");
}

TEST_F(DatatermErrors, FilesThatCannotBeWritten) {
  expectError(run({{"-out", "nowhere/dataterm.gz"}}),
              "-out nowhere/dataterm.gz: expected a file that can be written, but found No such "
              "file or directory");
  const ProgramResult result = runWithTruth({{"-proportions", "nowhere/p.txt"}});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "ERROR: -proportions nowhere/p.txt: expected a file that can be written, but found No "
            "such file or directory\n");
}

TEST_F(DatatermErrors, AFullDiskIsNoticed) {
  const TempDir dir;
  const std::string full = fullDevice(dir);
  if (full.empty()) GTEST_SKIP() << "no device that is full";
  expectError(run({{"-out", full}}),
              "-out " + full +
                  ": expected a file that can be written, but found No space left on "
                  "device");
}

TEST_F(DatatermErrors, InputsAreNotOverwritten) {
  const std::string before = text("scribbles.png");
  expectError(run({{"-out", "./scribbles.png"}}),
              "-out ./scribbles.png: expected a file of its own, but found that it is "
              "scribbles.png as well");
  expectError(runWithTruth({{"-proportions", "truth.png"}}),
              "-proportions truth.png: expected a file of its own, but found that it is truth.png "
              "as well");
  expectError(runWithTruth({{"-proportions", "dataterm.gz"}}),
              "-proportions dataterm.gz: expected a file of its own, but found that it is "
              "dataterm.gz as well");
  EXPECT_EQ(text("scribbles.png"), before);
  saveGrey("first.png", {0, 119, 255}, 3);
  expectError(run({{"-scribbled-image", "first.png"}, {"-out", "first.png"}}),
              "-out first.png: expected a file of its own, but found that it is first.png as well");
}

TEST_F(DatatermErrors, FilesToBeWrittenAreNotTheSame) {
  const auto refused = [&](const std::string& out, const std::string& proportions) {
    const ProgramResult result = runWithTruth({{"-out", out}, {"-proportions", proportions}});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ERROR: -proportions " + proportions +
                              ": expected a file of its own, but found that it is " + out +
                              " as well\n");
  };
  refused("x", "./x");
  std::filesystem::create_directory(dir_.file("a"));
  refused("x", "a/../x");
  EXPECT_FALSE(std::filesystem::exists(dir_.file("x")));
  std::filesystem::create_symlink("x", dir_.file("link"));
  refused("x", "link");
  refused("link", "x");
  EXPECT_FALSE(std::filesystem::exists(dir_.file("x")));
  std::ofstream(dir_.file("x")) << "old";
  std::filesystem::create_hard_link(dir_.file("x"), dir_.file("hard"));
  refused("hard", "x");
  EXPECT_EQ(text("x"), "old");
}

TEST_F(DatatermErrors, InputsAreNotOverwrittenThroughLinks) {
  std::filesystem::create_hard_link(dir_.file("scribbles.png"), dir_.file("hard"));
  expectError(run({{"-out", "hard"}}),
              "-out hard: expected a file of its own, but found that it is scribbles.png as well");
  std::filesystem::create_symlink("truth.png", dir_.file("link"));
  expectError(runWithTruth({{"-proportions", "link"}}),
              "-proportions link: expected a file of its own, but found that it is truth.png as "
              "well");
}

TEST_F(DatatermErrors, WarningsWhereTheyAreErrors) {
  EXPECT_EQ(run({{"-strict", "1"}, {"-out", "other.gz"}}).status, 0);
  saveGrey("scribbles.png", {1, 0, 3, 3, 3, 0, 0, 0, 0, 0, 0, 0});
  const std::string warning =
      "ratseg-dataterm: warning: label 1 has no scribbles in scribbles.png: it costs thr = 10 "
      "everywhere\n";
  const ProgramResult result = run({{"-strict", "1"}});
  EXPECT_EQ(result.err, warning + "ERROR: 1 warning, and -strict 1 makes it an error\n");
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.status, 1);
  EXPECT_FALSE(std::filesystem::exists(dir_.file("dataterm.gz")));
  const ProgramResult usual = run({{"-strict", "0"}});
  EXPECT_EQ(usual.err, warning);
  EXPECT_EQ(usual.status, 0);
}

TEST_F(DatatermErrors, NoDevice) {
  program_.environment["RATSEG_HOST_DEVICES"] = "0";
  expectError(run(), "RATSEG_DEVICE: expected a device to compute on, but found none");
  expectError(run({{"-device", "host"}}),
              "-device host: expected a device to compute on, but found none");
}

TEST_F(DatatermErrors, AWrongEnvironment) {
  program_.environment["RATSEG_DEVICE"] = "gpu";
  expectError(run(), "RATSEG_DEVICE must be auto, cuda or host, but is \"gpu\"");
}

}  // namespace
}  // namespace namespace_ratseg
