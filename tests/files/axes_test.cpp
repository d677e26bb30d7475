#include "files/axes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "files/file_error.h"

namespace namespace_ratseg {
namespace {

Array arrayOf(const std::vector<std::size_t>& shape) {
  Array array;
  array.shape = shape;
  array.values.resize(elementCount(shape));
  std::iota(array.values.begin(), array.values.end(), 0.0f);
  return array;
}

std::string errorOf(const Array& array, const std::string& axes, std::size_t w, std::size_t h) {
  try {
    planesOf(array, axes, w, h);
  } catch (const FileError& error) {
    return error.what();
  }
  return "none";
}

TEST(Axes, KnowsItsLetters) {
  for (const char* axes : {"nyx", "yxn", "cyx", "tzyxc", "xnty"})
    EXPECT_TRUE(areAxes(axes)) << axes;
  for (const char* axes : {"", "yx", "nyxx", "ncyx", "nyxa", "zt", "nyxzz"}) {
    EXPECT_FALSE(areAxes(axes)) << axes;
  }
}

TEST(Axes, PlanesAreRowsOfEachLabel) {
  // (y, x, n) of 2 x 3 pixels and 2 labels.
  const Array array = arrayOf({2, 3, 2});
  const std::vector<float> planes = inPlanes(array, planesOf(array, "yxn", 3, 2), 3, 2);
  EXPECT_THAT(planes, testing::ElementsAre(0, 2, 4, 6, 8, 10, 1, 3, 5, 7, 9, 11));
}

TEST(Axes, OneReadingIsFoundAndSeveralAreListed) {
  const Array array = arrayOf({4, 2, 3});
  EXPECT_EQ(errorOf(array, "", 3, 2), "none");
  EXPECT_EQ(planesOf(array, "", 3, 2).labels, 4u);
  EXPECT_EQ(
      errorOf(arrayOf({2, 2, 3}), "", 3, 2),
      "has 2 x 2 x 3 elements, which can be read as nyx, ynx; -axes says which (n label, y, x)");
  EXPECT_EQ(errorOf(arrayOf({2, 2, 2}), "", 2, 2),
            "has 2 x 2 x 2 elements, which can be read as nxy, nyx, xny, xyn, ynx, yxn; -axes says "
            "which (n label, y, x)");
}

TEST(Axes, ThatAreOfLength1MakeNoDifference) {
  EXPECT_EQ(errorOf(arrayOf({3, 1, 5}), "", 5, 1), "none");
  EXPECT_EQ(errorOf(arrayOf({1, 3, 1, 5}), "", 5, 1), "none");
  EXPECT_EQ(errorOf(arrayOf({1, 1, 3, 1, 5}), "", 5, 1), "none");
  EXPECT_EQ(errorOf(arrayOf({3, 1, 1}), "", 1, 1), "none");
}

TEST(Axes, OfTheFileGiveWayToThoseGiven) {
  Array array = arrayOf({2, 2, 2});
  array.axes = "nyx";
  EXPECT_EQ(planesOf(array, "", 2, 2).label, 4u);
  EXPECT_EQ(planesOf(array, "yxn", 2, 2).label, 1u);
  array.axes = "qqq";
  EXPECT_NE(errorOf(array, "", 2, 2), "none");
}

TEST(Axes, NoSizesAreTooLargeToBeNamed) {
  EXPECT_THROW(elementCount({std::size_t{1} << 40, std::size_t{1} << 40}), FileError);
  EXPECT_EQ(elementCount({0, std::size_t{1} << 40, std::size_t{1} << 40}), 0u);
  EXPECT_EQ(elementCount({}), 1u);
}

}  // namespace
}  // namespace namespace_ratseg
