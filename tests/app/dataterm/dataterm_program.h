#ifndef RATSEG_TESTS_APP_DATATERM_DATATERM_PROGRAM_H
#define RATSEG_TESTS_APP_DATATERM_DATATERM_PROGRAM_H

// What the tests of the built program ratseg-dataterm share: a small problem in a folder of its
// own, and runs of the program in that folder.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "app/dataterm/raw_png.h"
#include "support/program.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {

// A grey picture of 6 x 2 pixels: two columns each of black, mid-grey and white, which are labels
// 0, 1 and 2 (the background). The upper row's first pixel of each label is marked, and for label 1
// the second one too.
class DatatermProgram : public testing::Test {
 protected:
  using Changes = std::map<std::string, std::string>;

  static constexpr int w = 6, h = 2, pixels = w * h;

  DatatermProgram() {
    program_.path = RATSEG_BIN_DIR "/ratseg-dataterm";
    program_.folder = dir_.path().string();
    program_.environment = {{"OMP_NUM_THREADS", "1"},
                            {"RATSEG_DEVICE", "host"},
                            {"RATSEG_HOST_DEVICES", ""},
                            {"RATSEG_HOST_PEER", ""},
                            {"RATSEG_HOST_MEMORY", ""}};
    saveGrey("image.png", {0, 0, 119, 119, 255, 255, 0, 0, 119, 119, 255, 255});
    saveGrey("scribbles.png", {1, 0, 2, 2, 3, 0, 0, 0, 0, 0, 0, 0});
    saveGrey("truth.png", {0, 0, 1, 1, 2, 2, 0, 0, 1, 1, 2, 2});
  }

  void saveGrey(const std::string& name, const std::vector<unsigned char>& values,
                int width = w) const {
    const int height = static_cast<int>(values.size()) / width;
    const std::string rows(values.begin(), values.end());
    RawPng{width, height, 8, RawPng::kGrey, rows, "", ""}.save(dir_.file(name));
  }

  std::string text(const std::string& name) const {
    std::ifstream in(dir_.file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

  // Costs by colour, the three required options with changed or added ones; an empty value leaves
  // one out.
  ProgramResult run(const Changes& changes = {}) const {
    Changes options = {{"-image", "image.png"},
                       {"-scribbles", "scribbles.png"},
                       {"-out", "dataterm.gz"},
                       {"-model", "colour"}};
    for (const auto& [name, value] : changes) options[name] = value;
    std::vector<std::string> words;
    for (const auto& [name, value] : options) {
      if (value.empty()) continue;
      words.push_back(name);
      words.push_back(value);
    }
    return program_.run(words);
  }

  ProgramResult runWithTruth(Changes changes = {}) const {
    changes.insert({{"-truth", "truth.png"}, {"-proportions", "proportions.txt"}});
    return run(changes);
  }

  const TempDir dir_;
  Program program_;
};

}  // namespace namespace_ratseg

#endif
