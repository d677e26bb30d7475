#ifndef RATSEG_ALG_DATATERM_DATATERM_LOOPS_H
#define RATSEG_ALG_DATATERM_DATATERM_LOOPS_H

// The loops of the scribble data term over all scribble colours, compiled for several instruction
// sets (dataterm_loops-inl.h, host_isa.h).

#include <cstddef>

#include "device/host/host_isa.h"

namespace namespace_ratseg {

// Scribble colours in CIELAB, one array per channel, and the number of times that each occurs. size
// is a multiple of kScribbleLanes; padding has weight 0 and repeats one of the colours.
struct ScribbleColumns {
  const float* L;
  const float* a;
  const float* b;
  const float* weight;
  std::size_t size;
};

inline constexpr std::size_t kScribbleLanes = 16;

struct DatatermLoops {
  const char* isa;

  // exponents[j] = D_j^2 scale, D_j the distance of scribble j to the colour (L, a, b); returns the
  // least.
  float (*exponents)(const ScribbleColumns& scribbles, float L, float a, float b, float scale,
                     float* exponents);
  // sum_j weight_j exp(minExponent - exponents_j)
  float (*weightedSum)(const ScribbleColumns& scribbles, const float* exponents, float minExponent);
};

const DatatermLoops& datatermLoops(HostIsa isa = hostIsa());

}  // namespace namespace_ratseg

#endif
