#include "files/array.h"

#include <limits>

#include "files/file_error.h"

namespace namespace_ratseg {

std::string shapeText(const std::vector<std::size_t>& shape) {
  std::string text;
  for (std::size_t size : shape) text += (text.empty() ? "" : " x ") + std::to_string(size);
  return text.empty() ? "no dimensions" : text;
}

std::size_t elementCount(const std::vector<std::size_t>& shape) {
  constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max() / 16;
  std::size_t count = 1;
  for (std::size_t size : shape) {
    if (size == 0) return 0;
  }
  for (std::size_t size : shape) {
    if (count > kMost / size) {
      throw FileError("has sizes that no memory holds: " + shapeText(shape));
    }
    count *= size;
  }
  return count;
}

}  // namespace namespace_ratseg
