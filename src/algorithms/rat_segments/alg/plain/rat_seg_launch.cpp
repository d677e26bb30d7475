#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"

#include "device/cuda/cuda_backend.h"
#include "device/selection.h"

namespace namespace_ratseg {

RatSegKernels& ratSegKernels() {
  if constexpr (kBuiltWithCuda) {
    if (!backend().isHost()) return cudaRatSegKernels();
  }
  return hostRatSegKernels();
}

}  // namespace namespace_ratseg
