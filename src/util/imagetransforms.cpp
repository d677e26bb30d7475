#include "util/imagetransforms.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "util/rnd.h"

namespace namespace_ratseg {

namespace {

std::size_t numPixels(int w, int h) {
  return static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
}

struct Colour {
  float r = 0, g = 0, b = 0;
};

Colour difference(const float4& a, const float4& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

float dot(const Colour& a, const Colour& b) { return a.r * b.r + a.g * b.g + a.b * b.b; }

// Forward differences of pixel (x, y) of a w x h image, 0 across the right and the lower border.
struct Gradient {
  Gradient(const float4* image, int w, int h, int x, int y) {
    const std::size_t i = static_cast<std::size_t>(y) * w + x;
    if (x + 1 < w) dx = difference(image[i + 1], image[i]);
    if (y + 1 < h) dy = difference(image[i + w], image[i]);
  }
  Colour dx, dy;
};

// Calls body(y) for all rows, spread over the threads. Bodies must not depend on each other.
template <class Body>
void forRows(int h, Body&& body) {
#pragma omp parallel for schedule(static)
  for (int y = 0; y < h; ++y) body(y);
}

// norm[i] = |grad I|^power of pixel i. Returns their sum, added row by row.
double gradientNorms(float* norm, const float4* image, int w, int h, float power) {
  std::vector<double> rowSum(h);
  forRows(h, [&](int y) {
    float* row = norm + static_cast<std::size_t>(y) * w;
    for (int x = 0; x < w; ++x) {
      const Gradient grad(image, w, h, x, y);
      const float square = dot(grad.dx, grad.dx) + dot(grad.dy, grad.dy);
      row[x] = power == 1 ? std::sqrt(square) : std::pow(square, power / 2);
      rowSum[y] += row[x];
    }
  });
  double sum = 0;
  for (const double s : rowSum) sum += s;
  return sum;
}

int shrunkSize(int size, float factor) {
  return std::max(static_cast<int>(std::floor(size / factor)), 1);
}

// The source indices [begin, end) that make up index i of an axis of the given size shrunk by
// factor: at least one, all inside the axis.
struct SourceRange {
  SourceRange(int i, float factor, int size) {
    const auto border = [=](int k) {
      return static_cast<int>(std::min(k * factor, static_cast<float>(size)));
    };
    begin = std::min(border(i), size - 1);
    end = std::max(border(i + 1), begin + 1);
  }
  int begin, end;
};

float4 mean(const float4* image, int w, const SourceRange& columns, const SourceRange& rows) {
  double r = 0, g = 0, b = 0;
  for (int y = rows.begin; y < rows.end; ++y) {
    for (int x = columns.begin; x < columns.end; ++x) {
      const float4& pixel = image[static_cast<std::size_t>(y) * w + x];
      r += pixel.x;
      g += pixel.y;
      b += pixel.z;
    }
  }
  const double count = static_cast<double>(columns.end - columns.begin) * (rows.end - rows.begin);
  return {static_cast<float>(r / count), static_cast<float>(g / count),
          static_cast<float>(b / count), 1};
}

// Unit eigenvector of the larger eigenvalue of the matrix (a b; b c).
float2 mainDirection(double a, double b, double c) {
  const double lambda = (a + c) / 2 + std::sqrt((a - c) * (a - c) / 4 + b * b);
  // Both candidates are eigenvectors; the one of the larger difference loses fewer digits.
  const bool first = std::abs(lambda - c) > std::abs(lambda - a);
  const double x = first ? lambda - c : b;
  const double y = first ? b : lambda - a;
  const double length = std::sqrt(x * x + y * y);
  if (length == 0) return {1, 0};
  return {static_cast<float>(x / length), static_cast<float>(y / length)};
}

// Replaces the given fraction of the pixels by colours whose channels are drawn by channel().
template <class Channel>
void replacePixels(float4* image, int w, int h, float fraction, Channel&& channel) {
  Rnd::randomize(0);
  for (std::size_t i = 0; i < numPixels(w, h); ++i) {
    const float r = Rnd::random(1);
    const float c1 = channel();
    const float c2 = channel();
    const float c3 = channel();
    if (fraction > r) image[i] = {c3, c2, c1, 1};
  }
}

}  // namespace

template <class T>
void ImageTransforms::computeWeight(T* weight, const float4* image, int w, int h, float power,
                                    float* gamma) {
  const double sum = gradientNorms(weight, image, w, h, power);
  const bool given = gamma != nullptr && *gamma > 0;
  const double pixels = static_cast<double>(numPixels(w, h));
  const float used = given ? *gamma : static_cast<float>((2.0 / power) / (sum / pixels));
  if (gamma != nullptr) *gamma = used;
  forRows(h, [&](int y) {
    float* row = weight + static_cast<std::size_t>(y) * w;
    for (int x = 0; x < w; ++x) {
      const float value = std::exp(-used * row[x]);
      row[x] = value < 1e-15f ? 1e-15f : value;  // NaN stays NaN.
    }
  });
}

template void ImageTransforms::computeWeight(float*, const float4*, int, int, float, float*);

float* ImageTransforms::computeWeight(const float4* image, int w, int h, float power,
                                      float* gamma) {
  auto* weight = new float[numPixels(w, h)];
  computeWeight<float>(weight, image, w, h, power, gamma);
  return weight;
}

void ImageTransforms::downsample(float4* dst, const float4* src, int w, int h, float factor,
                                 int* newW, int* newH) {
  const int dstW = shrunkSize(w, factor);
  const int dstH = shrunkSize(h, factor);
  if (newW != nullptr) *newW = dstW;
  if (newH != nullptr) *newH = dstH;
  for (int j = 0; j < dstH; ++j) {
    const SourceRange rows(j, factor, h);
    for (int i = 0; i < dstW; ++i) {
      dst[static_cast<std::size_t>(j) * dstW + i] = mean(src, w, SourceRange(i, factor, w), rows);
    }
  }
}

float4* ImageTransforms::downsample(const float4* src, int w, int h, float factor, int* newW,
                                    int* newH) {
  auto* dst = new float4[numPixels(shrunkSize(w, factor), shrunkSize(h, factor))];
  downsample(dst, src, w, h, factor, newW, newH);
  return dst;
}

void ImageTransforms::downsampleAndReplace(float4** image, int w, int h, float factor, int* newW,
                                           int* newH) {
  float4* old = *image;
  *image = downsample(old, w, h, factor, newW, newH);
  delete[] old;
}

float2* ImageTransforms::computeDirections(const float4* image, int w, int h) {
  auto* directions = new float2[numPixels(w, h)];
  forRows(h, [&](int y) {
    float2* row = directions + static_cast<std::size_t>(y) * w;
    for (int x = 0; x < w; ++x) {
      const Gradient grad(image, w, h, x, y);
      row[x] = mainDirection(dot(grad.dx, grad.dx), dot(grad.dx, grad.dy), dot(grad.dy, grad.dy));
    }
  });
  return directions;
}

void ImageTransforms::addNoiseGaussian(float4* image, int w, int h, float sigma) {
  Rnd::randomize(0);
  const auto noisy = [](float value, float noise) { return std::clamp(value + noise, 0.0f, 1.0f); };
  for (std::size_t i = 0; i < numPixels(w, h); ++i) {
    const float g1 = Rnd::noise(sigma);
    const float g2 = Rnd::noise(sigma);
    const float g3 = Rnd::noise(sigma);
    const float4 pixel = image[i];
    image[i] = {noisy(pixel.x, g3), noisy(pixel.y, g2), noisy(pixel.z, g1), 1};
  }
}

void ImageTransforms::addNoiseSaltPepper(float4* image, int w, int h, float fraction) {
  replacePixels(image, w, h, fraction, [] { return Rnd::random(1); });
}

void ImageTransforms::addNoiseSaltPepper01(float4* image, int w, int h, float fraction) {
  replacePixels(image, w, h, fraction, [] { return Rnd::randomInt(2); });
}

}  // namespace namespace_ratseg
