#ifndef RATSEG_ALG_KERNELS_DISC_RADIUS_KERNELS_H
#define RATSEG_ALG_KERNELS_DISC_RADIUS_KERNELS_H

#include <cfloat>

#include "device/types.h"

// Files compiled for one instruction set put its name into the namespace, so that the linker cannot
// mix up functions of different sets.
#ifndef RATSEG_ISA
#define RATSEG_ISA isa_any
#endif

namespace namespace_ratseg::tile {
inline namespace RATSEG_ISA {

// Radius of the disc that holds the dual field of the length term at a pixel: weight lambda/2,
// noBound where either of the two is without bound.
template <class T>
RATSEG_HD inline T discRadius(float weight, float lambda, T noBound) {
  const bool unbounded = lambda >= FLT_MAX || (weight >= FLT_MAX && lambda > 0.0f);
  const T bounded =
      lambda != 0.0f ? static_cast<T>(weight) * (static_cast<T>(lambda) / T{2}) : T{0};
  return unbounded ? noBound : bounded;
}

}  // namespace RATSEG_ISA
}  // namespace namespace_ratseg::tile

#endif
