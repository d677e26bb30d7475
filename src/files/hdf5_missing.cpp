#include "files/file_error.h"
#include "files/hdf5.h"

namespace namespace_ratseg {

bool beginsHdf5(std::string_view file) { return file.starts_with("\x89HDF\r\n\x1a\n"); }

Array readHdf5(std::string_view, const CheckElements&) {
  throw FileError(
      "is an HDF5 file, which this build does not read: libhdf5 was not there when it was "
      "configured; export it as .npy or as multi-page TIFF instead");
}

}  // namespace namespace_ratseg
