#include "micrograph.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <array>
#include <cstddef>
#include <vector>

namespace namespace_ratseg {
namespace {

unsigned long checksum(const std::vector<std::uint8_t>& pixels) {
  return crc32(0, pixels.data(), static_cast<unsigned>(pixels.size()));
}

std::array<std::size_t, 256> histogram(const std::vector<std::uint8_t>& pixels) {
  std::array<std::size_t, 256> counts{};
  for (std::uint8_t p : pixels) ++counts[p];
  return counts;
}

TEST(Micrograph, HasTheSameBytesOnEveryMachine) {
  const Micrograph m = Micrograph::draw(640, 480, 7);
  EXPECT_EQ(checksum(m.grey), 1030874600ul);
  EXPECT_EQ(checksum(m.truth), 2662712774ul);
  EXPECT_EQ(checksum(m.scribbles), 3706518313ul);
}

TEST(Micrograph, DependsOnTheSeed) {
  EXPECT_NE(Micrograph::draw(128, 96, 1).grey, Micrograph::draw(128, 96, 2).grey);
  EXPECT_NE(Micrograph::draw(128, 96, 1).truth, Micrograph::draw(128, 96, 2).truth);
}

TEST(Micrograph, HasTheSizeThatIsAskedFor) {
  const Micrograph m = Micrograph::draw(101, 64, 3);
  EXPECT_EQ(m.w, 101);
  EXPECT_EQ(m.h, 64);
  EXPECT_EQ(m.grey.size(), 101u * 64);
  EXPECT_EQ(m.truth.size(), 101u * 64);
  EXPECT_EQ(m.scribbles.size(), 101u * 64);
}

TEST(Micrograph, ShowsAllLabelsAndNoOther) {
  const auto counts = histogram(Micrograph::draw(640, 480, 7).truth);
  for (std::size_t k = 0; k < 256; ++k) {
    EXPECT_EQ(counts[k] > 640 * 480 / 100, k < Micrograph::kLabels) << "label " << k;
  }
}

TEST(Micrograph, ScribblesAreFewAndInsideTheirLabels) {
  const Micrograph m = Micrograph::draw(640, 480, 7);
  for (std::size_t i = 0; i < m.scribbles.size(); ++i) {
    if (m.scribbles[i] > 0) {
      ASSERT_EQ(m.scribbles[i], m.truth[i] + 1) << "pixel " << i;
    }
  }
  const auto counts = histogram(m.scribbles);
  for (std::size_t mark = 1; mark <= Micrograph::kLabels; ++mark) {
    EXPECT_GT(counts[mark], 100u) << "mark " << mark;
  }
  EXPECT_GT(counts[0], m.scribbles.size() * 98 / 100);
}

TEST(Micrograph, GreyLevelsOfTheLabelsOverlap) {
  const Micrograph m = Micrograph::draw(640, 480, 7);
  // Of the small islands' middle grey there is more in the two large labels.
  std::size_t islands = 0;
  std::size_t others = 0;
  for (std::size_t i = 0; i < m.grey.size(); ++i) {
    if (m.grey[i] < 115 || m.grey[i] > 125) continue;
    ++(m.truth[i] == Micrograph::kIsland ? islands : others);
  }
  EXPECT_GT(islands, 1000u);
  EXPECT_GT(others, islands);
}

}  // namespace
}  // namespace namespace_ratseg
