#include "files/turn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace namespace_ratseg {
namespace {

std::vector<int> shown(int orientation) {
  const int stored[] = {1, 2, 3, 4, 5, 6};  // 3 x 2
  std::vector<int> result(6);
  turn(stored, 3, 2, orientation, result.data());
  return result;
}

// As the EXIF standard draws them.
TEST(Turn, AllOrientations) {
  using testing::ElementsAre;
  EXPECT_THAT(shown(1), ElementsAre(1, 2, 3, 4, 5, 6));
  EXPECT_THAT(shown(2), ElementsAre(3, 2, 1, 6, 5, 4));
  EXPECT_THAT(shown(3), ElementsAre(6, 5, 4, 3, 2, 1));
  EXPECT_THAT(shown(4), ElementsAre(4, 5, 6, 1, 2, 3));
  EXPECT_THAT(shown(5), ElementsAre(1, 4, 2, 5, 3, 6));
  EXPECT_THAT(shown(6), ElementsAre(4, 1, 5, 2, 6, 3));
  EXPECT_THAT(shown(7), ElementsAre(6, 3, 5, 2, 4, 1));
  EXPECT_THAT(shown(8), ElementsAre(3, 6, 2, 5, 1, 4));
  EXPECT_THAT(shown(9), ElementsAre(1, 2, 3, 4, 5, 6));
  for (int k = 0; k < 10; ++k) EXPECT_EQ(swapsSides(k), k >= 5 && k <= 8) << k;
}

}  // namespace
}  // namespace namespace_ratseg
