#include "util/rnd.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <numbers>

namespace namespace_ratseg {

namespace {

// 2^-31 to seven digits: rand() * kPerRand is uniform in [0, 1].
constexpr double kPerRand = 4.656613e-10;

}  // namespace

void Rnd::randomize(int seed) { std::srand(static_cast<unsigned int>(seed)); }

int Rnd::randomize() {
  const int seed = static_cast<int>(std::time(nullptr));
  randomize(seed);
  return seed;
}

// Box-Muller transform of two uniform draws.
float Rnd::noise(float sigma) {
  const double u1 = std::max(1e-6, std::rand() * kPerRand);
  const double u2 = std::rand() * kPerRand;
  // u1 can be above 1 by the last digit of kPerRand.
  const double radius = std::sqrt(std::max(0.0, -2 * std::log(u1)));
  return static_cast<float>(radius * sigma * std::cos(2 * std::numbers::pi * u2));
}

float Rnd::random(float max) { return random(0, max); }

float Rnd::random(float min, float max) {
  return static_cast<float>(std::rand() * static_cast<double>(max - min) * kPerRand + min);
}

float Rnd::randomInt(int n) { return static_cast<float>(std::rand() % n); }

}  // namespace namespace_ratseg
