#include "project/label_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace namespace_ratseg {
namespace {

std::string fault(const std::string& text) {
  try {
    parseLabelList(text);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "";
}

TEST(LabelList, ShareInPerCentAndARest) {
  const auto labels = parseLabelList("austenite 58, martensite 9, dark matrix 32, rest");
  ASSERT_EQ(labels.size(), 4u);
  EXPECT_EQ(labels[0].name, "austenite");
  EXPECT_DOUBLE_EQ(*labels[0].share, 0.58);
  EXPECT_EQ(labels[2].name, "dark matrix");
  EXPECT_DOUBLE_EQ(*labels[2].share, 0.32);
  EXPECT_EQ(labels[3].name, "rest");
  EXPECT_FALSE(labels[3].share);
  EXPECT_TRUE(labels[3].takesRest);
  for (const ProjectLabel& label : labels) EXPECT_FALSE(label.spread || label.colour);
}

TEST(LabelList, ShareInPartsOrWithAPercentSign) {
  EXPECT_DOUBLE_EQ(*parseLabelList("a 0.3, b 0.7")[1].share, 0.7);
  EXPECT_DOUBLE_EQ(*parseLabelList("a 0.5%, b")[0].share, 0.005);
  EXPECT_DOUBLE_EQ(*parseLabelList("a 1, b 0.2")[0].share, 1);
  EXPECT_DOUBLE_EQ(*parseLabelList("a 1.5, b 98.5")[0].share, 0.015);
}

TEST(LabelList, SpreadInWordsAndNumbers) {
  const auto labels = parseLabelList("a 20 guess, b 30 +-2, c 25 ± 3, d 10 measured, e roughly");
  EXPECT_DOUBLE_EQ(*labels[0].spread, 0.1);
  EXPECT_DOUBLE_EQ(*labels[1].spread, 0.02);
  EXPECT_DOUBLE_EQ(*labels[2].spread, 0.03);
  EXPECT_DOUBLE_EQ(*labels[3].spread, 0.02);
  EXPECT_DOUBLE_EQ(*labels[4].spread, 0.05);
  EXPECT_TRUE(labels[4].takesRest);
  EXPECT_DOUBLE_EQ(*parseLabelList("a 0.2 +-0.03, b 0.8")[0].spread, 0.03);
}

TEST(LabelList, NamesThatLookLikeOtherThings) {
  EXPECT_EQ(parseLabelList("measured, b")[0].name, "measured");
  EXPECT_EQ(parseLabelList("phase 2 40, b")[0].name, "phase 2");
  EXPECT_EQ(parseLabelList("Fe3C 5%, α 95%")[1].name, "α");
}

TEST(LabelList, WithoutAnySharesNothingTakesTheRest) {
  for (const ProjectLabel& label : parseLabelList("a, b , c")) {
    EXPECT_FALSE(label.share);
    EXPECT_FALSE(label.takesRest);
  }
}

TEST(LabelList, Colours) {
  const auto labels = parseLabelList("a #ff8000 20, b #00FF00");
  EXPECT_EQ(*labels[0].colour, (std::array<std::uint8_t, 3>{255, 128, 0}));
  EXPECT_EQ(*labels[1].colour, (std::array<std::uint8_t, 3>{0, 255, 0}));
  EXPECT_DOUBLE_EQ(*labels[0].share, 0.2);
}

TEST(LabelList, SaysWhatIsWrong) {
  EXPECT_EQ(fault(""), "expected a label between commas, but found none");
  EXPECT_EQ(fault("a 5,, b"), "expected a label between commas, but found none");
  EXPECT_EQ(fault("a 5, a"), "expected each label once, but found \"a\" twice");
  EXPECT_EQ(fault("58, b"), "expected the name of a label before its share, but found \"58\"");
  EXPECT_EQ(fault("a 5, b, c"),
            "expected at most one label without a share, but found \"b\" and \"c\"");
  EXPECT_EQ(fault("a 120, b"), "expected shares of at most 100 %, but found more for \"a\"");
  EXPECT_EQ(fault("a -5, b"), "expected numbers of at least 0, but found \"a -5\"");
}

}  // namespace
}  // namespace namespace_ratseg
