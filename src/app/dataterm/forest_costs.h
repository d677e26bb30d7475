#ifndef RATSEG_APP_DATATERM_FOREST_COSTS_H
#define RATSEG_APP_DATATERM_FOREST_COSTS_H

#include <cstddef>

#include "app/dataterm/work_line.h"
#include "models/learn.h"

namespace namespace_ratseg {

// Mixes the forest's costs into those by colour: rho holds labels planes of the picture's pixels.
// Labels that the model does not know cost its greatest cost.
void addForestCosts(const Learned& model, PictureFeatures& features, std::size_t labels,
                    WorkLine& line, float* rho);

}  // namespace namespace_ratseg

#endif
