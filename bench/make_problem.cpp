// make_problem FOLDER WxHxN: writes a problem of any size into an existing folder, for benchmarks
// of the whole program: image.ppm, dataterm.gz and proportions.txt.
//
// The picture has smooth regions of N grey levels under noise; the cost of a label is the squared
// distance to its grey level, so that the data term is about as hard to inflate as real ones.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "util/fileio.h"

namespace namespace_ratseg {
namespace {

struct Size {
  std::size_t w = 0, h = 0, n = 0;
};

bool parseSize(const std::string& text, Size& size) {
  int used = 0;
  return std::sscanf(text.c_str(), "%zux%zux%zu%n", &size.w, &size.h, &size.n, &used) == 3 &&
         static_cast<std::size_t>(used) == text.size() && size.w * size.h > 0 && size.n > 1;
}

float levelOf(std::size_t label, std::size_t n) {
  return (static_cast<float>(label) + 0.5f) / static_cast<float>(n);
}

// In [0, 1): a sum of waves, whose level sets are the regions.
float wave(std::size_t x, std::size_t y) {
  const float u = static_cast<float>(x) / 97.0f;
  const float v = static_cast<float>(y) / 131.0f;
  const float sum = std::sin(u) + std::sin(v) + std::sin(0.7f * u + 1.3f * v);
  return std::clamp(sum / 6.0f + 0.5f, 0.0f, 0.999f);
}

std::vector<float> drawImage(const Size& size) {
  std::mt19937 generator(1);
  std::normal_distribution<float> noise(0.0f, 0.05f);
  std::vector<float> grey(size.w * size.h);
  for (std::size_t y = 0; y < size.h; ++y) {
    for (std::size_t x = 0; x < size.w; ++x) {
      const auto label = static_cast<std::size_t>(wave(x, y) * static_cast<float>(size.n));
      grey[y * size.w + x] = std::clamp(levelOf(label, size.n) + noise(generator), 0.0f, 1.0f);
    }
  }
  return grey;
}

std::vector<float> dataterm(const std::vector<float>& grey, std::size_t n) {
  std::vector<float> rho;
  rho.reserve(grey.size() * n);
  for (std::size_t i = 0; i < n; ++i) {
    for (const float g : grey) {
      const float distance = (g - levelOf(i, n)) / 0.05f;
      rho.push_back(0.5f * distance * distance);
    }
  }
  return rho;
}

bool saveImage(const std::vector<float>& grey, const Size& size, const std::string& file) {
  std::ofstream out(file, std::ios::binary);
  out << "P6\n" << size.w << " " << size.h << "\n255\n";
  for (const float g : grey) {
    const char byte = static_cast<char>(std::lround(g * 255.0f));
    out.put(byte).put(byte).put(byte);
  }
  return static_cast<bool>(out.flush());
}

bool saveProportions(std::size_t n, const std::string& file) {
  std::ofstream out(file);
  for (std::size_t i = 0; i + 1 < n; ++i) out << 1.0 / static_cast<double>(n - 1) << " 0.02\n";
  return static_cast<bool>(out.flush());
}

int run(int argc, char** argv) {
  Size size;
  if (argc != 3 || !parseSize(argv[2], size)) {
    std::cerr << "Usage: make_problem FOLDER WxHxN" << std::endl;
    return 1;
  }
  const std::string folder = argv[1];
  const std::vector<float> grey = drawImage(size);
  const std::vector<float> rho = dataterm(grey, size.n);
  if (saveImage(grey, size, folder + "/image.ppm") &&
      FileIO::saveArray(folder + "/dataterm.gz", rho.data(), rho.size()) &&
      saveProportions(size.n, folder + "/proportions.txt")) {
    return 0;
  }
  std::cerr << "ERROR: cannot write into \"" << folder << "\"" << std::endl;
  return 1;
}

}  // namespace
}  // namespace namespace_ratseg

int main(int argc, char** argv) { return namespace_ratseg::run(argc, argv); }
