#ifndef RATSEG_APP_DATATERM_SCRIBBLE_PICTURE_H
#define RATSEG_APP_DATATERM_SCRIBBLE_PICTURE_H

#include <string>

#include "app/dataterm/label_picture.h"
#include "app/load_picture.h"

namespace namespace_ratseg {

// What is known of a picture of scribbles before it is read.
struct ScribbleFile {
  std::string file;
  const Image& drawnOn;  // the image that the scribbles have the size of
  std::string drawnOnFile;
  PageChoice page;
  std::string colours;  // -colours; empty: labels in the order of the hues
};

// Loads scribbles as marks: 0 where nothing is marked, k+1 where label k is. They are label numbers
// (LabelPicture::load) or pure colours (colour_strokes.h), of which a line says which labels they
// are. Marks that only smoothing made are left out, with a warning. Throws InputError where the
// file is none of these, or is the picture itself with strokes drawn into it.
LabelPicture loadScribbles(const ScribbleFile& scribbles);

// What -colours prints: a line for each colour with its label and its pixels, and the option.
std::string listOfColours(const ScribbleFile& scribbles);

}  // namespace namespace_ratseg

#endif
