// Pictures that are damaged, too large or come through a pipe.

#include <sys/stat.h>

#include <QString>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "app/ratseg_program.h"

namespace namespace_ratseg {
namespace {

class RatsegPictures : public RatsegProgram {
 protected:
  std::string bytesOf(const std::string& name) const {
    std::ifstream in(dir_.file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void saveAs(const char* format, const std::string& name) const {
    ASSERT_TRUE(FourLabels::image().save(QString::fromStdString(dir_.file(name)), format));
  }
  void expectRefused(const Changes& changes, const std::string& line) const {
    const ProgramResult result = run(changes);
    EXPECT_EQ(result.err, "ratseg: warning: " + line + "\n");
    EXPECT_EQ(result.out,
              wholeEcho().replace(
                  wholeEcho().find("image.png"), 9,
                  changes.contains("-image") ? changes.at("-image") : std::string("image.png")) +
                  "ERROR loading image to segment: " +
                  (changes.contains("-image") ? changes.at("-image") : "image.png") + "\n");
    EXPECT_EQ(result.status, 1);
  }
};

TEST_F(RatsegPictures, ThatEndEarlyAreRefused) {
  saveAs("BMP", "photo.bmp");
  std::filesystem::resize_file(dir_.file("photo.bmp"), 200);
  expectRefused({{"-image", "photo.bmp"}}, "\"photo.bmp\" ends early: 4 of 8 rows are there");
  saveAs("JPG", "photo.jpg");
  std::filesystem::resize_file(dir_.file("photo.jpg"), 300);
  expectRefused({{"-image", "photo.jpg"}},
                "\"photo.jpg\" ends early: its end mark is missing behind 300 bytes");
}

TEST_F(RatsegPictures, OfOtherNamesAreNotTaken) {
  expectRefused({{"-image", "image"}}, "\"image\": No such file or directory");
  std::filesystem::copy_file(dir_.file("image.png"), dir_.file("a.jpg.png"));
  expectRefused({{"-image", "a.jpg"}}, "\"a.jpg\": No such file or directory");
}

TEST_F(RatsegPictures, WithComplaintsOfTheirDecoderAreWarnedOf) {
  saveAs("JPG", "photo.jpg");
  std::string jpeg = bytesOf("photo.jpg");
  jpeg.insert(jpeg.size() - 2, 5, 'x');
  saveText("photo.jpg", jpeg);
  const ProgramResult result = run({{"-image", "photo.jpg"}});
  EXPECT_EQ(withoutShares(result.err),
            "ratseg: warning: \"photo.jpg\" was read with a complaint: Corrupt JPEG data: 2 "
            "extraneous bytes before marker 0xd9\n");
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegPictures, MayComeThroughAPipe) {
  const std::string bytes = bytesOf("image.png");
  ASSERT_EQ(mkfifo(dir_.file("pipe").c_str(), 0600), 0);
  std::thread writer([&] { saveText("pipe", bytes); });
  const ProgramResult result = run({{"-image", "pipe"}});
  writer.join();
  EXPECT_EQ(withoutShares(result.err), "");
  EXPECT_NE(result.out.find("\nImage to segment: pipe (12 x 8)\n"), std::string::npos);
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegPictures, WithoutEndAreRefused) {
  expectRefused({{"-image", "/dev/zero"}},
                "\"/dev/zero\" is not an image of a format that can be read");
}

TEST_F(RatsegPictures, OfTooManyPixelsAreRefused) {
  saveText("huge.ppm", "P6 30000 20000 255\n");
  expectRefused(
      {{"-image", "huge.ppm"}},
      "\"huge.ppm\" has 30000 x 20000 pixels, 600 megapixels, but at most 150 are allowed "
      "(-max-megapixels M allows others)");
  expectRefused({{"-max-megapixels", "0.00009"}},
                "\"image.png\" has 12 x 8 pixels, 0.1 megapixels, but at most 9e-05 are allowed "
                "(-max-megapixels M allows others)");
  EXPECT_EQ(run({{"-max-megapixels", "0.0001"}}).status, 0);
}

TEST_F(RatsegPictures, ThatNeedTooMuchMemoryAreRefused) {
  saveText("large.ppm", "P6 4096 2048 255\n");
  expectRefused({{"-image", "large.ppm"}, {"-max-memory", "0.125"}},
                "\"large.ppm\" has 4096 x 2048 pixels, for which about 224.0 MiB of memory are "
                "needed, but 128.0 MiB are allowed (-max-memory GIB allows others)");
}

TEST_F(RatsegPictures, RunsThatNeedTooMuchMemoryAreRefused) {
  saveImage("image.png", blackImage(1000, 1000));
  const ProgramResult result = run({{"-max-memory", "0.125"}, {"-dataterm", "missing"}});
  EXPECT_EQ(fromLine(result.out, "ERROR"),
            "ERROR: the run needs about 148.8 MiB of memory on the host (1000 x 1000 pixels x 4 "
            "labels), but at most 128.0 MiB are allowed (-max-memory)\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegPictures, RunsThatNeedMoreMemoryThanThereIsAreWarnedOf) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the address sanitizer needs the address space for itself";
#endif
  program_.addressSpace = std::size_t{3} << 30;
  saveImage("image.png", blackImage(2000, 2000));
  std::string proportions;
  for (int k = 0; k < 49999; ++k) proportions += "0.00002 1\n";
  saveText("proportions.txt", proportions);
  const ProgramResult result = run();
  EXPECT_NE(result.err.find("ratseg: warning: the run needs about 4098.1 GiB of memory on the host "
                            "(2000 x 2000 pixels x 50000 labels), but "),
            std::string::npos)
      << result.err;
  EXPECT_TRUE(result.out.ends_with(
      "\nERROR: no memory for the data term of 2000 x 2000 pixels x 50000 labels\n"));
}

TEST_F(RatsegPictures, LimitsMustBeNumbersAboveZero) {
  for (const char* option : {"-max-megapixels", "-max-memory"}) {
    for (const char* value : {"0", "many", ""}) {
      const ProgramResult result = run({{option, value}});
      EXPECT_EQ(fromLine(result.out, "ERROR"), "ERROR: " + std::string(option) +
                                                   " must be a number above 0, but is \"" + value +
                                                   "\"\n");
      EXPECT_EQ(result.status, 1);
    }
  }
}

}  // namespace
}  // namespace namespace_ratseg
