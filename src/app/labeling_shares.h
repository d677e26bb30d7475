#ifndef RATSEG_APP_LABELING_SHARES_H
#define RATSEG_APP_LABELING_SHARES_H

#include <iosfwd>
#include <vector>

#include "app/proportions.h"

namespace namespace_ratseg {

// Prints a line per label: how much of the foreground's pixels have it, beside the mean and the
// spread that were wished, and how much of all pixels. labeling holds labels below the number of
// entries of wished, whose last is the background's.
void printShares(std::ostream& out, const std::vector<int>& labeling, const Proportions& wished);

}  // namespace namespace_ratseg

#endif
