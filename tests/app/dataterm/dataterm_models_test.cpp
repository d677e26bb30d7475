// What ratseg-dataterm makes of -model and what belongs to it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "app/dataterm/dataterm_program.h"
#include "models/vigra_calls.h"
#include "support/packed_array.h"
#include "util/rgb.h"

namespace namespace_ratseg {
namespace {

using testing::Each;
using testing::HasSubstr;
using testing::Not;

constexpr std::size_t kWide = 48, kHigh = 32, kAll = kWide * kHigh;

// An even left half, and a right half of dots with the same mean; labels 0 and 1.
class DatatermModels : public DatatermProgram {
 protected:
  DatatermModels() {
    std::vector<unsigned char> image(kAll), marks(kAll);
    for (std::size_t p = 0; p < kAll; ++p) {
      const std::size_t x = p % kWide, y = p / kWide;
      image[p] = x < kWide / 2 ? 128 : (x / 2 + y / 2) % 2 == 0 ? 108 : 148;
      if ((y == 8 || y == 20) && x % 24 > 3 && x % 24 < 20) marks[p] = x < kWide / 2 ? 1 : 2;
    }
    saveGrey("image.png", image, kWide);
    saveGrey("scribbles.png", marks, kWide);
    image_ = image;
    marks_ = marks;
  }

  void SetUp() override {
    if (!haveVigra()) GTEST_SKIP() << "built without VIGRA";
  }

  std::vector<float> costs(const std::string& file = "dataterm.gz") const {
    return readPackedArray<float>(dir_.file(file));
  }

  std::vector<unsigned char> image_, marks_;
};

TEST_F(DatatermModels, TheForestSeesTexture) {
  ASSERT_EQ(run({{"-model", "forest"}, {"-strokes", "soft"}}).status, 0);
  const std::vector<float> rho = costs();
  std::size_t right = 0;
  for (std::size_t p = 0; p < kAll; ++p) {
    right += (rho[p] < rho[kAll + p]) == (p % kWide < kWide / 2) ? 1 : 0;
  }
  EXPECT_GT(right, kAll * 95 / 100);
  for (const float cost : rho) {
    EXPECT_GE(cost, 0);
    EXPECT_LE(cost, 10);
  }
}

TEST_F(DatatermModels, BothIsTheDefaultAndSaysItsParts) {
  const ProgramResult given = run({{"-model", "both"}});
  const std::vector<float> both = costs();
  const ProgramResult byDefault = run({{"-model", ""}});
  EXPECT_EQ(costs(), both);
  EXPECT_EQ(given.err, byDefault.err);
  EXPECT_THAT(given.err, HasSubstr("ratseg-dataterm: costs: 0."));
  EXPECT_THAT(given.err, HasSubstr(" colours, by 8 held-out strokes\n"));
  EXPECT_THAT(given.err, HasSubstr("ratseg-dataterm: right in held-out strokes: label 0 "));
  EXPECT_THAT(given.err, HasSubstr("ratseg-dataterm: label 0 by the costs alone: 1.0000 of the "
                                   "foreground by best labels, 1.0000 by probabilities\n"));
}

TEST_F(DatatermModels, MixAddsThePartsOfBothCosts) {
  ASSERT_EQ(run({{"-model", "forest"}, {"-strokes", "soft"}, {"-out", "f.gz"}}).status, 0);
  ASSERT_EQ(run({{"-model", "colour"}, {"-out", "c.gz"}}).status, 0);
  const ProgramResult result =
      run({{"-model", "both"}, {"-mix", "0.25"}, {"-strokes", "soft"}, {"-out", "b.gz"}});
  EXPECT_THAT(result.err, HasSubstr("costs: 0.25 forest, 0.75 colours, as -mix says\n"));
  const std::vector<float> forest = costs("f.gz"), colour = costs("c.gz"), both = costs("b.gz");
  for (std::size_t k = 0; k < both.size(); ++k) {
    ASSERT_NEAR(both[k], 0.25f * forest[k] + 0.75f * colour[k], 1e-4f);
  }
}

TEST_F(DatatermModels, MarkedPixelsKeepTheirLabelsUnlessStrokesAreSoft) {
  for (const std::string model : {"forest", "both"}) {
    ASSERT_EQ(run({{"-model", model}, {"-strokes", "soft"}, {"-thr", "4"}}).status, 0);
    const std::vector<float> soft = costs();
    ASSERT_EQ(run({{"-model", model}, {"-thr", "4"}}).status, 0);
    const std::vector<float> hard = costs();
    for (std::size_t k = 0; k < hard.size(); ++k) {
      const unsigned mark = marks_[k % kAll];
      const bool isOther = mark != 0 && k / kAll + 1 != mark;
      ASSERT_EQ(hard[k], isOther ? 400 : soft[k]) << model << ", " << k;
    }
  }
}

TEST_F(DatatermModels, ColourAloneIsTheSolversOwnDataTerm) {
  ASSERT_EQ(run({{"-model", "colour"}}).status, 0);
  std::vector<RGB> values;
  std::vector<std::vector<RGB>> colours(2);
  for (std::size_t p = 0; p < kAll; ++p) {
    const float v = static_cast<float>(image_[p]) / 255;
    values.push_back({v, v, v, 1});
    if (marks_[p] != 0) colours[marks_[p] - 1u].push_back(values.back());
  }
  RatSeg solver;
  solver.getParams().w = kWide;
  solver.getParams().h = kHigh;
  solver.getParams().n = 2;
  ASSERT_TRUE(solver.alloc());
  RGB* lists[] = {colours[0].data(), colours[1].data()};
  std::size_t counts[] = {colours[0].size(), colours[1].size()};
  solver.setDataterm(values.data(), lists, counts, 5, 10);
  std::vector<float> wanted(2 * kAll);
  solver.getDataterm(wanted.data());
  EXPECT_EQ(costs(), wanted);
  ASSERT_EQ(run({{"-model", "colour"}, {"-strokes", "hard"}}).status, 0);
  EXPECT_NE(costs(), wanted);
}

TEST_F(DatatermModels, ThreadsChangeNothing) {
  ASSERT_EQ(run({{"-model", "both"}}).status, 0);
  const std::string one = text("dataterm.gz");
  program_.environment["OMP_NUM_THREADS"] = "3";
  ASSERT_EQ(run({{"-model", "both"}}).status, 0);
  EXPECT_EQ(text("dataterm.gz"), one);
}

TEST_F(DatatermModels, AKeptModelGivesTheSameCostsAndNeedsNoScribbles) {
  const ProgramResult first =
      run({{"-model", "both"}, {"-save-model", "m"}, {"-strokes", "soft"}, {"-sigma", "3"}});
  EXPECT_THAT(first.out, HasSubstr("Saved m  (model of 2 labels)\n"));
  const std::vector<float> learned = costs();
  const ProgramResult known = run({{"-model", "m"}, {"-scribbles", ""}});
  EXPECT_EQ(known.status, 0) << known.err;
  EXPECT_EQ(costs(), learned);
  EXPECT_THAT(known.out, HasSubstr("  foreground label 0: 32 colours of the model\n"));
  ASSERT_EQ(run({{"-model", "m"}}).status, 0);
  EXPECT_EQ(costs()[kAll + 8 * kWide + 4], 1000) << "scribbles of the picture are kept";
}

TEST_F(DatatermModels, AKeptModelFitsPicturesOfItsKind) {
  ASSERT_EQ(run({{"-model", "forest"}, {"-save-model", "m"}}).status, 0);
  const std::string colours("\x10\x20\x30\x40\x50\x60", 6);
  RawPng{2, 1, 8, RawPng::kColour, colours, "", ""}.save(dir_.file("colour.png"));
  const ProgramResult result = run({{"-model", "m"}, {"-scribbles", ""}, {"-image", "colour.png"}});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err.substr(result.err.find("ERROR")),
            "ERROR: m: expected a model of colour pictures, but found one of grey pictures\n");
}

TEST_F(DatatermModels, WhatIsNoModelIsNamed) {
  const std::string start =
      "expected colour, forest, both or a model that -save-model kept, but found ";
  EXPECT_EQ(run({{"-model", "fores"}}).err, "ERROR: -model fores: " + start +
                                                "a file that does not open: No such file or "
                                                "directory\n");
  EXPECT_EQ(run({{"-model", "image.png"}}).err,
            "ERROR: -model image.png: " + start + "a file that is no kept model\n");
  ASSERT_EQ(run({{"-model", "forest"}, {"-save-model", "m"}}).status, 0);
  std::string bytes = text("m");
  bytes[bytes.size() / 2] ^= 1;
  std::ofstream(dir_.file("m"), std::ios::binary) << bytes;
  EXPECT_EQ(run({{"-model", "m"}}).err,
            "ERROR: -model m: " + start + "a file that is damaged: its checksum is wrong\n");
}

TEST_F(DatatermModels, ForbiddenLabelsCostTooMuchThere) {
  std::vector<unsigned char> mask(kAll);
  mask[5] = 1;
  mask[77] = 200;
  saveGrey("mask.png", mask, kWide);
  ASSERT_EQ(run({{"-model", "colour"}}).status, 0);
  std::vector<float> wanted = costs();
  wanted[kAll + 5] = wanted[kAll + 77] = 1000;
  program_.environment["OMP_NUM_THREADS"] = "1";
  const ProgramResult result =
      program_.run({"-image", "image.png", "-scribbles", "scribbles.png", "-out", "dataterm.gz",
                    "-model", "colour", "-forbid", "1", "mask.png"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(costs(), wanted);
  EXPECT_THAT(result.err,
              HasSubstr("ratseg-dataterm: label 1 is forbidden at 2 of 1536 pixels by mask.png\n"));
}

TEST_F(DatatermModels, AConfusedLabelIsWarnedOfAndStrictEndsThere) {
  // Noise, with single pixels marked by chance.
  std::mt19937 chance(1);
  std::vector<unsigned char> noise(kAll), marks(kAll);
  for (std::size_t p = 0; p < kAll; ++p) {
    noise[p] = static_cast<unsigned char>(chance() % 256);
    if (p % 3 == 0 && p / kWide % 2 == 0) marks[p] = static_cast<unsigned char>(1 + chance() % 2);
  }
  saveGrey("image.png", noise, kWide);
  saveGrey("scribbles.png", marks, kWide);
  const ProgramResult result = run({{"-model", "both"}});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("ratseg-dataterm: warning: label "));
  EXPECT_THAT(result.err, HasSubstr(" % of the held-out strokes\n"));
  std::filesystem::remove(dir_.file("dataterm.gz"));
  const ProgramResult strict = run({{"-model", "both"}, {"-strict", "1"}, {"-shares", "image"}});
  EXPECT_EQ(strict.status, 1);
  EXPECT_FALSE(std::filesystem::exists(dir_.file("dataterm.gz")));
}

TEST_F(DatatermModels, PicturesAndMarksOfAnySizeWork) {
  saveGrey("image.png", {7}, 1);
  saveGrey("scribbles.png", {2}, 1);
  const ProgramResult tiny = run({{"-model", "both"}});
  EXPECT_EQ(tiny.status, 0) << tiny.err;
  EXPECT_THAT(tiny.err, HasSubstr("a single label is marked: costs by colour alone\n"));
  EXPECT_EQ(costs(), (std::vector<float>{1000, 0}));
  std::vector<unsigned char> image(5000 * 3), marks(5000 * 3);
  for (std::size_t k = 0; k < image.size(); ++k) image[k] = static_cast<unsigned char>(k % 251);
  for (std::size_t k = 0; k < 254; ++k) marks[k * 50] = static_cast<unsigned char>(k + 1);
  saveGrey("image.png", image, 5000);
  saveGrey("scribbles.png", marks, 5000);
  EXPECT_EQ(run({{"-model", "both"}}).status, 0);
  EXPECT_EQ(costs().size(), 254u * 15000u);
}

TEST_F(DatatermModels, LabelsWithoutStrokesCostThrEverywhere) {
  for (unsigned char& mark : marks_) mark = mark == 2 ? 3 : mark;
  saveGrey("scribbles.png", marks_, kWide);
  ASSERT_EQ(run({{"-model", "forest"}, {"-thr", "6"}, {"-strokes", "soft"}}).status, 0);
  const std::vector<float> rho = costs();
  ASSERT_EQ(rho.size(), 3 * kAll);
  EXPECT_THAT(std::vector<float>(rho.begin() + kAll, rho.begin() + 2 * kAll), Each(6.0f));
}

TEST_F(DatatermModels, NothingIsSaidOfColoursAlone) {
  const ProgramResult result = run({{"-model", "colour"}, {"-shares", "image"}});
  EXPECT_THAT(result.err, Not(HasSubstr("ratseg-dataterm")));
}

}  // namespace
}  // namespace namespace_ratseg
