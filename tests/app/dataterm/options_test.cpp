#include "app/dataterm/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/dataterm/input_error.h"

namespace namespace_ratseg {
namespace {

DatatermOptions parse(const std::vector<std::string>& words) {
  std::vector<const char*> argv = {"ratseg-dataterm"};
  for (const std::string& word : words) argv.push_back(word.c_str());
  return DatatermOptions::parse(static_cast<int>(argv.size()), argv.data());
}

// The three required options and some more.
std::vector<std::string> complete(const std::vector<std::string>& more = {}) {
  std::vector<std::string> words = {"-image", "i.png", "-scribbles", "s.png", "-out", "d.gz"};
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

std::string complaint(const std::vector<std::string>& words) {
  try {
    parse(words);
  } catch (const InputError& e) {
    return e.what();
  }
  return "no complaint";
}

TEST(DatatermOptions, HaveDefaults) {
  const auto options = parse(complete());
  EXPECT_EQ(options.image, "i.png");
  EXPECT_EQ(options.scribbles, "s.png");
  EXPECT_EQ(options.out, "d.gz");
  EXPECT_EQ(options.scribbledImage, "");
  EXPECT_EQ(options.truth, "");
  EXPECT_EQ(options.proportions, "");
  EXPECT_EQ(options.sigma, 5.0f);
  EXPECT_EQ(options.thr, 10.0f);
  EXPECT_EQ(options.spread, 0.02);
  EXPECT_FALSE(options.sharesOfImage);
  EXPECT_EQ(options.device, "");
  EXPECT_FALSE(options.strict);
}

TEST(DatatermOptions, AreRead) {
  const auto options = parse(complete(
      {"-truth", "t.png", "-proportions", "p.txt", "-spread", "0", "-sigma", "2.5", "-thr", "1e2",
       "-shares", "image", "-device", "host", "-scribbled-image", "f.png", "-strict", "1"}));
  EXPECT_TRUE(options.strict);
  EXPECT_EQ(options.scribbledImage, "f.png");
  EXPECT_EQ(options.truth, "t.png");
  EXPECT_EQ(options.proportions, "p.txt");
  EXPECT_EQ(options.spread, 0.0);
  EXPECT_EQ(options.sigma, 2.5f);
  EXPECT_EQ(options.thr, 100.0f);
  EXPECT_TRUE(options.sharesOfImage);
  EXPECT_EQ(options.device, "host");
  EXPECT_FALSE(parse(complete({"-shares", "foreground"})).sharesOfImage);
}

TEST(DatatermOptions, VoidCostIsAHundredTimesThr) {
  EXPECT_EQ(parse(complete({"-thr", "7"})).voidCost(), 700.0f);
}

TEST(DatatermOptions, RequiredOnesMustBeThere) {
  EXPECT_EQ(complaint({"-scribbles", "s", "-out", "d"}),
            "-image: expected a file name, but found that the option is missing");
  EXPECT_EQ(complaint({"-image", "i", "-out", "d"}),
            "-scribbles: expected a file name, but found that the option is missing");
  EXPECT_EQ(complaint({"-image", "i", "-scribbles", "s"}),
            "-out: expected a file name, but found that the option is missing");
}

TEST(DatatermOptions, NeedOneValueEach) {
  EXPECT_EQ(complaint({"-image", "-scribbles", "s", "-out", "d"}),
            "-image: expected a file name, but found nothing");
  EXPECT_EQ(complaint({"-image", "my", "picture.png", "-scribbles", "s", "-out", "d"}),
            "-image: expected a file name, but found 2 values");
  EXPECT_EQ(complaint(complete({"-sigma"})),
            "-sigma: expected a number greater than 0, but found nothing");
}

TEST(DatatermOptions, UnknownOnesAndStrayWordsAreRefused) {
  EXPECT_EQ(complaint(complete({"-sgima", "4"})),
            "-sgima: expected one of the options that the usage screen lists, but found an unknown "
            "one");
  EXPECT_EQ(complaint({"i.png", "-scribbles", "s", "-out", "d"}),
            "command line: expected an option, but found \"i.png\"");
}

TEST(DatatermOptions, NumbersMustBeNumbersInTheirRange) {
  for (const std::string value :
       {"0", "-1", "abc", "5x", "inf", "nan", "1e99", "1e-60", "0x5", "1,5", "+5", " 5"}) {
    EXPECT_EQ(complaint(complete({"-sigma", value})),
              "-sigma: expected a number greater than 0, but found \"" + value + "\"");
    EXPECT_EQ(complaint(complete({"-thr", value})),
              "-thr: expected a number greater than 0 and below 1e36, but found \"" + value + "\"");
  }
  EXPECT_EQ(complaint(complete({"-thr", "1e36"})),
            "-thr: expected a number greater than 0 and below 1e36, but found \"1e36\"");
  for (const std::string value : {"-0.1", "abc", "inf", "nan", "1e39", "0,1", "0x1", "0.1 "}) {
    EXPECT_EQ(complaint(complete({"-truth", "t", "-proportions", "p", "-spread", value})),
              "-spread: expected a number of at least 0, but found \"" + value + "\"");
  }
}

TEST(DatatermOptions, TruthProportionsAndSpreadGoTogether) {
  EXPECT_EQ(complaint(complete({"-truth", "t"})),
            "-proportions: expected a file name, since -truth is given, but found that the option "
            "is missing");
  EXPECT_EQ(complaint(complete({"-proportions", "p"})),
            "-truth: expected a file name, since -proportions is given, but found that the option "
            "is missing");
  EXPECT_EQ(complaint(complete({"-spread", "0.1"})),
            "-truth: expected a file name, since -spread is given, but found that the option is "
            "missing");
}

TEST(DatatermOptions, ChoicesMustBeOnesThatThereAre) {
  EXPECT_EQ(complaint(complete({"-shares", "picture"})),
            "-shares: expected foreground or image, but found \"picture\"");
  EXPECT_EQ(complaint(complete({"-device", "gpu"})),
            "-device: expected auto, cuda or host, but found \"gpu\"");
  EXPECT_EQ(complaint(complete({"-strict", "yes"})), "-strict: expected 0 or 1, but found \"yes\"");
  EXPECT_FALSE(parse(complete({"-strict", "0"})).strict);
}

}  // namespace
}  // namespace namespace_ratseg
