#include "app/dataterm/scribble_warnings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

DatatermOptions options(bool sharesOfImage = false) {
  DatatermOptions result;
  result.scribbles = "s.png";
  result.truth = "t.png";
  result.thr = 2.5f;
  result.sharesOfImage = sharesOfImage;
  return result;
}

TEST(ScribbleWarnings, AreNoneWhereFewPixelsOfEachLabelAreMarked) {
  EXPECT_THAT(scribbleWarnings({1, 1, 1}, 100, options()), IsEmpty());
}

TEST(ScribbleWarnings, NameEachOfFewLabelsWithoutScribbles) {
  EXPECT_THAT(scribbleWarnings({1, 0, 1}, 100, options()),
              ElementsAre("label 1 has no scribbles in s.png: it costs thr = 2.5 everywhere"));
  const auto five = scribbleWarnings({0, 0, 0, 0, 0, 1}, 100, options());
  ASSERT_EQ(five.size(), 5u);
  EXPECT_EQ(five[4], "label 4 has no scribbles in s.png: it costs thr = 2.5 everywhere");
}

TEST(ScribbleWarnings, CountManyLabelsWithoutScribblesInOneLine) {
  EXPECT_THAT(scribbleWarnings({0, 1, 0, 0, 0, 0, 0, 0, 1}, 100, options()),
              ElementsAre("7 labels (0, 2, 3, 4, 5, ...) have no scribbles in s.png: each costs "
                          "thr = 2.5 everywhere"));
  EXPECT_EQ(scribbleWarnings({0, 0, 0, 0, 0, 0, 1}, 100, options()).size(), 1u);
}

TEST(ScribbleWarnings, TellLabelsThatOnlyTheTruthHas) {
  std::vector<std::size_t> marks(256, 0);
  marks[0] = marks[2] = 1;
  EXPECT_THAT(
      scribbleWarnings(marks, 100, options()),
      ElementsAre("t.png holds label numbers up to 255, but s.png marks labels up to 2: the data "
                  "term is made for 256 labels, with 255 as the background",
                  "254 labels (1, 3, 4, 5, 6, ...) have no scribbles in s.png: each costs thr = "
                  "2.5 everywhere"));
  EXPECT_THAT(
      scribbleWarnings({1, 1, 1, 0}, 100, options(true)),
      ElementsAre("t.png holds label numbers up to 3, but s.png marks labels up to 2: the data "
                  "term is made for 4 labels",
                  "label 3 has no scribbles in s.png: it costs thr = 2.5 everywhere"));
}

TEST(ScribbleWarnings, TellScribblesOnMoreThanHalfOfThePixels) {
  EXPECT_THAT(scribbleWarnings({1, 2, 3}, 12, options()), IsEmpty());
  EXPECT_THAT(scribbleWarnings({1, 2, 4}, 12, options()),
              ElementsAre("7 of 12 pixels are marked in s.png; the usual reason is a black "
                          "background that became another grey value or colour index than 0"));
  EXPECT_EQ(scribbleWarnings({1, 1, 1}, 5, options()).size(), 1u);
}

TEST(ScribbleWarnings, TellFewPixelsOfALabelBesideManyOfAnother) {
  EXPECT_THAT(scribbleWarnings({300, 3, 4, 1}, 10000, options()),
              ElementsAre("label 1 has only 3 scribble pixels in s.png: a stray mark?",
                          "label 3, the background, has only 1 scribble pixel in s.png: a stray "
                          "mark?"));
  EXPECT_THAT(scribbleWarnings({1, 300, 300}, 10000, options(true)),
              ElementsAre("label 0 has only 1 scribble pixel in s.png: a stray mark?"));
  EXPECT_THAT(scribbleWarnings({300, 300, 1}, 10000, options(true)),
              ElementsAre("label 2 has only 1 scribble pixel in s.png: a stray mark?"));
  EXPECT_THAT(scribbleWarnings({299, 3, 1}, 10000, options()), IsEmpty());
}

TEST(ScribbleWarnings, TellASingleForegroundLabelUnlessSharesAreOfTheImage) {
  EXPECT_THAT(scribbleWarnings({1, 1}, 100, options()),
              ElementsAre("with a single foreground label, shares of the foreground say nothing; "
                          "-shares image makes the prior work"));
  EXPECT_THAT(scribbleWarnings({1, 1}, 100, options(true)), IsEmpty());
}

}  // namespace
}  // namespace namespace_ratseg
