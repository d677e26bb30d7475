#ifndef RATSEG_DEVICE_LAUNCHERS_H
#define RATSEG_DEVICE_LAUNCHERS_H

#include "device/cuda/cuda_backend.h"
#include "device/selection.h"

namespace namespace_ratseg {

// The launchers of the current backend. Launchers is a launch interface with the functions host()
// and cuda(), which return those of each backend; cuda() exists only in builds with CUDA.
template <class Launchers>
Launchers& currentLaunchers() {
  if constexpr (kBuiltWithCuda) {
    if (!backend().isHost()) return Launchers::cuda();
  }
  return Launchers::host();
}

}  // namespace namespace_ratseg

#endif
