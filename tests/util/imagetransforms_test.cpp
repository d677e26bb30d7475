#include "util/imagetransforms.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "util/rnd.h"

namespace namespace_ratseg {
namespace {

using Image = std::vector<float4>;

Image randomImage(int w, int h, unsigned int seed) {
  std::mt19937 engine(seed);
  std::uniform_real_distribution<float> channel(0, 1);
  Image image(static_cast<std::size_t>(w) * h);
  for (float4& pixel : image) {
    pixel = {channel(engine), channel(engine), channel(engine), channel(engine)};
  }
  return image;
}

Image greyImage(const std::vector<float>& values) {
  Image image;
  for (const float v : values) image.push_back({v, v, v, 1});
  return image;
}

std::vector<std::vector<float>> channels(const float4* image, std::size_t count) {
  std::vector<std::vector<float>> values;
  for (std::size_t i = 0; i < count; ++i) {
    values.push_back({image[i].x, image[i].y, image[i].z, image[i].w});
  }
  return values;
}

std::vector<std::vector<float>> channels(const Image& image) {
  return channels(image.data(), image.size());
}

// Edge weight.

// The gradient's squared norm in double precision.
double squaredNorm(const Image& image, int w, int h, int x, int y) {
  const float4& here = image[static_cast<std::size_t>(y) * w + x];
  double sum = 0;
  const auto add = [&](const float4& next) {
    for (const double d :
         {double{next.x} - here.x, double{next.y} - here.y, double{next.z} - here.z}) {
      sum += d * d;
    }
  };
  if (x + 1 < w) add(image[static_cast<std::size_t>(y) * w + x + 1]);
  if (y + 1 < h) add(image[static_cast<std::size_t>(y + 1) * w + x]);
  return sum;
}

std::vector<double> gradientPowers(const Image& image, int w, int h, double power) {
  std::vector<double> result;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      result.push_back(std::pow(squaredNorm(image, w, h, x, y), power / 2));
    }
  }
  return result;
}

double automaticGamma(const std::vector<double>& powers, double power) {
  double sum = 0;
  for (const double p : powers) sum += p;
  return 2 / (power * sum / static_cast<double>(powers.size()));
}

std::vector<float> weightOf(const Image& image, int w, int h, float power, float* gamma) {
  const std::unique_ptr<float[]> weight(
      ImageTransforms::computeWeight(image.data(), w, h, power, gamma));
  return {weight.get(), weight.get() + image.size()};
}

void expectWeight(const std::vector<float>& weight, const std::vector<double>& powers,
                  double gamma) {
  for (std::size_t i = 0; i < weight.size(); ++i) {
    EXPECT_NEAR(weight[i], std::max(1e-15, std::exp(-gamma * powers[i])), 1e-6) << i;
  }
}

const std::pair<int, int> kSizes[] = {{1, 1}, {1, 7}, {7, 1}, {2, 2}, {37, 29}};

TEST(ComputeWeight, FollowsItsFormulaWithAGivenGamma) {
  for (const auto& [w, h] : kSizes) {
    const Image image = randomImage(w, h, 1);
    for (const float power : {1.0f, 2.0f, 0.5f}) {
      float gamma = 3;
      const std::vector<float> weight = weightOf(image, w, h, power, &gamma);
      EXPECT_EQ(gamma, 3.0f);
      expectWeight(weight, gradientPowers(image, w, h, power), 3);
    }
  }
}

TEST(ComputeWeight, ChoosesGammaFromTheImage) {
  const int w = 37, h = 29;
  const Image image = randomImage(w, h, 2);
  for (const float power : {1.0f, 2.0f, 0.5f}) {
    const std::vector<double> powers = gradientPowers(image, w, h, power);
    const double expected = automaticGamma(powers, power);
    for (float gamma : {0.0f, -1.0f, std::nanf("")}) {
      const std::vector<float> weight = weightOf(image, w, h, power, &gamma);
      EXPECT_NEAR(gamma, expected, 1e-5 * expected);
      expectWeight(weight, powers, expected);
    }
    expectWeight(weightOf(image, w, h, power, nullptr), powers, expected);
  }
}

TEST(ComputeWeight, FillsTheCallersArray) {
  const Image image = randomImage(5, 4, 3);
  float gamma = 2;
  std::vector<float> weight(20);
  ImageTransforms::computeWeight<float>(weight.data(), image.data(), 5, 4, 1, &gamma);
  EXPECT_EQ(weight, weightOf(image, 5, 4, 1, &gamma));
}

TEST(ComputeWeight, UsesOneDifferenceInTheLastColumnAndRow) {
  const Image image = greyImage({0, 0.1f, 0.3f,  //
                                 0.2f, 0.6f, 1});
  float gamma = 1;
  const std::vector<float> weight = weightOf(image, 3, 2, 2, &gamma);
  const auto expected = [](double dx, double dy) { return std::exp(-3 * (dx * dx + dy * dy)); };
  EXPECT_NEAR(weight[0], expected(0.1, 0.2), 1e-6);
  EXPECT_NEAR(weight[2], expected(0, 0.7), 1e-6);
  EXPECT_NEAR(weight[3], expected(0.4, 0), 1e-6);
  EXPECT_EQ(weight[5], 1.0f);
}

TEST(ComputeWeight, IsNeverBelowItsFloor) {
  const Image image = greyImage({0, 1, 0});
  float gamma = 1e6f;
  const std::vector<float> weight = weightOf(image, 3, 1, 1, &gamma);
  EXPECT_EQ(weight, (std::vector<float>{1e-15f, 1e-15f, 1}));
}

TEST(ComputeWeight, ImageOfOneColourHasAnInfiniteGammaAndNoWeights) {
  const Image image(12, float4{0.2f, 0.4f, 0.6f, 1});
  float gamma = 0;
  for (const float weight : weightOf(image, 4, 3, 1, &gamma)) EXPECT_TRUE(std::isnan(weight));
  EXPECT_TRUE(std::isinf(gamma));
  EXPECT_GT(gamma, 0);
  for (const float weight : weightOf(image, 4, 3, 1, nullptr)) EXPECT_TRUE(std::isnan(weight));
}

TEST(ComputeWeight, ImageOfOneColourHasWeightOneWithAGivenGamma) {
  const Image image(12, float4{0.2f, 0.4f, 0.6f, 1});
  float gamma = 5;
  EXPECT_THAT(weightOf(image, 4, 3, 1, &gamma), testing::Each(1.0f));
}

TEST(ComputeWeight, DoesNotDependOnTheNumberOfThreads) {
  const int w = 67, h = 43;
  const Image image = randomImage(w, h, 4);
  const int before = omp_get_max_threads();
  std::vector<std::vector<float>> results;
  for (const int threads : {1, 2, 5}) {
    omp_set_num_threads(threads);
    float gamma = 0;
    results.push_back(weightOf(image, w, h, 1, &gamma));
    results.back().push_back(gamma);
  }
  omp_set_num_threads(before);
  EXPECT_EQ(results[1], results[0]);
  EXPECT_EQ(results[2], results[0]);
}

// Downsampling.

struct Shrunk {
  std::vector<std::vector<float>> pixels;
  int w, h;
};

Shrunk downsample(const Image& image, int w, int h, float factor) {
  Shrunk result{{}, 0, 0};
  const std::unique_ptr<float4[]> pixels(
      ImageTransforms::downsample(image.data(), w, h, factor, &result.w, &result.h));
  result.pixels = channels(pixels.get(), static_cast<std::size_t>(result.w) * result.h);
  return result;
}

std::vector<float> reds(const Shrunk& image) {
  std::vector<float> values;
  for (const auto& pixel : image.pixels) values.push_back(pixel[0]);
  return values;
}

TEST(Downsample, PixelIsTheMeanOfItsBox) {
  const Image image = {{0, 1, 0.5f, 0},     {1, 0, 0.5f, 0.3f},  {0.25f, 0, 0, 7}, {0.75f, 0, 0, 7},
                       {0, 1, 0.25f, 0.5f}, {1, 0, 0.75f, 0.1f}, {0.5f, 0, 1, 7},  {0, 0, 1, 7}};
  const Shrunk half = downsample(image, 4, 2, 2);
  EXPECT_EQ(half.w, 2);
  EXPECT_EQ(half.h, 1);
  EXPECT_EQ(half.pixels,
            (std::vector<std::vector<float>>{{0.5f, 0.5f, 0.5f, 1}, {0.375f, 0, 0.5f, 1}}));
}

TEST(Downsample, RemainderIsLeftOut) {
  const Image image = greyImage({1, 3, 5, 7, 100,  //
                                 1, 3, 5, 7, 100,  //
                                 9, 9, 9, 9, 9});
  const Shrunk half = downsample(image, 5, 3, 2);
  EXPECT_EQ(half.w, 2);
  EXPECT_EQ(half.h, 1);
  EXPECT_EQ(reds(half), (std::vector<float>{2, 6}));
}

TEST(Downsample, BoxesOfABrokenFactorTakeTurns) {
  const Shrunk shrunk = downsample(greyImage({1, 2, 4, 8, 16, 32}), 6, 1, 1.5f);
  EXPECT_EQ(shrunk.w, 4);
  EXPECT_EQ(shrunk.h, 1);
  EXPECT_EQ(reds(shrunk), (std::vector<float>{1, 3, 8, 24}));
}

TEST(Downsample, BoxesOfColumnsAndRowsAreAlike) {
  const Shrunk column = downsample(greyImage({1, 2, 4, 8, 16, 32}), 1, 6, 1.5f);
  EXPECT_EQ(column.w, 1);
  EXPECT_EQ(column.h, 4);
  EXPECT_EQ(reds(column), (std::vector<float>{1, 3, 8, 24}));

  const Shrunk shrunk = downsample(greyImage({1, 1, 2, 2, 3, 3,  //
                                              1, 1, 2, 2, 3, 3,  //
                                              4, 4, 5, 5, 6, 6,  //
                                              4, 4, 5, 5, 6, 6}),
                                   6, 4, 2);
  EXPECT_EQ(shrunk.w, 3);
  EXPECT_EQ(shrunk.h, 2);
  EXPECT_EQ(reds(shrunk), (std::vector<float>{1, 2, 3, 4, 5, 6}));
}

TEST(Downsample, FactorOneCopiesColours) {
  Image image = randomImage(5, 3, 5);
  const Shrunk same = downsample(image, 5, 3, 1);
  for (float4& pixel : image) pixel.w = 1;
  EXPECT_EQ(same.w, 5);
  EXPECT_EQ(same.h, 3);
  EXPECT_EQ(same.pixels, channels(image));
}

TEST(Downsample, FactorLargerThanTheImageGivesOnePixel) {
  for (const float factor : {4.0f, 1e30f}) {
    for (const auto& [w, h] : {std::pair{2, 2}, std::pair{4, 1}, std::pair{1, 4}}) {
      const Shrunk one = downsample(greyImage({1, 2, 3, 6}), w, h, factor);
      EXPECT_EQ(one.w, 1);
      EXPECT_EQ(one.h, 1);
      EXPECT_EQ(reds(one), std::vector<float>{3}) << w << "x" << h;
    }
  }
}

TEST(Downsample, FactorBelowOneRepeatsPixels) {
  const Shrunk large = downsample(greyImage({1, 2}), 2, 1, 0.5f);
  EXPECT_EQ(large.w, 4);
  EXPECT_EQ(large.h, 2);
  EXPECT_EQ(reds(large), (std::vector<float>{1, 1, 2, 2, 1, 1, 2, 2}));
}

TEST(Downsample, FillsTheCallersArrayAndMayKeepTheSizeToItself) {
  const Image image = greyImage({1, 3, 5, 7});
  Image dst(2);
  ImageTransforms::downsample(dst.data(), image.data(), 4, 1, 2, nullptr, nullptr);
  EXPECT_EQ(dst[0].x, 2.0f);
  EXPECT_EQ(dst[1].x, 6.0f);
  const std::unique_ptr<float4[]> made(
      ImageTransforms::downsample(image.data(), 4, 1, 2, nullptr, nullptr));
  EXPECT_EQ(made[1].x, 6.0f);
}

TEST(Downsample, ReplacesTheCallersImage) {
  auto* image = new float4[4]{{1, 0, 0, 0}, {3, 0, 0, 0}, {5, 0, 0, 0}, {7, 0, 0, 0}};
  int w = 0, h = 0;
  ImageTransforms::downsampleAndReplace(&image, 4, 1, 2, &w, &h);
  EXPECT_EQ(w, 2);
  EXPECT_EQ(h, 1);
  EXPECT_EQ(image[0].x, 2.0f);
  EXPECT_EQ(image[1].x, 6.0f);
  delete[] image;
}

// Directions.

std::vector<float2> directionsOf(const Image& image, int w, int h) {
  const std::unique_ptr<float2[]> directions(
      ImageTransforms::computeDirections(image.data(), w, h));
  return {directions.get(), directions.get() + image.size()};
}

void expectDirection(const float2& direction, float x, float y) {
  EXPECT_NEAR(direction.x, x, 1e-6);
  EXPECT_NEAR(direction.y, y, 1e-6);
}

TEST(ComputeDirections, PointAcrossAnEdge) {
  const float half = std::sqrt(0.5f);
  expectDirection(directionsOf(greyImage({0, 1, 0, 1}), 2, 2)[0], 1, 0);
  expectDirection(directionsOf(greyImage({0, 0, 1, 1}), 2, 2)[0], 0, 1);
  expectDirection(directionsOf(greyImage({0, 1, 1, 0}), 2, 2)[0], half, half);
  expectDirection(directionsOf(greyImage({0.5f, 1, 0, 0}), 2, 2)[0], -half, half);
}

TEST(ComputeDirections, HaveAPositiveComponentAlongTheLargerDifference) {
  const float length = std::hypot(0.8f, 0.2f);
  expectDirection(directionsOf(greyImage({0.2f, 1, 0, 0}), 2, 2)[0], 0.8f / length, -0.2f / length);
  expectDirection(directionsOf(greyImage({0.8f, 1, 0, 0}), 2, 2)[0], -0.2f / length, 0.8f / length);
}

TEST(ComputeDirections, AreOneDifferenceAtTheBorderAndHorizontalWithoutAny) {
  const std::vector<float2> directions = directionsOf(greyImage({0, 0.5f, 0.25f, 1}), 2, 2);
  expectDirection(directions[1], 0, 1);
  expectDirection(directions[2], 1, 0);
  expectDirection(directions[3], 1, 0);
  for (const float2& direction : directionsOf(Image(6, float4{1, 1, 1, 1}), 3, 2)) {
    expectDirection(direction, 1, 0);
  }
}

TEST(ComputeDirections, AreHorizontalWhereBothDifferencesAreAlikeButUnrelated) {
  // dx in red, dy in green: both eigenvalues are the same.
  const Image image = {{0, 0, 0, 1}, {1, 0, 0, 1}, {0, 1, 0, 1}, {1, 1, 0, 1}};
  expectDirection(directionsOf(image, 2, 2)[0], 1, 0);
}

TEST(ComputeDirections, AreUnitEigenvectorsOfTheLargerEigenvalue) {
  const int w = 9, h = 8;
  const Image image = randomImage(w, h, 6);
  const std::vector<float2> directions = directionsOf(image, w, h);
  for (int y = 0; y + 1 < h; ++y) {
    for (int x = 0; x + 1 < w; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * w + x;
      const float4 p = image[i], px = image[i + 1], py = image[i + w];
      const double dx[] = {px.x - p.x, px.y - p.y, px.z - p.z};
      const double dy[] = {py.x - p.x, py.y - p.y, py.z - p.z};
      double a = 0, b = 0, c = 0;
      for (int k = 0; k < 3; ++k) {
        a += dx[k] * dx[k];
        b += dx[k] * dy[k];
        c += dy[k] * dy[k];
      }
      const double lambda = (a + c) / 2 + std::sqrt((a - c) * (a - c) / 4 + b * b);
      const float2 v = directions[i];
      EXPECT_NEAR(a * v.x + b * v.y, lambda * v.x, 1e-5) << i;
      EXPECT_NEAR(b * v.x + c * v.y, lambda * v.y, 1e-5) << i;
      EXPECT_NEAR(std::hypot(v.x, v.y), 1, 1e-6) << i;
    }
  }
}

// Noise.

using AddNoise = void (*)(float4*, int, int, float);

class Noise : public testing::TestWithParam<std::pair<const char*, AddNoise>> {};

INSTANTIATE_TEST_SUITE_P(
    Kinds, Noise,
    testing::Values(std::make_pair("Gaussian", &ImageTransforms::addNoiseGaussian),
                    std::make_pair("SaltPepper", &ImageTransforms::addNoiseSaltPepper),
                    std::make_pair("SaltPepper01", &ImageTransforms::addNoiseSaltPepper01)),
    [](const auto& kind) { return std::string(kind.param.first); });

TEST_P(Noise, IsTheSameEveryTime) {
  const Image clean = randomImage(9, 7, 7);
  Image first = clean;
  GetParam().second(first.data(), 9, 7, 0.5f);
  Image second = clean;
  Rnd::randomize(123);
  GetParam().second(second.data(), 9, 7, 0.5f);
  EXPECT_EQ(channels(first), channels(second));
  EXPECT_NE(channels(first), channels(clean));
}

TEST(AddNoiseGaussian, AddsItsDrawsBlueFirstAndClamps) {
  const Image clean = randomImage(8, 5, 8);
  Image noisy = clean;
  ImageTransforms::addNoiseGaussian(noisy.data(), 8, 5, 0.4f);
  Image expected = clean;
  Rnd::randomize(0);
  int clamped = 0;
  for (float4& pixel : expected) {
    for (float* channel : {&pixel.z, &pixel.y, &pixel.x}) {
      const float sum = *channel + Rnd::noise(0.4f);
      clamped += sum < 0 || sum > 1;
      *channel = std::clamp(sum, 0.0f, 1.0f);
    }
    pixel.w = 1;
  }
  EXPECT_GT(clamped, 0);
  EXPECT_EQ(channels(noisy), channels(expected));
}

// Pixels of two draws: whether, and what.
template <class Channel>
Image saltAndPepper(const Image& clean, float fraction, Channel&& channel) {
  Image image = clean;
  Rnd::randomize(0);
  for (float4& pixel : image) {
    const float r = Rnd::random(1);
    float4 colour = {0, 0, 0, 1};
    for (float* c : {&colour.z, &colour.y, &colour.x}) *c = channel();
    if (fraction > r) pixel = colour;
  }
  return image;
}

TEST(AddNoiseSaltPepper, ReplacesAFractionByRandomColours) {
  const Image clean = randomImage(40, 25, 9);
  Image noisy = clean;
  ImageTransforms::addNoiseSaltPepper(noisy.data(), 40, 25, 0.3f);
  EXPECT_EQ(channels(noisy), channels(saltAndPepper(clean, 0.3f, [] { return Rnd::random(1); })));
  int replaced = 0;
  for (std::size_t i = 0; i < clean.size(); ++i) replaced += noisy[i].x != clean[i].x;
  EXPECT_NEAR(replaced, 300, 60);
}

TEST(AddNoiseSaltPepper01, ReplacesAFractionByPureColours) {
  const Image clean = randomImage(40, 25, 10);
  Image noisy = clean;
  ImageTransforms::addNoiseSaltPepper01(noisy.data(), 40, 25, 0.3f);
  EXPECT_EQ(channels(noisy),
            channels(saltAndPepper(clean, 0.3f, [] { return Rnd::randomInt(2); })));
  int replaced = 0;
  for (std::size_t i = 0; i < clean.size(); ++i) {
    if (noisy[i].x == clean[i].x) continue;
    ++replaced;
    EXPECT_TRUE(noisy[i].x == 0 || noisy[i].x == 1);
  }
  EXPECT_NEAR(replaced, 300, 60);
}

TEST(AddNoiseSaltPepper, LeavesTheImageAloneWithoutAFraction) {
  const Image clean = randomImage(9, 7, 11);
  Image noisy = clean;
  ImageTransforms::addNoiseSaltPepper(noisy.data(), 9, 7, 0);
  ImageTransforms::addNoiseSaltPepper01(noisy.data(), 9, 7, 0);
  EXPECT_EQ(channels(noisy), channels(clean));
}

// So a fraction of 0 replaces nothing, whatever is drawn.
TEST(AddNoiseSaltPepper, ReplacesPixelsWhoseDrawIsBelowTheFraction) {
  Rnd::randomize(0);
  const float draw = Rnd::random(1);
  for (const auto addNoise :
       {&ImageTransforms::addNoiseSaltPepper, &ImageTransforms::addNoiseSaltPepper01}) {
    Image image = {{-1, -1, -1, -1}};
    addNoise(image.data(), 1, 1, draw);
    EXPECT_EQ(image[0].x, -1);
    addNoise(image.data(), 1, 1, std::nextafter(draw, 2.0f));
    EXPECT_GE(image[0].x, 0);
  }
}

}  // namespace
}  // namespace namespace_ratseg
