#include "algorithms/rat_segments/alg/certificate/certificate_launch.h"

#include "device/cuda/cuda_backend.h"
#include "device/selection.h"

namespace namespace_ratseg {

CertificateKernels& certificateKernels() {
  if constexpr (kBuiltWithCuda) {
    if (!backend().isHost()) return cudaCertificateKernels();
  }
  return hostCertificateKernels();
}

}  // namespace namespace_ratseg
