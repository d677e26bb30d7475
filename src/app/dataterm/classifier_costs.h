#ifndef RATSEG_APP_DATATERM_CLASSIFIER_COSTS_H
#define RATSEG_APP_DATATERM_CLASSIFIER_COSTS_H

#include <cstddef>
#include <string>
#include <vector>

#include "app/dataterm/options.h"

namespace namespace_ratseg {

// What another program made: the cost of each label at each pixel, label by label, row by row.
struct ClassifierCosts {
  std::vector<float> values;
  std::size_t labels = 0;
  float greatest = 0;  // of the finite ones
};

// Reads what -costs or -probabilities names, for a picture of w x h pixels. Throws InputError.
ClassifierCosts loadClassifierCosts(const DatatermOptions& options, std::size_t w, std::size_t h);

}  // namespace namespace_ratseg

#endif
