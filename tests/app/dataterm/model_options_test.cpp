#include "app/dataterm/model_options.h"

#include <gtest/gtest.h>

#include "app/dataterm/input_error.h"
#include "util/cmd.h"

namespace namespace_ratseg {
namespace {

using Kind = ModelOptions::Kind;

ModelOptions parse(std::vector<const char*> words) {
  words.insert(words.begin(), "p");
  return ModelOptions::parse(Cmd(static_cast<int>(words.size()), words.data(), "", nullptr, 0));
}

std::string complaint(const std::vector<const char*>& words) {
  try {
    parse(words);
  } catch (const InputError& e) {
    return e.what();
  }
  return "no complaint";
}

TEST(ModelOptions, HaveDefaults) {
  const ModelOptions options = parse({});
  EXPECT_EQ(options.kind, Kind::both);
  EXPECT_FALSE(options.given);
  EXPECT_FALSE(options.mix.has_value());
  EXPECT_EQ(options.save, "");
  EXPECT_TRUE(options.forbidden.empty());
  EXPECT_TRUE(options.hardStrokes());
}

TEST(ModelOptions, StrokesAreSoftWhereColourIsAskedFor) {
  EXPECT_FALSE(parse({"-model", "colour"}).hardStrokes());
  EXPECT_TRUE(parse({"-model", "forest"}).hardStrokes());
  EXPECT_TRUE(parse({"-model", "colour", "-strokes", "hard"}).hardStrokes());
  EXPECT_FALSE(parse({"-strokes", "soft"}).hardStrokes());
}

TEST(ModelOptions, AreRead) {
  const ModelOptions options = parse({"-model", "both", "-mix", "0.25", "-save-model", "m",
                                      "-forbid", "0", "a.png", "2", "b.png"});
  EXPECT_EQ(*options.mix, 0.25f);
  EXPECT_EQ(options.save, "m");
  ASSERT_EQ(options.forbidden.size(), 2u);
  EXPECT_EQ(options.forbidden[1].first, 2u);
  EXPECT_EQ(options.forbidden[1].second, "b.png");
  EXPECT_EQ(parse({"-model", "some/file"}).file, "some/file");
  EXPECT_EQ(parse({"-model", "some/file"}).kind, Kind::file);
}

TEST(ModelOptions, WhatCannotBeIsRefused) {
  for (const char* value : {"-0.1", "1.1", "nan", "x", "0.5x"}) {
    EXPECT_EQ(complaint({"-mix", value}).substr(0, 38), "-mix: expected a number from 0 to 1, b")
        << value;
  }
  EXPECT_EQ(complaint({"-model", "forest", "-mix", "0.5"}),
            "-mix: expected -model both, whose parts it says, but found another model");
  EXPECT_EQ(complaint({"-model"}),
            "-model: expected colour, forest, both or a file name, but found nothing");
  EXPECT_EQ(complaint({"-strokes", "firm"}), "-strokes: expected hard or soft, but found \"firm\"");
  EXPECT_EQ(complaint({"-model", "colour", "-save-model", "m"}),
            "-save-model: expected -model forest or both, which is kept, but found another model");
  EXPECT_EQ(
      complaint({"-forbid", "0"}),
      "-forbid: expected a label and a mask picture, or several such pairs, but found 1 value");
  EXPECT_EQ(complaint({"-forbid", "255", "m.png"}),
            "-forbid: expected a label and a mask picture, or several such pairs, but found "
            "\"255 m.png\"");
}

}  // namespace
}  // namespace namespace_ratseg
