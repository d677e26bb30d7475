#ifndef RATSEG_APP_DATATERM_KNOWN_MODEL_H
#define RATSEG_APP_DATATERM_KNOWN_MODEL_H

#include <cstddef>
#include <string>
#include <vector>

#include "models/kept_model.h"
#include "util/rgb.h"

namespace namespace_ratseg {

// Reads a model that -save-model kept. Throws InputError.
KeptModel loadModel(const std::string& file);

// Its colours for each label.
std::vector<std::vector<RGB>> coloursOf(const KeptModel& model, std::size_t labels);

}  // namespace namespace_ratseg

#endif
