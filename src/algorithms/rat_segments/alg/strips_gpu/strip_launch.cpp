#include "algorithms/rat_segments/alg/strips_gpu/strip_launch.h"

#include "device/cuda/cuda_backend.h"
#include "device/selection.h"

namespace namespace_ratseg {

StripKernels& stripKernels() {
  if constexpr (kBuiltWithCuda) {
    if (!backend().isHost()) return cudaStripKernels();
  }
  return hostStripKernels();
}

}  // namespace namespace_ratseg
