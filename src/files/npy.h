#ifndef RATSEG_FILES_NPY_H
#define RATSEG_FILES_NPY_H

#include <string>
#include <string_view>

#include "files/array.h"

namespace namespace_ratseg {

// True of the first bytes of a file of numpy.save.
bool beginsNpy(std::string_view file);

// Reads one of version 1 to 3 with elements f2, f4, f8, u1 or u2 in either order of bytes, in C or
// Fortran order. Bytes behind the elements are ignored, as numpy does. Nothing in it is executed.
// Throws FileError.
Array readNpy(std::string_view file, const CheckElements& check);

// The bytes of a file (version 1.0) of h x w 32-bit integers.
std::string npyOfLabels(const int* labels, std::size_t w, std::size_t h);

}  // namespace namespace_ratseg

#endif
