#include "reference/reference_solver.h"

#include <algorithm>
#include <cfloat>
#include <stdexcept>
#include <string>
#include <utility>

#include "reference/reference_projections.h"
#include "reference/reference_shares.h"

namespace namespace_ratseg {

namespace {

void require(bool ok, const std::string& what) {
  if (!ok) throw std::invalid_argument("ReferenceProblem: " + what);
}

void checkSizes(const ReferenceProblem& p) {
  require(p.w > 0 && p.h > 0, "w and h must be positive");
  require(p.ind_bgr < p.n, "ind_bgr must be less than n");
  require(p.rho.size() == p.w * p.h * p.n, "rho must hold w h n values");
  require(p.weight.empty() || p.weight.size() == p.w * p.h, "weight must be empty or hold w h");
  require(p.ratios.size() == p.n && p.sigmas.size() == p.n, "ratios and sigmas must hold n values");
  require(p.mins.empty() || p.mins.size() == p.n, "mins must be empty or hold n values");
  require(p.maxs.empty() || p.maxs.size() == p.n, "maxs must be empty or hold n values");
}

void checkParameters(const ReferenceProblem& p) {
  require(p.lambda >= 0, "lambda must not be negative");
  require(p.dt_multiplier > 0, "dt_multiplier must be positive");
  for (double g : p.weight) require(g >= 0, "weight must not be negative");
  require(p.kind_prior != 3 || p.eps >= 0, "eps must not be negative");
  for (std::size_t i = 0; i < p.n; ++i) {
    if (i == p.ind_bgr) continue;
    require(p.ratios[i] >= 0, "ratios must not be negative");
    if (p.kind_prior != 1) continue;
    require(p.mins[i] >= 0 && p.mins[i] <= p.maxs[i], "bounds must be 0 <= mins <= maxs");
  }
}

void checkBands(const ReferenceProblem& p) {
  std::size_t next = 0;
  for (const ReferenceBand& band : p.bands) {
    require(band.ymin == next && band.ymax > band.ymin, "bands must follow one another");
    next = band.ymax;
  }
  require(next == p.h, "bands must cover all rows");
}

std::vector<double> bounds(const ReferenceProblem& p, double sigmas) {
  std::vector<double> bound(p.n);
  for (std::size_t i = 0; i < p.n; ++i) {
    bound[i] = std::clamp(p.ratios[i] + sigmas * p.sigmas[i], 0.0, 1.0);
  }
  return bound;
}

ReferenceProblem completed(ReferenceProblem p) {
  checkSizes(p);
  if (p.mins.empty()) p.mins = bounds(p, -3);
  if (p.maxs.empty()) p.maxs = bounds(p, 3);
  if (p.bands.empty()) p.bands = {{0, p.h}};
  p.accelerate = p.accelerate && p.kind_prior != 1 && p.kind_prior != 2;
  if (p.accelerate && p.lambda > 0 && p.lambda < FLT_MAX) p.dt_multiplier *= 2 / p.lambda;
  checkParameters(p);
  checkBands(p);
  return p;
}

// The parameter d of the upper bound's dual set {beta >= alpha^2 / (4 d)}: infinite mu or no spread
// leaves alpha free, mu = 0 leaves only alpha = 0.
double parabolaOf(double mu, double eps, double sigma, double N) {
  if (mu == 0) return 0;
  if (mu < 0 || mu >= FLT_MAX) return FLT_MAX;
  const double c = sigma * sigma * N * eps / (mu * mu);
  return c > 0 ? 1 / (4 * c) : FLT_MAX;
}

}  // namespace

ReferenceSolver::ReferenceSolver(ReferenceProblem problem)
    : problem_(completed(std::move(problem))) {
  const std::size_t w = problem_.w, n = problem_.n;
  for (const ReferenceBand& band : problem_.bands) {
    const std::size_t rows = band.ymax - band.ymin;
    const std::vector<double> zero(w * (rows + 1) * n);
    bands.push_back({band.ymin, rows, zero, zero, zero, zero});
  }
  a = a_bar = gamma = sum_u = alpha = beta = std::vector<double>(n);
  if (problem_.initLocalSolution) setLocalSolution();
  if (problem_.accelerate) startFromLabeling();
}

void ReferenceSolver::startFromLabeling() {
  for (ReferenceBandState& b : bands) b.u_bar = b.u;
  exchangeLabeling();
}

void ReferenceSolver::setLocalSolution() {
  const std::size_t w = problem_.w, plane = w * problem_.h;
  for (ReferenceBandState& b : bands) {
    for (std::size_t row = 0; row < b.rows; ++row) {
      for (std::size_t x = 0; x < w; ++x) {
        std::size_t best = 0;
        double least = FLT_MAX;
        for (std::size_t i = 0; i < problem_.n; ++i) {
          const double cost = problem_.rho[i * plane + (b.ymin + row) * w + x];
          if (cost >= least) continue;
          least = cost;
          best = i;
        }
        b.u[at(b, best, x, row)] = 1;
      }
    }
  }
}

void ReferenceSolver::run(std::size_t iterations) {
  for (std::size_t k = 0; k < iterations; ++k) {
    dualLength();
    exchangeDual();
    sumLabels();
    if (problem_.accelerate) {
      exactShares();
    } else {
      dualCoupling();
      dualPrior();
      primalShares();
    }
    primalLabeling();
    exchangeLabeling();
  }
}

double ReferenceSolver::forwardX(const ReferenceBandState& b, std::size_t i, std::size_t x,
                                 std::size_t row) const {
  if (x + 1 == problem_.w) return 0;
  return b.u_bar[at(b, i, x + 1, row)] - b.u_bar[at(b, i, x, row)];
}

double ReferenceSolver::forwardY(const ReferenceBandState& b, std::size_t i, std::size_t x,
                                 std::size_t row) const {
  if (b.ymin + row + 1 == problem_.h) return 0;
  return b.u_bar[at(b, i, x, row + 1)] - b.u_bar[at(b, i, x, row)];
}

double ReferenceSolver::divergence(const ReferenceBandState& b, std::size_t i, std::size_t x,
                                   std::size_t row) const {
  double d = 0;
  if (x + 1 < problem_.w) d += b.px[at(b, i, x, row + 1)];
  if (x > 0) d -= b.px[at(b, i, x - 1, row + 1)];
  if (b.ymin + row + 1 < problem_.h) d += b.py[at(b, i, x, row + 1)];
  if (b.ymin + row > 0) d -= b.py[at(b, i, x, row)];
  return d;
}

double ReferenceSolver::radius(std::size_t pixel) const {
  const double g = problem_.weight.empty() ? 1 : problem_.weight[pixel];
  if (problem_.lambda == 0) return 0;
  if (problem_.lambda >= FLT_MAX || g >= FLT_MAX) return FLT_MAX;
  return g * problem_.lambda / 2;
}

void ReferenceSolver::dualLength() {
  const double step = 1 / problem_.dt_multiplier / 2;
  for (ReferenceBandState& b : bands) {
    for (std::size_t i = 0; i < problem_.n; ++i) {
      for (std::size_t row = 0; row < b.rows; ++row) {
        for (std::size_t x = 0; x < problem_.w; ++x) {
          const std::size_t k = at(b, i, x, row + 1);
          const ReferencePoint moved = {b.px[k] + step * forwardX(b, i, x, row),
                                        b.py[k] + step * forwardY(b, i, x, row)};
          const ReferencePoint q = referenceDisc(moved, radius((b.ymin + row) * problem_.w + x));
          b.px[k] = q.x;
          b.py[k] = q.y;
        }
      }
    }
  }
}

void ReferenceSolver::exchangeDual() {
  for (std::size_t d = 1; d < bands.size(); ++d) {
    const ReferenceBandState& above = bands[d - 1];
    const std::size_t row = problem_.bands[d].copy_engine_p ? above.rows - 1 : above.rows;
    for (std::size_t i = 0; i < problem_.n; ++i) {
      for (std::size_t x = 0; x < problem_.w; ++x) {
        bands[d].px[at(bands[d], i, x, 0)] = above.px[at(above, i, x, row)];
        bands[d].py[at(bands[d], i, x, 0)] = above.py[at(above, i, x, row)];
      }
    }
  }
}

void ReferenceSolver::exchangeLabeling() {
  for (std::size_t d = 0; d + 1 < bands.size(); ++d) {
    const ReferenceBandState& below = bands[d + 1];
    ReferenceBandState& b = bands[d];
    const std::size_t row = problem_.bands[d].copy_engine_u ? b.rows - 1 : b.rows;
    for (std::size_t i = 0; i < problem_.n; ++i) {
      for (std::size_t x = 0; x < problem_.w; ++x) {
        b.u_bar[at(b, i, x, row)] = below.u_bar[at(below, i, x, 0)];
      }
    }
  }
}

void ReferenceSolver::sumLabels() {
  std::fill(sum_u.begin(), sum_u.end(), 0.0);
  for (const ReferenceBandState& b : bands) {
    for (std::size_t i = 0; i < problem_.n; ++i) {
      for (std::size_t k = 0; k < b.rows * problem_.w; ++k) sum_u[i] += b.u_bar[at(b, i, 0, 0) + k];
    }
  }
}

void ReferenceSolver::dualCoupling() {
  for (std::size_t i = 0; i < problem_.n; ++i) {
    gamma[i] += (a_bar[i] - sum_u[i] / pixels()) / (2 * problem_.dt_multiplier);
  }
}

void ReferenceSolver::dualPrior() {
  for (std::size_t i = 0; i < problem_.n; ++i) {
    if (i != problem_.ind_bgr) dualPriorOf(i);
  }
}

void ReferenceSolver::dualPriorOf(std::size_t i) {
  const double dt = 1 / problem_.dt_multiplier;
  const double B = 1 - a_bar[problem_.ind_bgr];
  const double r = problem_.ratios[i];
  ReferencePoint q = {alpha[i], beta[i]};
  if (problem_.kind_prior == 1) {
    q = referenceIntervalCone({q.x + dt * a_bar[i], q.y - dt * B}, problem_.mins[i],
                              problem_.maxs[i]);
  } else if (problem_.kind_prior == 2 && problem_.mu > 0) {
    q.x += dt / (1 + r) * (a_bar[i] - r * B);
  } else if (problem_.kind_prior == 3) {
    const double step = dt / (1 + r);
    q = referenceParabola({q.x + step * (a_bar[i] - r * B), q.y - step * B},
                          parabolaOf(problem_.mu, problem_.eps, problem_.sigmas[i], pixels()));
  }
  alpha[i] = q.x;
  beta[i] = q.y;
}

// A foreground share after its gradient step.
double ReferenceSolver::steppedShare(std::size_t i) const {
  const double N = pixels(), dt = problem_.dt_multiplier;
  switch (problem_.kind_prior) {
    case 1:
    case 3:
      return a[i] - dt / (N + N) * (N * gamma[i] + N * alpha[i]);
    case 2:
      return a[i] - dt / (N + problem_.mu) * (N * gamma[i] + problem_.mu * alpha[i]);
    default:
      return a[i] - dt * gamma[i];
  }
}

// The background's share after its step: each foreground label adds its row's coefficient.
double ReferenceSolver::steppedBackground() const {
  const double N = pixels();
  const std::size_t b = problem_.ind_bgr;
  double slope = N * gamma[b];
  double scale = N;
  for (std::size_t j = 0; j < problem_.n; ++j) {
    if (j == b) continue;
    const double r = problem_.ratios[j];
    if (problem_.kind_prior == 1) {
      slope += N * beta[j];
      scale += N;
    } else if (problem_.kind_prior == 2) {
      slope += problem_.mu * r * alpha[j];
      scale += problem_.mu * r;
    } else if (problem_.kind_prior == 3) {
      slope += N * (r * alpha[j] + beta[j]);
      scale += N * (r + 1);
    }
  }
  const double tau = problem_.dt_multiplier / scale;
  const double stepped = a[b] - tau * slope;
  if (problem_.kind_prior != 3) return stepped;
  return referenceBarrierProx(stepped, problem_.eps * tau * static_cast<double>(problem_.n - 1));
}

void ReferenceSolver::primalShares() {
  for (std::size_t i = 0; i < problem_.n; ++i) {
    const double fresh = i == problem_.ind_bgr ? steppedBackground() : steppedShare(i);
    a_bar[i] = 2 * fresh - a[i];
    a[i] = fresh;
  }
}

void ReferenceSolver::exactShares() {
  const double step = 4 / problem_.dt_multiplier;
  std::vector<double> q(problem_.n);
  for (std::size_t i = 0; i < problem_.n; ++i) q[i] = sum_u[i] / pixels() - gamma[i] / step;
  a = a_bar = referenceExactShares(problem_, q, step);
  for (std::size_t i = 0; i < problem_.n; ++i) {
    gamma[i] = step * (a[i] - q[i]);
    if (i == problem_.ind_bgr || problem_.kind_prior != 3) continue;
    alpha[i] = -gamma[i];
    const double d = parabolaOf(problem_.mu, problem_.eps, problem_.sigmas[i], pixels());
    beta[i] = d > 0 ? alpha[i] * alpha[i] / (4 * d) : 0;
  }
}

void ReferenceSolver::primalLabeling() {
  for (ReferenceBandState& b : bands) {
    for (std::size_t row = 0; row < b.rows; ++row) {
      for (std::size_t x = 0; x < problem_.w; ++x) primalPixel(b, x, row);
    }
  }
}

void ReferenceSolver::primalPixel(ReferenceBandState& b, std::size_t x, std::size_t row) {
  const double tau = problem_.dt_multiplier / (problem_.accelerate ? 4 : 5);
  const std::size_t plane = problem_.w * problem_.h;
  std::vector<double> v(problem_.n);
  for (std::size_t i = 0; i < problem_.n; ++i) {
    const double cost = problem_.rho[i * plane + (b.ymin + row) * problem_.w + x];
    if (cost >= FLT_MAX) {
      v[i] = 0;
    } else if (cost <= -FLT_MAX) {
      v[i] = 1;
    } else {
      v[i] = b.u[at(b, i, x, row)] + tau * (divergence(b, i, x, row) + gamma[i] - cost);
    }
  }
  referenceSimplex(v);
  for (std::size_t i = 0; i < problem_.n; ++i) {
    const std::size_t k = at(b, i, x, row);
    b.u_bar[k] = 2 * v[i] - b.u[k];
    b.u[k] = v[i];
  }
}

std::vector<double> ReferenceSolver::gather(std::vector<double> ReferenceBandState::*field,
                                            std::size_t firstRow) const {
  std::vector<double> whole;
  whole.reserve(problem_.w * problem_.h * problem_.n);
  for (std::size_t i = 0; i < problem_.n; ++i) {
    for (const ReferenceBandState& b : bands) {
      const auto first = (b.*field).begin() + static_cast<std::ptrdiff_t>(at(b, i, 0, firstRow));
      whole.insert(whole.end(), first, first + static_cast<std::ptrdiff_t>(b.rows * problem_.w));
    }
  }
  return whole;
}

}  // namespace namespace_ratseg
