#ifndef RATSEG_APP_DATATERM_SMOOTHED_MARKS_H
#define RATSEG_APP_DATATERM_SMOOTHED_MARKS_H

#include <cstddef>

#include "app/dataterm/label_picture.h"

namespace namespace_ratseg {

// Label numbers that a smoothing brush wrote around strokes of higher numbers (0, 1, 2, 3 across
// the rim of a stroke of 3s) become 0. They are pixels between a lower and a higher number; only
// where an eighth of some number's pixels lie like that are strokes taken for smoothed. Returns how
// many.
std::size_t leaveOutSmoothed(LabelPicture& marks);

}  // namespace namespace_ratseg

#endif
