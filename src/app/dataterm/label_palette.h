#ifndef RATSEG_APP_DATATERM_LABEL_PALETTE_H
#define RATSEG_APP_DATATERM_LABEL_PALETTE_H

#include <cstddef>

#include "files/tiff_writer.h"

namespace namespace_ratseg {

// The colours of the labels 0 to count-1 (count <= 256). A label's colour depends on its number
// alone; no two are the same.
Palette labelPalette(std::size_t count);

}  // namespace namespace_ratseg

#endif
