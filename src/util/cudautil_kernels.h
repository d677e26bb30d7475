#ifndef RATSEG_UTIL_CUDAUTIL_KERNELS_H
#define RATSEG_UTIL_CUDAUTIL_KERNELS_H

#include "device/types.h"

namespace namespace_ratseg {

// The architecture that the running code was compiled for: 100 * major + 10 * minor of its compute
// capability. The host stands for 3.0.
RATSEG_HD inline int compiledArch() {
#ifdef __CUDA_ARCH__
  return __CUDA_ARCH__;
#else
  return 300;
#endif
}

}  // namespace namespace_ratseg

#endif
