#ifndef RATSEG_TESTS_APP_MALFORMED_LOADING_H
#define RATSEG_TESTS_APP_MALFORMED_LOADING_H

// Loads pictures, good and bad ones, as the programs do.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "app/load_picture.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {

// What came of loading a file.
struct Outcome {
  std::string error;
  std::vector<std::string> warnings;
  int w = 0;
  int h = 0;
  std::string pixels;  // three bytes each

  // E: refused. W: taken with a warning. A dot: taken as it is.
  char letter() const { return !error.empty() ? 'E' : warnings.empty() ? '.' : 'W'; }
};

// Thousands of files are written, most quickly into memory.
inline std::string memoryFolder() {
  const bool there = std::filesystem::is_directory("/dev/shm");
  return there ? "/dev/shm" : std::filesystem::temp_directory_path().string();
}

class Malformed : public testing::Test {
 protected:
  // Nothing is printed, by no library.
  void SetUp() override { testing::internal::CaptureStderr(); }
  void TearDown() override { EXPECT_EQ(testing::internal::GetCapturedStderr(), ""); }

  Outcome load(const std::string& name, const std::string& bytes) const {
    std::ofstream(dir_.file(name), std::ios::binary) << bytes;
    Outcome outcome;
    const PictureLimits limits = {.megapixels = 1, .gib = 1};
    try {
      const Image image = loadPicture(dir_.file(name), limits, [&](const std::string& line) {
        outcome.warnings.push_back(line);
      });
      outcome.w = image.w;
      outcome.h = image.h;
      for (std::size_t k = 0; k < image.count(); ++k) {
        for (const float part : {image.pixels[k].x, image.pixels[k].y, image.pixels[k].z}) {
          outcome.pixels += static_cast<char>(std::lround(part * 255));
        }
      }
    } catch (const PictureError& e) {
      outcome.error = e.what();
      EXPECT_FALSE(outcome.error.empty());
    }
    checkLines(outcome);
    return outcome;
  }

  // All that is said is a line each.
  static void checkLines(const Outcome& outcome) {
    EXPECT_LE(outcome.warnings.size(), 12u);
    std::vector<std::string> lines = outcome.warnings;
    lines.push_back(outcome.error);
    for (const std::string& line : lines) {
      for (const char c : line) EXPECT_FALSE((c >= 0 && c < ' ') || c == '\x7f') << line;
    }
  }

  const TempDir dir_{memoryFolder()};
};

}  // namespace namespace_ratseg

#endif
