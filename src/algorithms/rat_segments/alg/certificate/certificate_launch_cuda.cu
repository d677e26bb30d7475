// The CUDA launchers of the certificate: a block per part, a thread per pixel.

#include <cuda_runtime.h>

#include "algorithms/rat_segments/alg/certificate/certificate_launch.h"
#include "device/cuda/cuda_launch.h"
#include "device/cuda/warp.h"

namespace namespace_ratseg {

namespace {

constexpr unsigned kMaxWarps = 32;

// sums[k] = the sum over the block of each thread's terms[k].
__device__ void blockSums(double* sums, const double* terms) {
  __shared__ double warps[kMaxWarps][kCertificateTerms];
  for (int k = 0; k < kCertificateTerms; ++k) {
    const double sum = warpSum(terms[k]);
    if (threadIdx.x % kWarp == 0) warps[threadIdx.x / kWarp][k] = sum;
  }
  __syncthreads();
  if (threadIdx.x >= kCertificateTerms) return;
  double sum = 0.0;
  for (unsigned j = 0; j < blockDim.x / kWarp; ++j) sum += warps[j][threadIdx.x];
  sums[threadIdx.x] = sum;
}

// Adds pixel (x, y) to the thread's terms and, with the warp's other pixels, to the warp's sums per
// label. All threads of a warp come here together; those outside the image add nothing.
__device__ void addPixel(const CertificateBand& band, std::size_t x, std::size_t y, bool inside,
                         double* terms, double* shares, double* costs, unsigned* pixels) {
  const std::size_t at = y * band.w + x;
  const bool hasRight = x + 1 < band.w;
  double inverse[2] = {};
  double inverseBelow = 0.0;
  int label[2] = {};
  int labelBelow = 0;
  tile::certificate_pixels<1>(inverse, label, band, at);
  if (hasRight) tile::certificate_pixels<1>(inverse + 1, label + 1, band, at + 1);
  if (band.ymin + y + 1 < band.h)
    tile::certificate_pixels<1>(&inverseBelow, &labelBelow, band, at + band.w);

  tile::CertificateTile<1> t(band, x, y, x != 0, hasRight, inverse, &inverseBelow, label,
                             &labelBelow);
  for (std::size_t i = 0; i < band.n; ++i) {
    double share = 0.0;
    double cost = 0.0;
    t.add(i, &share, &cost);
    share = warpSum(inside ? share : 0.0);
    cost = warpSum(inside ? cost : 0.0);
    if (threadIdx.x % kWarp != 0) continue;
    shares[i] += share;
    costs[i] += cost;
  }
  if (!inside) return;
  t.finish(terms);
  atomicAdd(&pixels[label[0]], 1u);  // whole numbers: the order does not matter
}

namespace kernel {

__global__ void ratseg_certificate(CertificateBand band, double* parts) {
  double* shared = dynamicShared<double>();
  const std::size_t n = band.n;
  const unsigned warps = blockDim.x / kWarp;
  double* own = shared + threadIdx.x / kWarp * 2 * n;
  auto* pixels = reinterpret_cast<unsigned*>(shared + warps * 2 * n);
  for (std::size_t k = threadIdx.x; k < warps * 2 * n; k += blockDim.x) shared[k] = 0.0;
  for (std::size_t k = threadIdx.x; k < n; k += blockDim.x) pixels[k] = 0;
  __syncthreads();

  const std::size_t rows = band.ymax - band.ymin;
  const std::size_t last = (blockIdx.x + std::size_t{1}) * rows / gridDim.x;
  double terms[kCertificateTerms] = {};
  for (std::size_t y = blockIdx.x * rows / gridDim.x; y < last; ++y) {
    for (std::size_t first = 0; first < band.w; first += blockDim.x) {
      const std::size_t x = first + threadIdx.x;
      const bool inside = x < band.w;
      addPixel(band, inside ? x : band.w - 1, y, inside, terms, own, own + n, pixels);
    }
  }

  double* sums = parts + blockIdx.x * certificateSums(n);
  blockSums(sums, terms);  // synchronises the block
  for (std::size_t i = threadIdx.x; i < n; i += blockDim.x) {
    double share = 0.0;
    double cost = 0.0;
    for (unsigned k = 0; k < warps; ++k) {
      share += shared[k * 2 * n + i];
      cost += shared[k * 2 * n + n + i];
    }
    sums[kCertificateTerms + i] = share;
    sums[kCertificateTerms + n + i] = pixels[i];
    sums[kCertificateTerms + 2 * n + i] = cost;
  }
}

__global__ void ratseg_certificate_sum(double* sums, const double* parts, std::size_t count,
                                       const float* gamma, const float* alpha, const float* beta,
                                       std::size_t n) {
  const std::size_t length = certificateSums(n);
  const std::size_t j = blockIdx.x;  // one block per sum, one warp per block
  if (j < n && threadIdx.x == 0) {
    sums[length + j] = gamma[j];
    sums[length + n + j] = alpha[j];
    sums[length + 2 * n + j] = beta[j];
  }
  double sum = 0.0;
  for (std::size_t k = threadIdx.x; k < count; k += kWarp) sum += parts[k * length + j];
  sum = warpSum(sum);
  if (threadIdx.x == 0) sums[j] = sum;
}

}  // namespace kernel

class CudaCertificateKernels final : public CertificateKernels {
 public:
  void ratseg_certificate(const LaunchShape& shape, const CertificateBand& band,
                          double* parts) override {
    launch(kernel::ratseg_certificate, shape, band, parts);
  }

  void ratseg_certificate_sum(const LaunchShape& shape, double* sums, const double* parts,
                              std::size_t count, const float* gamma, const float* alpha,
                              const float* beta, std::size_t n) override {
    launch(kernel::ratseg_certificate_sum, shape, sums, parts, count, gamma, alpha, beta, n);
  }
};

}  // namespace

CertificateKernels& CertificateKernels::cuda() {
  static CudaCertificateKernels kernels;
  return kernels;
}

}  // namespace namespace_ratseg
