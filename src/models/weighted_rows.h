#ifndef RATSEG_MODELS_WEIGHTED_ROWS_H
#define RATSEG_MODELS_WEIGHTED_ROWS_H

// The inner loop of all filters, compiled for several instruction sets (weighted_rows-inl.h). All
// give the same bytes: nothing is fused, and each element's sum is added in the order of the rows.

#include <cstddef>

#include "device/host/host_isa.h"

namespace namespace_ratseg {

// out[x] = sum_j weights[j] rows[j][x] for x below n. No row may overlap out.
using WeightedRows = void (*)(const float* const* rows, const float* weights, std::size_t count,
                              float* out, std::size_t n);

WeightedRows weightedRows(HostIsa isa = hostIsa());

}  // namespace namespace_ratseg

#endif
