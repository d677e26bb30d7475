#include "algorithms/rat_segments/alg/certificate/certifier.h"

#include <algorithm>

#include "algorithms/rat_segments/alg/certificate/certificate_launch.h"
#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "device/ceil_div.h"
#include "device/runtime.h"
#include "device/selection.h"

namespace namespace_ratseg {

namespace {

using Values = std::vector<double>;

// Rows of one part: a GPU wants many blocks, the host rows whose neighbours it has just seen.
constexpr std::size_t kRowsOnGpu = 1;
constexpr std::size_t kRowsOnHost = 8;
constexpr std::size_t kMaxParts = 2048;

// The accelerated iteration's first check: a check costs as much as about six iterations, and
// borders still move when the energy of easy pictures hardly does.
constexpr std::size_t kFirstCheck = 64;

// Threads of a block of ratseg_certificate, whose shared memory grows with the number of labels.
unsigned threadsFor(std::size_t n) { return n <= 512 ? 128 : 64; }

Values toHost(const cudaarray<float>& array) {
  std::vector<float> values(array.numElem());
  array.copyToHost(values.data());
  check();
  return {values.begin(), values.end()};
}

SharePrior priorOf(const SolverState& solver) {
  const gpudata& g = solver.arrays[0];
  SharePrior prior;
  prior.kind = solver.par.kind_prior;
  prior.n = solver.par.n;
  prior.background = solver.ind_bgr;
  prior.pixels = static_cast<double>(solver.par.w * solver.par.h);
  prior.mu = static_cast<double>(solver.par.mu);
  prior.eps = static_cast<double>(solver.par.eps);
  prior.ratios = toHost(g.ratios);
  prior.sigmas = toHost(g.sigmas);
  prior.mins = toHost(g.mins);
  prior.maxs = toHost(g.maxs);
  return prior;
}

}  // namespace

Certifier::Certifier(SolverState& solver) : solver_(solver), prior_(priorOf(solver)) {
  const std::size_t n = solver.par.n;
  const std::size_t wanted = backend().isHost() ? kRowsOnHost : kRowsOnGpu;
  bands_.resize(static_cast<std::size_t>(solver.bands()));
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    const std::size_t h = solver.arrays[d].h;
    const std::size_t rows = std::max(wanted, ceilDiv(h, kMaxParts));
    Band& band = bands_[d];
    band.parts = ceilDiv(h, rows);
    cudaSetDevice(solver.dev[d]);
    check();
    band.partSums.alloc(band.parts * certificateSums(n));
    band.sums.alloc(certificateSums(n) + 3 * n);
    check();
  }
}

std::size_t Certifier::stepsToCheck(std::size_t step) const {
  const std::size_t last = solver_.par.Nsteps - step + 1;
  const std::size_t modulo = solver_.par.certifyModulo;
  if (modulo == 0) return last;
  if (!solver_.accelerates()) return std::min(last, modulo - (step - 1) % modulo);
  const std::size_t apart = checked_ == 0 ? kFirstCheck : std::max(kFirstCheck / 4, checked_ / 4);
  return std::min(last, checked_ + std::min(modulo, apart) - (step - 1));
}

// Row h of u: the first row of the band below. Row 0 of p: the last of the band above. Always those
// rows, also where the iteration without peer access takes others.
void Certifier::fillHalos() {
  const std::size_t w = solver_.par.w;
  for (int d = 1; d < solver_.bands(); ++d) {
    gpudata& upper = solver_.arrays[d - 1];
    gpudata& lower = solver_.arrays[d];
    const int upperDevice = solver_.dev[d - 1];
    const int lowerDevice = solver_.dev[d];
    cudaSetDevice(lowerDevice);
    for (std::size_t i = 0; i < solver_.par.n; ++i) {
      float* upperU = upper.u.get_ptr() + i * upper.NOmegaOffset;
      float2* upperP = upper.p.get_ptr() + i * upper.NOmegaOffset;
      const float* lowerU = lower.u.get_ptr() + i * lower.NOmegaOffset;
      float2* lowerP = lower.p.get_ptr() + i * lower.NOmegaOffset;
      const std::size_t halo = upper.h * w;
      cudaMemcpyPeer(upperU + halo, upperDevice, lowerU, lowerDevice, w * sizeof(float));
      cudaMemcpyPeer(lowerP, lowerDevice, upperP + halo, upperDevice, w * sizeof(float2));
      check();
    }
  }
}

void Certifier::launch(int d) {
  const Params& par = solver_.par;
  const gpudata& g = solver_.arrays[d];
  Band& own = bands_[static_cast<std::size_t>(d)];
  CertificateBand band;
  band.u = g.u;
  band.p = g.p;
  band.rho = g.rho;
  band.weight = g.weightHat;
  band.gamma = g.gamma;
  band.lambda = par.lambda;
  band.w = par.w;
  band.h = par.h;
  band.ymin = g.ymin;
  band.ymax = g.ymax;
  band.n = par.n;

  cudaSetDevice(solver_.dev[d]);
  const unsigned threads = threadsFor(par.n);
  const LaunchShape shape = {{static_cast<unsigned>(own.parts), 1, 1},
                             {threads, 1, 1},
                             certificateSharedBytes(threads, par.n)};
  certificateKernels().ratseg_certificate(shape, band, own.partSums);
  check();
  const auto blocks = static_cast<unsigned>(certificateSums(par.n));
  certificateKernels().ratseg_certificate_sum({{blocks, 1, 1}, {32, 1, 1}, 0}, own.sums,
                                              own.partSums, own.parts, g.gamma, g.alpha, g.beta,
                                              par.n);
  check();
}

// The sums of all bands, in their order, and the duals of device 0.
ShareDuals Certifier::gather(Values& sums) {
  const std::size_t n = solver_.par.n;
  const auto length = static_cast<std::ptrdiff_t>(certificateSums(n));
  const auto labels = static_cast<std::ptrdiff_t>(n);
  sums.assign(certificateSums(n), 0.0);
  ShareDuals duals;
  for (const Band& band : bands_) {
    Values host(band.sums.numElem());
    band.sums.copyToHost(host.data());
    check();
    for (std::size_t k = 0; k < sums.size(); ++k) sums[k] += host[k];
    if (!duals.gamma.empty()) continue;
    const auto first = host.begin() + length;
    duals.gamma.assign(first, first + labels);
    duals.alpha.assign(first + labels, first + 2 * labels);
    duals.beta.assign(first + 2 * labels, host.end());
  }
  return duals;
}

bool Certifier::certify(std::size_t step) {
  checked_ = step;
  fillHalos();
  for (int d = 0; d < solver_.bands(); ++d) launch(d);
  Values sums;
  const ShareDuals duals = gather(sums);
  const Certificate c = certificate(prior_, sums, duals);

  Statistics& to = solver_.statistics;
  to.certifiedIteration = step;
  to.energy = c.energy;
  to.labelingEnergy = c.labelingEnergy;
  to.bound = c.bound;
  to.gap = c.gap;
  to.labelingGap = c.labelingGap;
  to.toleranceMet = c.gap <= static_cast<double>(solver_.par.tolerance);
  return to.toleranceMet;
}

}  // namespace namespace_ratseg
