#ifndef RATSEG_FILES_ARRAY_H
#define RATSEG_FILES_ARRAY_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "files/samples.h"

namespace namespace_ratseg {

// An array of any number of dimensions from a file, as floats.
struct Array {
  std::vector<std::size_t> shape;
  bool fortranOrder = false;  // the first axis varies fastest in values, not the last
  std::vector<float> values;
  SampleType samples;  // in the file
  std::string axes;    // a letter for each axis, where the file tells: n or c labels, y, x, z, t
};

// "3 x 480 x 640"
std::string shapeText(const std::vector<std::size_t>& shape);

// The product of the sizes; throws FileError where it is more than memory can hold.
std::size_t elementCount(const std::vector<std::size_t>& shape);

// Called before memory is taken for so many elements; throws where they are too many.
using CheckElements = std::function<void(std::size_t)>;

}  // namespace namespace_ratseg

#endif
