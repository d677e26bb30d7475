#include "files/axes.h"

#include <algorithm>

#include "files/file_error.h"

namespace namespace_ratseg {

namespace {

std::string asLabels(std::string axes) {
  std::replace(axes.begin(), axes.end(), 'c', 'n');
  return axes;
}

std::vector<std::size_t> stridesOf(const Array& array) {
  const std::size_t rank = array.shape.size();
  std::vector<std::size_t> strides(rank);
  std::size_t stride = 1;
  for (std::size_t k = 0; k < rank; ++k) {
    const std::size_t axis = array.fortranOrder ? k : rank - 1 - k;
    strides[axis] = stride;
    stride *= array.shape[axis];
  }
  return strides;
}

// Empty where the axes fit, else what is wrong.
std::string misfit(const Array& array, const std::string& axes, std::size_t w, std::size_t h) {
  if (axes.size() != array.shape.size()) {
    return "has " + std::to_string(array.shape.size()) + " axes (" + shapeText(array.shape) +
           "), not the " + std::to_string(axes.size()) + " of " + axes;
  }
  for (std::size_t k = 0; k < axes.size(); ++k) {
    const std::size_t size = array.shape[k];
    const std::size_t wanted = axes[k] == 'y' ? h : axes[k] == 'x' ? w : axes[k] == 'n' ? size : 1;
    if (size != wanted) {
      return "has " + shapeText(array.shape) + " elements, which as " + axes +
             " do not fit the image: axis " + axes[k] + " has " + std::to_string(size) +
             ", expected " + std::to_string(wanted);
    }
    if (axes[k] == 'n' && size < 2) return "has values of one label; at least two are needed";
  }
  return "";
}

// All orders that fit and differ in what they mean, which those of axes of length 1 do not.
std::vector<std::string> readings(const Array& array, std::size_t w, std::size_t h) {
  const std::size_t rank = array.shape.size();
  std::vector<std::string> found, meanings;
  if (rank < 3 || rank > 5) return found;
  std::string axes = std::string("nyxzt").substr(0, rank);
  std::sort(axes.begin(), axes.end());
  do {
    // z and t are alike here.
    if (rank == 5 && axes.find('t') > axes.find('z')) continue;
    if (!misfit(array, axes, w, h).empty()) continue;
    std::string meaning;
    for (std::size_t k = 0; k < rank; ++k) {
      if (array.shape[k] > 1) meaning += axes[k];
    }
    if (std::find(meanings.begin(), meanings.end(), meaning) != meanings.end()) continue;
    meanings.push_back(meaning);
    found.push_back(axes);
  } while (std::next_permutation(axes.begin(), axes.end()));
  return found;
}

std::string theOnlyReading(const Array& array, std::size_t w, std::size_t h) {
  const std::vector<std::string> found = readings(array, w, h);
  const std::string size = "has " + shapeText(array.shape) + " elements, which ";
  if (found.empty()) {
    throw FileError(size + "are no values of two or more labels for " + std::to_string(w) + " x " +
                    std::to_string(h) + " pixels in any order of axes");
  }
  if (found.size() > 1) {
    std::string list;
    for (const std::string& one : found) list += (list.empty() ? "" : ", ") + one;
    throw FileError(size + "can be read as " + list + "; -axes says which (n label, y, x)");
  }
  return found[0];
}

}  // namespace

bool areAxes(const std::string& axes) {
  std::string sorted = asLabels(axes);
  std::sort(sorted.begin(), sorted.end());
  return sorted == "nxy" || sorted == "nxyz" || sorted == "ntxy" || sorted == "ntxyz";
}

Planes planesOf(const Array& array, const std::string& axes, std::size_t w, std::size_t h) {
  std::string order = asLabels(axes);
  if (order.empty() && areAxes(array.axes)) order = asLabels(array.axes);
  if (order.empty()) order = theOnlyReading(array, w, h);
  const std::string wrong = misfit(array, order, w, h);
  if (!wrong.empty()) throw FileError(wrong);
  const std::vector<std::size_t> strides = stridesOf(array);
  Planes planes;
  for (std::size_t k = 0; k < order.size(); ++k) {
    if (order[k] == 'n') planes.labels = array.shape[k], planes.label = strides[k];
    if (order[k] == 'y') planes.row = strides[k];
    if (order[k] == 'x') planes.column = strides[k];
  }
  return planes;
}

std::vector<float> inPlanes(const Array& array, const Planes& planes, std::size_t w,
                            std::size_t h) {
  std::vector<float> values(planes.labels * w * h);
  float* to = values.data();
  for (std::size_t i = 0; i < planes.labels; ++i) {
    for (std::size_t y = 0; y < h; ++y) {
      const float* const from = array.values.data() + i * planes.label + y * planes.row;
      for (std::size_t x = 0; x < w; ++x) *to++ = from[x * planes.column];
    }
  }
  return values;
}

}  // namespace namespace_ratseg
