#ifndef RATSEG_APP_DATATERM_INPUT_PICTURE_H
#define RATSEG_APP_DATATERM_INPUT_PICTURE_H

#include <cstddef>
#include <optional>
#include <string>

#include "app/dataterm/file_options.h"
#include "app/dataterm/page_choice.h"
#include "app/load_picture.h"
#include "files/raster.h"
#include "util/file_replacement.h"

namespace namespace_ratseg {

// A picture as it was loaded.
struct InputPicture {
  Image image;                   // what the colour model sees: whole 255ths from 0 to 1
  bool grey = false;             // its three channels are known to be the same
  std::optional<Raster> raster;  // in full depth with all channels, black 0 and white 1, for
                                 // pictures of more than 8 bits or of others than grey or RGB
  KeptTags kept;                 // of a TIFF file
};

// Loads an image of any format that ratseg reads, TIFF and PNG in full depth. What becomes of the
// values is said on standard error. Throws InputError.
InputPicture loadInputPicture(const std::string& file, const PageChoice& page,
                              const FileOptions& options, const PictureLimits& limits);

// Makes the image the content of a PNG file, as ratseg reads it back. False with *error.
bool makePicture(FileReplacement& file, const InputPicture& picture, std::string* error);

}  // namespace namespace_ratseg

#endif
