// Pictures that are damaged, too large or come through a pipe.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "app/dataterm/dataterm_program.h"

namespace namespace_ratseg {
namespace {

class DatatermPictures : public DatatermProgram {
 protected:
  void save(const std::string& name, const std::string& bytes) const {
    std::ofstream(dir_.file(name), std::ios::binary) << bytes;
  }
  static void expectError(const ProgramResult& result, const std::string& line) {
    EXPECT_EQ(result.err, "ERROR: " + line + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 1);
  }
  // The file's bytes through a pipe instead of the file.
  ProgramResult runThroughPipe(const std::string& option, const std::string& name) const {
    const std::string bytes = text(name);
    EXPECT_EQ(mkfifo(dir_.file("pipe").c_str(), 0600), 0);
    std::thread writer([&] { save("pipe", bytes); });
    const ProgramResult result = run({{option, "pipe"}});
    writer.join();
    std::filesystem::remove(dir_.file("pipe"));
    return result;
  }
  static inline const std::string kExpected =
      ": expected an image of a format that can be read, but found a file that ";
};

TEST_F(DatatermPictures, ThatEndEarlyAreRefused) {
  save("image.pgm", "P5 6 2 255\n12345678");
  expectError(run({{"-image", "image.pgm"}}),
              "image.pgm" + kExpected + "ends early: 8 of 12 bytes of pixels are there");
}

TEST_F(DatatermPictures, OfOtherNamesAreNotTaken) {
  expectError(run({{"-image", "image"}}),
              "image" + kExpected + "does not open: No such file or directory");
  expectError(run({{"-image", dir_.path().string()}}),
              dir_.path().string() + kExpected + "does not open: Is a directory");
}

TEST_F(DatatermPictures, MayComeThroughAPipe) {
  ASSERT_EQ(run().status, 0);
  const std::string expected = text("dataterm.gz");
  for (const auto& [option, name] :
       {std::pair{"-image", "image.png"}, {"-scribbles", "scribbles.png"}}) {
    std::filesystem::remove(dir_.file("dataterm.gz"));
    const ProgramResult result = runThroughPipe(option, name);
    EXPECT_EQ(result.err, "") << option;
    EXPECT_EQ(text("dataterm.gz"), expected) << option;
  }
}

TEST_F(DatatermPictures, WithoutEndAreRefused) {
  expectError(run({{"-image", "/dev/zero"}}),
              "/dev/zero" + kExpected + "cannot be decoded: Unsupported image format");
  expectError(
      run({{"-scribbles", "/dev/zero"}}),
      "/dev/zero: expected an 8-bit grey or indexed PNG, or a TIFF of label numbers, but found "
      "a file that is neither");
}

TEST_F(DatatermPictures, OfTooManyPixelsOrTooMuchMemoryAreRefused) {
  expectError(run({{"-max-megapixels", "0.00001"}}),
              "image.png" + kExpected +
                  "has 6 x 2 pixels, 0.1 megapixels, but at most 1e-05 are allowed "
                  "(-max-megapixels M allows others)");
  save("large.ppm", "P6 4096 2048 255\n");
  expectError(run({{"-image", "large.ppm"}, {"-max-memory", "0.125"}}),
              "large.ppm" + kExpected +
                  "has 4096 x 2048 pixels, for which about 224.0 MiB of memory are needed, but "
                  "128.0 MiB are allowed (-max-memory GIB allows others)");
  expectError(run({{"-max-memory", "0"}}),
              "-max-memory: expected a number greater than 0, but found \"0\"");
  expectError(run({{"-max-megapixels", "inf"}}),
              "-max-megapixels: expected a number greater than 0, but found \"inf\"");
}

// Labels beyond the palette are labels all the same.
TEST_F(DatatermPictures, WithNumbersBeyondThePaletteKeepThem) {
  const std::string rows("\x01\x00\x02\x02\x03\x00\x00\x00\x00\x04\x00\x00", pixels);
  RawPng{w, h, 8, RawPng::kIndexed, rows, std::string(3 * 3, 'c'), ""}.save(
      dir_.file("scribbles.png"));
  const ProgramResult result = run();
  EXPECT_EQ(
      result.err.substr(0, result.err.find('\n')),
      "ratseg-dataterm: warning: scribbles.png has colour numbers up to 4, but a palette of 3 "
      "colours");
  EXPECT_NE(result.out.find("(data term of 4 labels,"), std::string::npos) << result.out;
}

}  // namespace
}  // namespace namespace_ratseg
