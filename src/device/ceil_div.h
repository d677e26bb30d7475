#ifndef RATSEG_DEVICE_CEIL_DIV_H
#define RATSEG_DEVICE_CEIL_DIV_H

#include <type_traits>

#include "device/types.h"

namespace namespace_ratseg {

// a / b, rounded up; a + b must be a number of T.
template <class T>
RATSEG_HD constexpr T ceilDiv(T a, std::type_identity_t<T> b) {
  return (a + b - 1) / b;
}

}  // namespace namespace_ratseg

#endif
