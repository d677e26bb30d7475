// A program that uses the installed image files: writes a picture and reads it back.

#include <cstddef>
#include <iostream>
#include <vector>

#include "util/fileio.h"

using namespace_ratseg::FileIO;
using namespace_ratseg::float4;

int main(int, char** args) {
  constexpr std::size_t kWidth = 5, kHeight = 3, kPixels = kWidth * kHeight;
  std::vector<float4> picture(kPixels), read(kPixels);
  for (std::size_t k = 0; k < kPixels; ++k)
    picture[k] = {k % 2 == 0 ? 1.0f : 0.0f, 0.0f, 1.0f, 1.0f};
  if (!FileIO::saveImagePNG(picture.data(), kWidth, kHeight, args[1])) {
    std::cerr << "cannot write " << args[1] << std::endl;
    return 1;
  }
  float4* pixels = read.data();
  std::size_t w = 0, h = 0;
  bool same = FileIO::loadImage(args[1], pixels, w, h, false) && w == kWidth && h == kHeight;
  for (std::size_t k = 0; k < kPixels; ++k) same = same && read[k].x == picture[k].x;
  if (!same) std::cerr << "the picture read is not the one written" << std::endl;
  return same ? 0 : 1;
}
