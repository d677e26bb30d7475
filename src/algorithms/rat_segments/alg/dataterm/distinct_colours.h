#ifndef RATSEG_ALG_DATATERM_DISTINCT_COLOURS_H
#define RATSEG_ALG_DATATERM_DISTINCT_COLOURS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "device/types.h"

namespace namespace_ratseg {

// The distinct colours of a list, in order of first appearance. Pictures hold few distinct colours
// and scribbles repeat them, so what depends on the colour alone is computed once for each.
struct DistinctColours {
  std::vector<float4> colours;       // w is that of the first appearance and carries no meaning
  std::vector<std::uint32_t> index;  // per list entry: its place in colours
  std::vector<std::uint32_t> count;  // per colour: how often it appears

  // Compares x, y, z bit by bit. count must be below 2^31.
  DistinctColours(const float4* list, std::size_t listCount);
};

}  // namespace namespace_ratseg

#endif
