// The host's launchers of the certificate: parts of a band spread over the cores.

#include <algorithm>
#include <vector>

#include "algorithms/rat_segments/alg/certificate/certificate_launch.h"
#include "algorithms/rat_segments/alg/certificate/certificate_rows.h"
#include "device/host/host_launch.h"

namespace namespace_ratseg {

namespace isa_baseline {
extern const CertificateRows rows;
}
namespace isa_avx2 {
extern const CertificateRows rows;
}

// Every processor with AVX-512 has AVX2, and wider vectors gain nothing here.
const CertificateRows& certificateRows(HostIsa isa) {
#if RATSEG_X86
  if (isa != HostIsa::baseline) return isa_avx2::rows;
#endif
  (void)isa;
  return isa_baseline::rows;
}

namespace {

constexpr std::size_t kWorkOfAnElement = 8;  // in elements of a plain loop (kParallelWork)

class HostCertificateKernels final : public CertificateKernels {
 public:
  void ratseg_certificate(const LaunchShape& shape, const CertificateBand& band,
                          double* parts) override {
    if (!admitHostLaunch("ratseg_certificate", shape)) return;
    const std::size_t rows = band.ymax - band.ymin;
    const std::size_t count = shape.grid.x;
    const CertificateRows& isa = certificateRows();
    parallelFor(count, rows * band.w * band.n * kWorkOfAnElement, [=, &band, &isa](std::size_t k) {
      thread_local std::vector<double> doubles;
      thread_local std::vector<int> ints;
      doubles.resize(isa.scratchDoubles(band.w, band.n));
      ints.resize(isa.scratchInts(band.w));
      isa.sumRows(band, k * rows / count, (k + 1) * rows / count,
                  parts + k * certificateSums(band.n), doubles.data(), ints.data());
    });
  }

  void ratseg_certificate_sum(const LaunchShape& shape, double* sums, const double* parts,
                              std::size_t count, const float* gamma, const float* alpha,
                              const float* beta, std::size_t n) override {
    if (!admitHostLaunch("ratseg_certificate_sum", shape)) return;
    const std::size_t length = certificateSums(n);
    std::fill(sums, sums + length, 0.0);
    for (std::size_t k = 0; k < count; ++k) {
      for (std::size_t j = 0; j < length; ++j) sums[j] += parts[k * length + j];
    }
    std::copy(gamma, gamma + n, sums + length);
    std::copy(alpha, alpha + n, sums + length + n);
    std::copy(beta, beta + n, sums + length + 2 * n);
  }
};

}  // namespace

CertificateKernels& CertificateKernels::host() {
  static HostCertificateKernels kernels;
  return kernels;
}

}  // namespace namespace_ratseg
