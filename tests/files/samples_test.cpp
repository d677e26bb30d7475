#include "files/samples.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;

std::vector<float> floatsOf(SampleKind kind, int bits, const std::vector<std::uint8_t>& bytes,
                            std::size_t count) {
  std::vector<float> values(count);
  toFloats({kind, bits}, bytes.data(), count, values.data());
  return values;
}

TEST(Samples, OfAnyNumberOfBits) {
  const auto kUnsigned = SampleKind::unsignedInteger;
  EXPECT_THAT(floatsOf(kUnsigned, 1, {0b10110000}, 5), ElementsAre(1, 0, 1, 1, 0));
  EXPECT_THAT(floatsOf(kUnsigned, 4, {0x5c, 0xf0}, 3), ElementsAre(5, 12, 15));
  EXPECT_THAT(floatsOf(kUnsigned, 12, {0xab, 0xcd, 0xef}, 2), ElementsAre(0xabc, 0xdef));
  EXPECT_THAT(floatsOf(kUnsigned, 24, {1, 2, 3}, 1), ElementsAre(0x10203));
  EXPECT_THAT(floatsOf(SampleKind::signedInteger, 4, {0x7f, 0x80}, 3), ElementsAre(7, -1, -8));
  EXPECT_THAT(floatsOf(kUnsigned, 31, {0xff, 0xff, 0xff, 0xff}, 1), ElementsAre(2147483647.0f));
}

TEST(Samples, OfTheMachinesOwnTypes) {
  EXPECT_THAT(floatsOf(SampleKind::signedInteger, 8, {0x80, 0x7f}, 2), ElementsAre(-128, 127));
  EXPECT_THAT(floatsOf(SampleKind::unsignedInteger, 16, {0x34, 0x12}, 1), ElementsAre(0x1234));
  EXPECT_THAT(floatsOf(SampleKind::signedInteger, 32, {0xfe, 0xff, 0xff, 0xff}, 1),
              ElementsAre(-2));
  EXPECT_THAT(floatsOf(SampleKind::floating, 32, {0, 0, 0xc0, 0x3f}, 1), ElementsAre(1.5f));
}

TEST(Samples, OfHalfFloats) {
  const auto half = [](int bits) {
    return floatsOf(SampleKind::floating, 16,
                    {static_cast<std::uint8_t>(bits & 255), static_cast<std::uint8_t>(bits >> 8)},
                    1)[0];
  };
  EXPECT_EQ(half(0x3c00), 1);
  EXPECT_EQ(half(0xc000), -2);
  EXPECT_EQ(half(0x7bff), 65504);
  EXPECT_EQ(half(0x0400), std::ldexp(1.0f, -14));
  EXPECT_EQ(half(0x0001), std::ldexp(1.0f, -24));
  EXPECT_EQ(half(0x0000), 0);
  EXPECT_TRUE(std::isinf(half(0xfc00)) && half(0xfc00) < 0);
  EXPECT_TRUE(std::isnan(half(0x7e00)));
}

TEST(Samples, KnowTheirBytes) {
  EXPECT_EQ(sampleBytes({SampleKind::unsignedInteger, 1}, 9), 2u);
  EXPECT_EQ(sampleBytes({SampleKind::unsignedInteger, 12}, 3), 5u);
  EXPECT_EQ(sampleBytes({SampleKind::floating, 64}, 3), 24u);
  EXPECT_FALSE(samplesAreKnown({SampleKind::floating, 24}));
  EXPECT_FALSE(samplesAreKnown({SampleKind::unsignedInteger, 33}));
  EXPECT_TRUE(samplesAreKnown({SampleKind::signedInteger, 64}));
}

TEST(Samples, SwapTheirBytes) {
  std::vector<std::uint8_t> bytes = {1, 2, 3, 4};
  swapBytes(bytes.data(), 2, 2);
  EXPECT_THAT(bytes, ElementsAre(2, 1, 4, 3));
}

}  // namespace
}  // namespace namespace_ratseg
