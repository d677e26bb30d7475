#ifndef RATSEG_APP_DATATERM_MODEL_REPORTS_H
#define RATSEG_APP_DATATERM_MODEL_REPORTS_H

// What ratseg-dataterm says on standard error of its models.

#include <cstddef>
#include <vector>

#include "app/dataterm/options.h"
#include "models/learn.h"

namespace namespace_ratseg {

// The mix, how many of each label's held-out samples get their label, and warnings of labels that
// are taken for others.
void reportLearned(const Learned& model, const DatatermOptions& options);

// The shares that the costs alone speak of: of the best labels, and summed probabilities; beside
// those of the truth, if any.
void reportShares(const float* rho, std::size_t labels, std::size_t pixels,
                  const std::vector<double>& truth, const DatatermOptions& options);

}  // namespace namespace_ratseg

#endif
