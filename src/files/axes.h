#ifndef RATSEG_FILES_AXES_H
#define RATSEG_FILES_AXES_H

#include <cstddef>
#include <string>
#include <vector>

#include "files/array.h"

namespace namespace_ratseg {

// True of letters that -axes takes: n or c (the labels), y, x, and z and t for axes of length 1,
// each at most once, with a label, a y and an x axis.
bool areAxes(const std::string& axes);

// Where the elements of label i at column x, row y are: i*label + y*row + x*column.
struct Planes {
  std::size_t labels = 0;
  std::size_t label = 0, row = 0, column = 0;
};

// Reads the axes of an array of values for each label of each pixel of a w x h picture. The order
// is the one given, else the array's own, else the only one that the sizes leave. Throws FileError
// where they do not fit, or where several orders do; that line names them.
Planes planesOf(const Array& array, const std::string& axes, std::size_t w, std::size_t h);

// The array's values as a plane for each label, row by row.
std::vector<float> inPlanes(const Array& array, const Planes& planes, std::size_t w, std::size_t h);

}  // namespace namespace_ratseg

#endif
