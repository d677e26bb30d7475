#ifndef RATSEG_ALG_CERTIFICATE_CERTIFICATE_ROWS_H
#define RATSEG_ALG_CERTIFICATE_CERTIFICATE_ROWS_H

// The certificate's sums over rows on the host, compiled for several instruction sets; without
// fused operations, so that all give the same digits.

#include <cstddef>

#include "algorithms/rat_segments/alg/certificate/certificate_kernels.h"
#include "device/host/host_isa.h"

namespace namespace_ratseg {

struct CertificateRows {
  const char* isa;

  // Doubles and ints of scratch that rows of w pixels and n labels need.
  std::size_t (*scratchDoubles)(std::size_t w, std::size_t n);
  std::size_t (*scratchInts)(std::size_t w);
  // sums[0 .. certificateSums(n) - 1] = the sums of rows [first, last) of the band.
  void (*sumRows)(const CertificateBand& band, std::size_t first, std::size_t last, double* sums,
                  double* doubles, int* ints);
};

// With AVX2 for all instruction sets but the plainest.
const CertificateRows& certificateRows(HostIsa isa = hostIsa());

}  // namespace namespace_ratseg

#endif
