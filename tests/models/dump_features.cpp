// dump_features PICTURE OUT: writes the picture's features as 32-bit floats, plane by plane, behind
// their number, the height and the width as 64-bit integers, and prints their names.

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>

#include "models/filter_bank.h"
#include "util/fileio.h"
#include "util/rgb.h"

using namespace namespace_ratseg;

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  RGB* pixels = nullptr;
  int w = 0, h = 0;
  if (!FileIO::loadImage(argv[1], pixels, w, h, true)) return 1;
  const std::unique_ptr<RGB[]> owner(pixels);
  Channels picture;
  picture.w = static_cast<std::size_t>(w);
  picture.h = static_cast<std::size_t>(h);
  picture.step = sizeof(RGB) / sizeof(float);
  picture.data = {&pixels->x, &pixels->y, &pixels->z};
  picture.kind = ChannelKind::colour;
  picture = greyWhereEqual(picture);
  const FilterBank bank(picture);
  std::vector<float> features(bank.featureCount() * picture.pixels());
  bank.compute(0, picture.h, features.data());
  std::ofstream out(argv[2], std::ios::binary);
  for (const std::uint64_t number : {bank.featureCount(), picture.h, picture.w}) {
    out.write(reinterpret_cast<const char*>(&number), sizeof number);
  }
  out.write(reinterpret_cast<const char*>(features.data()),
            static_cast<std::streamsize>(features.size() * sizeof(float)));
  for (std::size_t f = 0; f < bank.featureCount(); ++f) {
    std::cout << FilterBank::featureName(picture.data.size(), f) << '\n';
  }
  return out.flush() ? 0 : 1;
}
