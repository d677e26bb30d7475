#ifndef RATSEG_APP_DATATERM_SCRIBBLE_WARNINGS_H
#define RATSEG_APP_DATATERM_SCRIBBLE_WARNINGS_H

#include <cstddef>
#include <string>
#include <vector>

#include "app/dataterm/options.h"

namespace namespace_ratseg {

// Warns of what is probably unintentional in scribbles, a line each. marks holds the number of
// marked pixels of each label, those of the label picture included and the void one left out;
// pixels is the image's.
std::vector<std::string> scribbleWarnings(const std::vector<std::size_t>& marks, std::size_t pixels,
                                          const DatatermOptions& options);

}  // namespace namespace_ratseg

#endif
