#ifndef RATSEG_EXAMPLES_RANDOM_FIELD_H
#define RATSEG_EXAMPLES_RANDOM_FIELD_H

// Random numbers and smooth random fields that are the same on every machine: nothing here depends
// on a library's distributions or mathematical functions, only on +, -, *, / and the square root.

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace namespace_ratseg {

struct Point {
  double x = 0;
  double y = 0;
};

class Random {
 public:
  explicit Random(unsigned seed) : generator_(seed) {}

  // In [0, 1).
  double uniform() { return static_cast<double>(generator_()) / 4294967296.0; }
  double uniform(double from, double to) { return from + (to - from) * uniform(); }

  // Nearly Gaussian, mean 0 and standard deviation 1: a sum of twelve uniform numbers.
  double gaussian() {
    double sum = -6.0;
    for (int k = 0; k < 12; ++k) sum += uniform();
    return sum;
  }

  Point inRectangle(double w, double h) {
    const double x = uniform(0, w);
    return {x, uniform(0, h)};
  }

  // A vector of length 1.
  Point direction() {
    for (;;) {
      const double x = uniform(-1, 1);
      const double y = uniform(-1, 1);
      const double length = std::sqrt(x * x + y * y);
      if (length > 0.1 && length <= 1) return {x / length, y / length};
    }
  }

 private:
  std::mt19937 generator_;
};

// A field over w x h pixels with values in [-1, 1] that varies over distances of about cell pixels.
class SmoothField {
 public:
  SmoothField(int w, int h, double cell, Random& random)
      : cell_(cell),
        columns_(static_cast<std::size_t>(w / cell) + 2),
        values_(columns_ * (static_cast<std::size_t>(h / cell) + 2)) {
    for (double& v : values_) v = random.uniform(-1, 1);
  }

  // x in [0, w), y in [0, h).
  double at(double x, double y) const {
    const auto column = static_cast<std::size_t>(x / cell_);
    const auto row = static_cast<std::size_t>(y / cell_);
    const double fx = ease(x / cell_ - static_cast<double>(column));
    const double fy = ease(y / cell_ - static_cast<double>(row));
    const double* v = &values_[row * columns_ + column];
    const double upper = v[0] + fx * (v[1] - v[0]);
    const double lower = v[columns_] + fx * (v[columns_ + 1] - v[columns_]);
    return upper + fy * (lower - upper);
  }

 private:
  static double ease(double t) { return t * t * (3 - 2 * t); }

  double cell_;
  std::size_t columns_;
  std::vector<double> values_;
};

}  // namespace namespace_ratseg

#endif
