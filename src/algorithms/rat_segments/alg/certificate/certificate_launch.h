#ifndef RATSEG_ALG_CERTIFICATE_CERTIFICATE_LAUNCH_H
#define RATSEG_ALG_CERTIFICATE_CERTIFICATE_LAUNCH_H

#include <cstddef>

#include "algorithms/rat_segments/alg/certificate/certificate_kernels.h"
#include "device/launchers.h"
#include "device/types.h"

namespace namespace_ratseg {

// Launches the kernels of the certificate on the current device of one backend. Pointers are device
// pointers of that device. A launch that the device refuses leaves its error pending.
class CertificateKernels {
 public:
  // parts[k certificateSums(n) ...] = the sums of rows [k hb / parts, (k + 1) hb / parts) of the
  // band, for k from 0 to shape.grid.x - 1, the number of parts. Needs threads in whole warps and
  // certificateSharedBytes.
  virtual void ratseg_certificate(const LaunchShape& shape, const CertificateBand& band,
                                  double* parts) = 0;

  // The sums of all parts; behind them gamma, alpha and beta, n each. shape has certificateSums(n)
  // blocks of one warp.
  virtual void ratseg_certificate_sum(const LaunchShape& shape, double* sums, const double* parts,
                                      std::size_t count, const float* gamma, const float* alpha,
                                      const float* beta, std::size_t n) = 0;

  // The launchers of each backend; cuda() exists only in builds with that backend.
  static CertificateKernels& host();
  static CertificateKernels& cuda();

 protected:
  ~CertificateKernels() =
      default;  // never destroyed: threads may still launch while the process ends
};

// Shared memory of ratseg_certificate with blocks of that many threads: the sums per label of each
// warp, and the block's numbers of pixels.
constexpr std::size_t certificateSharedBytes(std::size_t threads, std::size_t n) {
  return threads / 32 * 2 * n * sizeof(double) + n * sizeof(unsigned);
}

// The launchers of the current backend.
inline CertificateKernels& certificateKernels() { return currentLaunchers<CertificateKernels>(); }

}  // namespace namespace_ratseg

#endif
