#ifndef RATSEG_APP_DATATERM_CONVERT_LABELING_H
#define RATSEG_APP_DATATERM_CONVERT_LABELING_H

#include "app/dataterm/options.h"

namespace namespace_ratseg {

// -convert: writes a labeling of ratseg as a file that other programs read, .png, .tif or .npy by
// the name of -out, and prints what it wrote: a line for each label with its colour and its pixels.
// Throws InputError.
void convertLabeling(const DatatermOptions& options);

}  // namespace namespace_ratseg

#endif
