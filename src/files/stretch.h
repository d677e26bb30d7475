#ifndef RATSEG_FILES_STRETCH_H
#define RATSEG_FILES_STRETCH_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "files/raster.h"

namespace namespace_ratseg {

// The values that become black (low) and white (high).
struct ValueRange {
  float low = 0;
  float high = 1;
};

struct MendedValues {
  std::size_t nans = 0;
  std::size_t infinite = 0;
};

// Makes all values finite: infinite ones become the channel's greatest or smallest finite value,
// NaN the smallest; 0 where a channel has no finite value.
MendedValues mendValues(Raster& raster);

// The range of the finite values of count planes that stand together: 0.1 % of them are below low
// and 0.1 % above high. Where these two are the same, the smallest and the greatest value; where
// those are the same too, low and high are equal.
ValueRange rangeOf(const float* planes, std::size_t values);

// Values of a plane as 0 to 255, rounded; what is outside of the range becomes 0 or 255. Of an
// empty range all become 0.
std::vector<std::uint8_t> stretched(const float* plane, std::size_t count, const ValueRange& range);

}  // namespace namespace_ratseg

#endif
