#ifndef RATSEG_FILES_HDF5_H
#define RATSEG_FILES_HDF5_H

#include <string>
#include <string_view>
#include <vector>

#include "files/array.h"

namespace namespace_ratseg {

// True of the first bytes of an HDF5 file.
bool beginsHdf5(std::string_view file);

// Reads the dataset exported_data, which ilastik writes, or the only one that there is; its axes
// are those of its attribute axistags. Throws FileError, also in a build without libhdf5.
Array readHdf5(std::string_view file, const CheckElements& check);

// The letters of vigra's axis tags, a JSON text; "" where they cannot be read.
std::string axesOfTags(const std::string& json);

}  // namespace namespace_ratseg

#endif
