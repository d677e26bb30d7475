#include "models/channels.h"

#include <gtest/gtest.h>

namespace namespace_ratseg {
namespace {

Channels colour(const std::vector<float>& interleaved) {
  Channels picture;
  picture.w = interleaved.size() / 3;
  picture.h = 1;
  picture.step = 3;
  picture.data = {&interleaved[0], &interleaved[1], &interleaved[2]};
  picture.kind = ChannelKind::colour;
  return picture;
}

TEST(Channels, ColoursThatAreEqualEverywhereAreGrey) {
  const std::vector<float> pixels = {0.1f, 0.1f, 0.1f, 0.7f, 0.7f, 0.7f};
  const Channels grey = greyWhereEqual(colour(pixels));
  EXPECT_EQ(grey.kind, ChannelKind::grey);
  ASSERT_EQ(grey.data.size(), 1u);
  EXPECT_EQ(grey.data[0][3], 0.7f);
}

TEST(Channels, OneColouredPixelIsEnough) {
  for (const std::size_t odd : {4, 5}) {
    std::vector<float> pixels = {0.1f, 0.1f, 0.1f, 0.7f, 0.7f, 0.7f};
    pixels[odd] = 0.8f;
    EXPECT_EQ(greyWhereEqual(colour(pixels)).kind, ChannelKind::colour);
  }
}

TEST(Channels, OtherMeasurementsStayWhatTheyAre) {
  const std::vector<float> pixels = {1, 1, 1};
  Channels other = colour(pixels);
  other.kind = ChannelKind::other;
  EXPECT_EQ(greyWhereEqual(other).data.size(), 3u);
}

}  // namespace
}  // namespace namespace_ratseg
