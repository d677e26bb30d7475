#include "util/rnd.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <set>
#include <type_traits>
#include <vector>

// The C library's clock, as this program is to see it.
namespace {
std::time_t toldTime = 0;
}
extern "C" std::time_t time(std::time_t* result) noexcept {
  if (result != nullptr) *result = toldTime;
  return toldTime;
}

namespace namespace_ratseg {
namespace {

template <class Draw>
std::vector<float> draws(int count, Draw&& draw) {
  std::vector<float> values;
  for (int i = 0; i < count; ++i) values.push_back(draw());
  return values;
}

std::vector<float> uniform(int count) {
  return draws(count, [] { return Rnd::random(1); });
}

TEST(Rnd, SeedDecidesTheSequence) {
  Rnd::randomize(5);
  const std::vector<float> first = uniform(10);
  const std::vector<float> second = uniform(10);
  EXPECT_NE(first, second);
  Rnd::randomize(5);
  EXPECT_EQ(uniform(10), first);
  Rnd::randomize(6);
  EXPECT_NE(uniform(10), first);
}

TEST(Rnd, SeedIsTheTimeAndReturned) {
  for (const int now : {1400000000, 1400000001}) {
    toldTime = now;
    EXPECT_EQ(Rnd::randomize(), now);
    const std::vector<float> values = uniform(10);
    Rnd::randomize(now);
    EXPECT_EQ(uniform(10), values);
  }
}

TEST(Rnd, UniformIsTheGeneratorScaled) {
  Rnd::randomize(1);
  const float one = Rnd::random(1);
  const float ten = Rnd::random(10);
  const float range = Rnd::random(-2, 3);
  std::srand(1);
  EXPECT_FLOAT_EQ(one, static_cast<float>(std::rand() * 4.656613e-10));
  EXPECT_FLOAT_EQ(ten, static_cast<float>(std::rand() * 4.656613e-10 * 10));
  EXPECT_FLOAT_EQ(range, static_cast<float>(std::rand() * 4.656613e-10 * 5 - 2));
}

// 2^-31 to seven digits and in full differ in the last bit of some floats.
TEST(Rnd, UniformIsScaledBySevenDigits) {
  Rnd::randomize(1);
  const std::vector<float> got = uniform(1000);
  Rnd::randomize(1);
  EXPECT_EQ(got, draws(1000, [] { return static_cast<float>(std::rand() * 4.656613e-10); }));
}

TEST(Rnd, UniformFillsItsRange) {
  Rnd::randomize(2);
  std::set<float> tenths;
  for (const float value : draws(1000, [] { return Rnd::random(-3, 7); })) {
    EXPECT_GE(value, -3.0f);
    EXPECT_LE(value, 7.0f);
    tenths.insert(std::floor(value));
  }
  EXPECT_GE(tenths.size(), 10u);
}

TEST(Rnd, IntIsTheGeneratorsRemainder) {
  Rnd::randomize(3);
  const std::vector<float> values = draws(200, [] { return Rnd::randomInt(7); });
  std::srand(3);
  for (const float value : values) EXPECT_EQ(value, static_cast<float>(std::rand() % 7));
  EXPECT_EQ(std::set<float>(values.begin(), values.end()), (std::set<float>{0, 1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(Rnd::randomInt(1), 0.0f);
}

TEST(Rnd, NoiseIsGaussian) {
  Rnd::randomize(4);
  const int count = 20000;
  double sum = 0, squares = 0;
  int within = 0;
  for (const float value : draws(count, [] { return Rnd::noise(2); })) {
    sum += value;
    squares += double{value} * value;
    within += std::abs(value) < 2;
  }
  EXPECT_NEAR(sum / count, 0, 0.06);
  EXPECT_NEAR(std::sqrt(squares / count), 2, 0.05);
  EXPECT_NEAR(within / double{count}, 0.6827, 0.015);
}

TEST(Rnd, NoiseIsTheBoxMullerTransformOfTwoDraws) {
  Rnd::randomize(5);
  const float noise = Rnd::noise(3);
  const float next = Rnd::random(1);
  Rnd::randomize(5);
  const double u1 = Rnd::random(1);
  const double u2 = Rnd::random(1);
  EXPECT_NEAR(noise, std::sqrt(-2 * std::log(u1)) * 3 * std::cos(2 * std::acos(-1.0) * u2), 1e-5);
  EXPECT_EQ(Rnd::random(1), next);
}

TEST(Rnd, NoiseTakesADrawBelowAMillionthForAMillionth) {
  constexpr unsigned int kSeed = 2;
  std::srand(kSeed);
  int before = 0;
  while (std::rand() * 4.656613e-10 >= 1e-6) ++before;
  const double u2 = std::rand() * 4.656613e-10;
  std::srand(kSeed);
  while (before-- > 0) std::rand();
  EXPECT_NEAR(Rnd::noise(1), std::sqrt(-2 * std::log(1e-6)) * std::cos(2 * std::acos(-1.0) * u2),
              1e-6);
}

TEST(Rnd, NoiseOfNoWidthIsZero) {
  Rnd::randomize(6);
  EXPECT_EQ(Rnd::noise(0), 0.0f);
}

TEST(Rnd, NumbersAreFloats) {
  EXPECT_TRUE((std::is_same_v<decltype(Rnd::random(1)), float>));
  EXPECT_TRUE((std::is_same_v<decltype(Rnd::random(0, 1)), float>));
  EXPECT_TRUE((std::is_same_v<decltype(Rnd::randomInt(2)), float>));
  EXPECT_TRUE((std::is_same_v<decltype(Rnd::noise(1)), float>));
}

}  // namespace
}  // namespace namespace_ratseg
