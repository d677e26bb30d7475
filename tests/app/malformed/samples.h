#ifndef RATSEG_TESTS_APP_MALFORMED_SAMPLES_H
#define RATSEG_TESTS_APP_MALFORMED_SAMPLES_H

#include <string>
#include <vector>

#include "support/raw_pictures.h"

namespace namespace_ratseg {

// A valid picture file of a small picture.
struct Sample {
  std::string name;  // with its suffix
  std::string bytes;
  raw_pictures::Example picture;
};

// One of each format, and of its kinds.
std::vector<Sample> samples();

// The one of that name.
Sample sample(const std::string& name);

// What libjpeg makes of a JPEG file: three bytes a pixel.
std::string decodedByLibjpeg(const std::string& jpeg);

}  // namespace namespace_ratseg

#endif
