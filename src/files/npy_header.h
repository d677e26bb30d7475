#ifndef RATSEG_FILES_NPY_HEADER_H
#define RATSEG_FILES_NPY_HEADER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace namespace_ratseg {

struct NpyHeader {
  std::string descr;
  bool fortranOrder = false;
  std::vector<std::size_t> shape;
};

// Reads the text "{'descr': '<f4', 'fortran_order': False, 'shape': (3, 4), }": a Python dictionary
// of exactly these three, in any order. Throws FileError for everything else.
NpyHeader parseNpyHeader(std::string_view text);

}  // namespace namespace_ratseg

#endif
