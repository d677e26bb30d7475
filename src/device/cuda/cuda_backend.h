#ifndef RATSEG_DEVICE_CUDA_CUDA_BACKEND_H
#define RATSEG_DEVICE_CUDA_CUDA_BACKEND_H

#include "device/backend.h"

namespace namespace_ratseg {

// True if this build contains the CUDA backend. Guard calls of functions that only that backend
// defines with "if constexpr", so that builds without it link.
inline constexpr bool kBuiltWithCuda = RATSEG_WITH_CUDA != 0;

// The backend over the CUDA runtime. Errors are translated to the codes of types.h by name, since
// their numbers changed between versions. Exists only where kBuiltWithCuda is true.
Backend& cudaBackend();

// The lowest compute capability that this build has code for, times 10. Exists as cudaBackend
// does.
int lowestComputeCapability();

}  // namespace namespace_ratseg

#endif
