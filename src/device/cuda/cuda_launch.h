#ifndef RATSEG_DEVICE_CUDA_CUDA_LAUNCH_H
#define RATSEG_DEVICE_CUDA_CUDA_LAUNCH_H

// What CUDA launchers are made of. For files compiled by nvcc only.

#include <cuda_runtime.h>

#include "device/types.h"

namespace namespace_ratseg {

inline ::dim3 native(const dim3& d) { return {d.x, d.y, d.z}; }

}  // namespace namespace_ratseg

#endif
