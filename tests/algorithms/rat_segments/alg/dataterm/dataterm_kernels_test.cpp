// The scribble data term on the device under test, against the formula in double.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "device/runtime.h"
#include "support/device_values.h"
#include "support/machine.h"

namespace namespace_ratseg {
namespace {

struct Lab {
  double L, a, b;
};

Lab labOf(const float4& c) {
  const auto linear = [](double v) {
    return 100.0 * (v > 0.04045 ? std::pow((v + 0.055) / 1.055, 2.4) : v / 12.92);
  };
  const auto f = [](double t) { return t > 0.008856 ? std::cbrt(t) : 7.787 * t + 16.0 / 116.0; };
  const double r = linear(c.x), g = linear(c.y), b = linear(c.z);
  const double x = f((0.4124 * r + 0.3576 * g + 0.1805 * b) / 95.047);
  const double y = f((0.2126 * r + 0.7152 * g + 0.0722 * b) / 100.0);
  const double z = f((0.0193 * r + 0.1192 * g + 0.9505 * b) / 108.883);
  return {116.0 * y - 16.0, 500.0 * (x - y), 200.0 * (y - z)};
}

double costOf(const float4& pixel, const std::vector<float4>& scribbles, double sigma, double thr) {
  if (scribbles.empty()) return thr;
  const Lab p = labOf(pixel);
  double sum = 0.0;
  for (const float4& s : scribbles) {
    const Lab q = labOf(s);
    const double d2 =
        (p.L - q.L) * (p.L - q.L) + (p.a - q.a) * (p.a - q.a) + (p.b - q.b) * (p.b - q.b);
    sum += std::exp(-d2 / sigma / sigma / 2.0);
  }
  return std::min(thr, -std::log(sum / static_cast<double>(scribbles.size())));
}

class DatatermKernels : public DeviceTest {
 protected:
  // The costs of an image of one row for label 1 of 2.
  static std::vector<float> costs(const std::vector<float4>& image,
                                  const std::vector<float4>& scribbles, float sigma, float thr) {
    const std::size_t w = image.size();
    const DeviceFloats rho(std::vector<float>(2 * w, -1.0f));
    const DeviceValues<float4> pixels(image);
    std::vector<float4> atLeastOne = scribbles;
    if (atLeastOne.empty()) atLeastOne.resize(1);
    const DeviceValues<float4> colours(atLeastOne);
    const LaunchShape shape = {{static_cast<unsigned>((w + 31) / 32), 1, 1}, {32, 2, 1}, 0};
    ratSegKernels().ratseg_setdataterm_scribbles(shape, rho, pixels, colours, scribbles.size(),
                                                 sigma, thr, w, 1, 0, 1, 2, 1);
    EXPECT_EQ(cudaGetLastError(), cudaSuccess);
    const std::vector<float> all = rho.values();
    for (std::size_t k = 0; k < w; ++k) EXPECT_EQ(all[k], -1.0f) << "the other label's plane";
    return {all.begin() + static_cast<std::ptrdiff_t>(w), all.end()};
  }

  static std::vector<float4> randomColours(std::size_t count, unsigned seed, int levels) {
    std::mt19937 generator(seed);
    std::vector<float4> colours(count);
    const auto channel = [&] {
      return static_cast<float>(generator() % static_cast<unsigned>(levels)) /
             static_cast<float>(levels - 1);
    };
    for (float4& c : colours) {
      c.x = channel();
      c.y = channel();
      c.z = channel();
      c.w = channel();  // carries no meaning
    }
    return colours;
  }
};

TEST_F(DatatermKernels, FollowsTheFormula) {
  for (const int levels : {4, 256}) {
    const std::vector<float4> image = randomColours(700, 1, levels);
    for (const std::size_t count : {1u, 2u, 15u, 16u, 17u, 300u, 700u}) {
      const std::vector<float4> scribbles = randomColours(count, 2, levels);
      const std::vector<float> got = costs(image, scribbles, 20.0f, 10.0f);
      for (std::size_t k = 0; k < image.size(); ++k) {
        ASSERT_NEAR(got[k], costOf(image[k], scribbles, 20.0, 10.0), 2e-4)
            << levels << " levels, " << count << " scribbles, pixel " << k;
      }
    }
  }
}

TEST_F(DatatermKernels, ALabelWithoutScribblesCostsThrEverywhere) {
  EXPECT_EQ(costs(randomColours(40, 3, 256), {}, 5.0f, 7.5f), std::vector<float>(40, 7.5f));
}

TEST_F(DatatermKernels, APixelOfAScribblesColourCostsAtMostTheLogOfTheirNumber) {
  const std::vector<float4> scribbles = randomColours(20, 4, 256);
  for (float cost : costs(scribbles, scribbles, 5.0f, 100.0f)) {
    EXPECT_LE(cost, std::log(20.0f) + 1e-5f);
  }
  EXPECT_NEAR(costs({scribbles[0]}, {scribbles[0]}, 5.0f, 100.0f)[0], 0.0f, 1e-6f);
}

TEST_F(DatatermKernels, ThrCapsTheCost) {
  const std::vector<float> got = costs({{0, 0, 0, 1}}, {{1, 1, 1, 1}}, 5.0f, 10.0f);
  EXPECT_EQ(got[0], 10.0f);
}

// Black and white are 100 apart. At sigma 7 exp(-D^2 / (2 sigma^2)) is 5e-45, of which single
// precision holds two bits; at sigma 6.9 it is 0 there, and its logarithm has no bound.
TEST_F(DatatermKernels, DistantScribblesCostWhatTheyAreWorthUntilTheLikelihoodIsZero) {
  const float4 black = {0, 0, 0, 1}, white = {1, 1, 1, 1};
  const float near = costs({black}, {white}, 7.0f, 1000.0f)[0];
  EXPECT_NEAR(near, costOf(black, {white}, 7.0, 1000.0), 1e-2);
  EXPECT_NEAR(near, 102.04, 0.1);
  EXPECT_EQ(costs({black}, {white}, 6.9f, 1000.0f)[0], 1000.0f);
  EXPECT_EQ(costs({black}, {white, white, white}, 5.0f, 1000.0f)[0], 1000.0f);
}

TEST_F(DatatermKernels, RepeatedScribblesWeighAsOftenAsTheyStand) {
  const std::vector<float4> image = randomColours(50, 5, 256);
  const std::vector<float4> two = {{0.2f, 0.3f, 0.4f, 1}, {0.9f, 0.3f, 0.1f, 1}};
  std::vector<float4> repeated(5, two[0]);
  repeated.push_back(two[1]);
  const std::vector<float> got = costs(image, repeated, 30.0f, 50.0f);
  for (std::size_t k = 0; k < image.size(); ++k) {
    EXPECT_NEAR(got[k], costOf(image[k], repeated, 30.0, 50.0), 2e-4);
  }
}

}  // namespace
}  // namespace namespace_ratseg
