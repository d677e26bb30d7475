// make_problem FOLDER WxHxN: writes a problem of any size into an existing folder, for benchmarks
// of the whole program: image.ppm, dataterm.gz and proportions.txt.
//
// The data term is about as hard to inflate as real ones (wave_picture.h).

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "app/usage_wanted.h"
#include "app/version/version.h"
#include "util/fileio.h"
#include "wave_picture.h"

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
  if (versionWanted(argc, argv)) {
    printVersion("make_problem");
    return 0;
  }
  Size size;
  if (argc != 3 || !parseSize(argv[2], size)) {
    std::cerr << "Usage: make_problem FOLDER WxHxN" << std::endl;
    return 1;
  }
  const std::string folder = argv[1];
  const std::vector<float> grey = drawWavePicture(size.w, size.h, size.n);
  const std::vector<float> rho = wavePictureCosts(grey, size.n);
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
