#ifndef RATSEG_APP_LABELING_SHARES_H
#define RATSEG_APP_LABELING_SHARES_H

#include <iosfwd>
#include <vector>

#include "app/proportions.h"

namespace namespace_ratseg {

// Prints a line per label: how much of the foreground's pixels have it, beside the mean and the
// spread that were wished, and how much of all pixels. labeling holds labels below the number of
// entries of wished, whose last is the background's. With balanced, shares that the prior should
// have brought to their means are named when they are more than three spreads from them.
void printShares(std::ostream& out, const std::vector<int>& labeling, const Proportions& wished,
                 bool balanced);

}  // namespace namespace_ratseg

#endif
