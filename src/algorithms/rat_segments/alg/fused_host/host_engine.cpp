#include "algorithms/rat_segments/alg/fused_host/host_engine.h"

#include <algorithm>
#include <cfloat>

#include "device/ceil_div.h"
#include "device/host/flush_denormals.h"
#include "device/host/host_launch.h"
#include "device/runtime.h"

namespace namespace_ratseg {

namespace {

constexpr std::size_t kRowsPerPiece = 16;    // at least, unless the band has fewer
constexpr std::size_t kWorkOfAnElement = 4;  // in elements of a plain loop (kParallelWork)

bool hasSpecialCosts(const float* rho, std::size_t count) {
  constexpr std::size_t kChunk = 65536;
  std::vector<char> found(ceilDiv(count, kChunk));
  parallelFor(found.size(), count, [&](std::size_t c) {
    const float* end = rho + std::min(count, (c + 1) * kChunk);
    found[c] =
        std::any_of(rho + c * kChunk, end, [](float x) { return x >= FLT_MAX || x <= -FLT_MAX; });
  });
  return std::find(found.begin(), found.end(), 1) != found.end();
}

// Applies convert to all rows of p of a band, halo row included.
template <class Convert>
void convertRows(gpudata& g, std::size_t w, std::size_t n, Convert&& convert) {
  parallelFor((g.h + 1) * n, g.NOffset, [&](std::size_t row) {
    thread_local std::vector<float> scratch;
    scratch.resize(w);
    convert(g.p.get_ptr() + row * w, w, scratch.data());
  });
}

}  // namespace

bool HostEngine::canRun(const SolverState& solver) {
  return backend().isHost() && solver.bandsReachEachOther();
}

HostEngine::HostEngine(SolverState& solver, const StepSizes& sizes, const HostSweep& sweep)
    : solver_(solver), plain_(solver), sizes_(sizes), sweep_(sweep) {
  const Params& par = solver.par;
  const auto count = static_cast<std::size_t>(solver.bands());
  const auto threads = static_cast<std::size_t>(hostThreads());
  bands_.resize(count);
  coupling_.assign(count, std::vector<float>(par.n));
  rowSums_.resize(count);
  for (std::size_t d = 0; d < count; ++d) {
    gpudata& g = solver.arrays[d];
    SweepBand& b = bands_[d];
    b.u = g.u;
    b.u_bar = g.u_bar;
    b.p = &g.p.get_ptr()->x;
    b.rho = g.rho;
    b.weight = g.weightHat;
    b.coupling = coupling_[d].data();
    b.w = par.w;
    b.h = par.h;
    b.ymin = g.ymin;
    b.ymax = g.ymax;
    b.n = par.n;
    b.special = hasSpecialCosts(g.rho, g.N);
    rowSums_[d].resize(g.h * par.n);
    const std::size_t pieces = std::clamp<std::size_t>(g.h / kRowsPerPiece, 1, threads);
    for (std::size_t k = 0; k < pieces; ++k) {
      pieces_.push_back({d, k * g.h / pieces, (k + 1) * g.h / pieces - 1});
    }
  }
  takeOver();
  admitLaunches("ratseg_sweep_sums");
  parallelFor(pieces_.size(), work(), [&](std::size_t k) {
    const Piece& piece = pieces_[k];
    const SweepBand& b = bands_[piece.band];
    for (std::size_t y = piece.first; y <= piece.last; ++y) {
      sweep_.sumRow(b, y, rowSums_[piece.band].data() + y * b.n);
    }
  });
}

HostEngine::~HostEngine() { handOver(); }

void HostEngine::takeOver() {
  for (int d = 0; d < solver_.bands(); ++d) {
    convertRows(solver_.arrays[d], solver_.par.w, solver_.par.n, splitRow);
  }
  hasArrays_ = true;
}

void HostEngine::handOver() {
  if (!hasArrays_) return;
  hasArrays_ = false;
  for (int d = 0; d < solver_.bands(); ++d) {
    convertRows(solver_.arrays[d], solver_.par.w, solver_.par.n, joinRow);
  }
}

// One launch per band.
void HostEngine::admitLaunches(const char* name) {
  for (int d = 0; d < solver_.bands(); ++d) {
    cudaSetDevice(solver_.dev[d]);
    admitHostLaunch(name, {solver_.arrays[d].grid, solver_.arrays[d].block, 0});
  }
}

// A single piece needs no other thread.
std::size_t HostEngine::work() const {
  if (pieces_.size() == 1) return 0;
  return solver_.par.w * solver_.par.h * solver_.par.n * kWorkOfAnElement;
}

float* HostEngine::scratch() const {
  thread_local std::vector<float> floats;
  floats.resize(sweep_.scratchFloats(solver_.par.w, solver_.par.n));
  return floats.data();
}

// sum_u of device 0 from the rows' sums, always in the same order.
void HostEngine::gatherSums() {
  const std::size_t n = solver_.par.n;
  float* sum_u = solver_.arrays[0].sum_u;
  for (std::size_t i = 0; i < n; ++i) {
    double sum = 0.0;
    for (const std::vector<float>& rows : rowSums_) {
      for (std::size_t k = i; k < rows.size(); k += n) sum += static_cast<double>(rows[k]);
    }
    sum_u[i] = static_cast<float>(sum);
  }
}

void HostEngine::prepareBands() {
  const Params& par = solver_.par;
  const float pixels = static_cast<float>(par.w * par.h);
  for (std::size_t d = 0; d < bands_.size(); ++d) {
    SweepBand& b = bands_[d];
    b.lambda = par.lambda;
    b.dualStep = sizes_.sigma / 2.0f;
    b.primalStep = sizes_.tau / (solver_.constGamma / pixels + 4.0f);
    b.theta_bar = kThetaBar;
    const float* gamma = solver_.arrays[d].gamma;
    for (std::size_t i = 0; i < par.n; ++i) {
      coupling_[d][i] = gamma[i] * solver_.constGamma / pixels;
    }
  }
}

void HostEngine::advance(std::size_t count) {
  for (std::size_t k = 0; k < count; ++k) step();
}

void HostEngine::step() {
  gatherSums();
  plain_.updateShares(sizes_.tau, sizes_.sigma);
  prepareBands();
  const auto edges = [&](std::size_t k) {
    const FlushDenormals flush;
    sweep_.dualRow(bands_[pieces_[k].band], pieces_[k].last, scratch());
  };
  const auto exchange = [&] {
    plain_.copyExtraRegions_p();
    admitLaunches("ratseg_sweep");
  };
  const auto sweep = [&](std::size_t k) {
    const FlushDenormals flush;
    const Piece& piece = pieces_[k];
    const SweepBand& b = bands_[piece.band];
    float* floats = scratch();
    for (std::size_t y = piece.first; y <= piece.last; ++y) {
      sweep_.primalRow(b, y, y != piece.last, rowSums_[piece.band].data() + y * b.n, floats);
    }
  };
  admitLaunches("ratseg_sweep_edges");
  parallelForInTwoParts(pieces_.size(), work(), edges, exchange, sweep);
  plain_.copyExtraRegions_u();
}

}  // namespace namespace_ratseg
