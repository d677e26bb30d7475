#include "algorithms/rat_segments/alg/certificate/certificate.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>

#include "algorithms/rat_segments/alg/certificate/certificate_kernels.h"
#include "algorithms/rat_segments/alg/params.h"

namespace namespace_ratseg {

namespace {

using Values = std::vector<double>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kMax = FLT_MAX;

bool isUpperBound(const SharePrior& p) { return p.kind == Params::kind_prior_upperBound; }

// True if label i's share of the foreground must be its ratio.
bool isStrict(const SharePrior& p, std::size_t i) {
  if (p.kind == Params::kind_prior_lowerBound) return p.mu > 0.0;
  if (!isUpperBound(p) || p.mu == 0.0) return false;
  return p.mu < 0.0 || p.mu >= kMax || p.sigmas[i] == 0.0 || p.eps == 0.0;
}

// The allowed shares of label i in the foreground.
struct Range {
  double lo = 0.0, hi = 1.0;
};
Range rangeOf(const SharePrior& p, std::size_t i) {
  if (isStrict(p, i)) return {p.ratios[i], p.ratios[i]};
  if (p.kind == Params::kind_prior_interval) return {p.mins[i], p.maxs[i]};
  return {};
}

template <class Body>
void forEachForeground(const SharePrior& p, Body&& body) {
  for (std::size_t i = 0; i < p.n; ++i) {
    if (i != p.background) body(i);
  }
}

double barrierOf(const SharePrior& p) {
  return isUpperBound(p) ? p.eps * static_cast<double>(p.n - 1) : 0.0;
}

// The part of the prior's energy that is not a hard constraint:
//   mu^2 / (4 eps) sum_i (a_i - r_i B)^2 / (sigma_i^2 B) + eps (n-1) / B
double softEnergy(const SharePrior& p, const Values& a) {
  if (!isUpperBound(p)) return 0.0;
  const double B = 1.0 - a[p.background];
  double energy = 0.0;
  if (const double barrier = barrierOf(p); barrier > 0.0)
    energy = B > 0.0 ? barrier / B : kInfinity;
  forEachForeground(p, [&](std::size_t i) {
    if (isStrict(p, i) || p.mu == 0.0) return;
    const double z = (a[i] - p.ratios[i] * B) / p.sigmas[i];
    if (z != 0.0) energy += B > 0.0 ? p.mu * p.mu / (4.0 * p.eps) * z * z / B : kInfinity;
  });
  return energy;
}

bool holdsConstraints(const SharePrior& p, const Values& a, double tolerance) {
  const double B = 1.0 - a[p.background];
  bool holds = true;
  forEachForeground(p, [&](std::size_t i) {
    const Range range = rangeOf(p, i);
    holds = holds && a[i] >= range.lo * B - tolerance && a[i] <= range.hi * B + tolerance;
  });
  return holds;
}

// Sum over the foreground labels of q_i + shift, each put into its range.
double shiftedSum(const SharePrior& p, const Values& q, double shift) {
  double sum = 0.0;
  forEachForeground(p, [&](std::size_t i) {
    const Range range = rangeOf(p, i);
    sum += std::clamp(q[i] + shift, range.lo, range.hi);
  });
  return sum;
}

// Shares near a, with the same background, that meet the hard constraints. Empty when there are
// none. Ratios are in single precision: that their sum misses 1 by so much is overlooked.
Values allowedShares(const SharePrior& p, Values a) {
  constexpr double kRatioRounding = 1e-5;
  const double B = 1.0 - a[p.background];
  if (B <= 0.0) return a;
  for (double& share : a) share /= B;
  double low = -2.0;
  double high = 2.0;
  if (shiftedSum(p, a, low) > 1.0 + kRatioRounding) return {};
  if (shiftedSum(p, a, high) < 1.0 - kRatioRounding) return {};
  for (int k = 0; k < 60; ++k) {
    const double middle = (low + high) / 2.0;
    (shiftedSum(p, a, middle) > 1.0 ? high : low) = middle;
  }
  forEachForeground(p, [&](std::size_t i) {
    const Range range = rangeOf(p, i);
    a[i] = std::clamp(a[i] + low, range.lo, range.hi) * B;
  });
  a[p.background] = 1.0 - B;
  return a;
}

struct Energy {
  double value = kInfinity;
  double size = kInfinity;  // sum of the magnitudes of its terms
};

// The relaxed labeling's energy; with hard constraints, of (1 - t) u + t c for the least t with
// which labelings c of one label everywhere bring the shares to where they may be.
Energy relaxedEnergy(const SharePrior& p, const Values& sums, const Values& shares) {
  if (sums[kUnallowed] > 0.0) return {};
  Values target = shares;
  if (!holdsConstraints(p, shares, 0.0)) target = allowedShares(p, shares);
  if (target.empty()) return {};

  double t = sums[kLength] < kInfinity ? 0.0 : 1.0;
  for (std::size_t i = 0; i < p.n; ++i) {
    if (target[i] < shares[i]) t = std::max(t, 1.0 - target[i] / shares[i]);
  }
  if (t > 0.0 && sums[kSpecial] > 0.0) return {};
  const double prior = softEnergy(p, target);
  const double kept = 1.0 - t;
  Energy energy = {prior, std::abs(prior)};
  if (kept > 0.0) {
    energy.value += kept * (sums[kData] + sums[kLength]);
    energy.size += kept * (sums[kDataSize] + sums[kLength]);
  }
  const double* costs = &sums[kCertificateTerms + 2 * p.n];
  for (std::size_t i = 0; t > 0.0 && i < p.n; ++i) {
    const double mixed = (target[i] - kept * shares[i]) * costs[i];
    energy.value += mixed;
    energy.size += std::abs(mixed);
  }
  return energy;
}

double labelingEnergyOf(const SharePrior& p, const Values& sums, const Values& shares) {
  if (sums[kHardUnallowed] > 0.0) return kInfinity;
  return sums[kHardData] + sums[kHardLength] + priorEnergy(p, shares);
}

double relativeGap(double energy, double bound, double size) {
  const double gap = energy - bound;
  if (gap <= 0.0) return 0.0;
  return size > 0.0 && size < kInfinity ? gap / size : kInfinity;
}

// The least beta that goes with alpha (docs/math.md, sections 5.3 and 5.5).
double minBeta(const SharePrior& p, std::size_t i, double alpha) {
  if (p.kind == Params::kind_prior_interval) return std::max(p.mins[i] * alpha, p.maxs[i] * alpha);
  if (isStrict(p, i)) return 0.0;
  return alpha != 0.0 ? p.sigmas[i] * p.sigmas[i] * p.pixels * p.eps / (p.mu * p.mu) * alpha * alpha
                      : 0.0;
}

// The costs per pixel that alpha_i and beta_i add: the factor of a_i, and that of -B.
struct Slopes {
  double share = 0.0, foreground = 0.0;
};
Slopes slopesOf(const SharePrior& p, const ShareDuals& duals, std::size_t i) {
  const double alpha = duals.alpha[i];
  switch (p.kind) {
    case Params::kind_prior_interval:
      return {alpha, std::max(duals.beta[i], minBeta(p, i, alpha))};
    case Params::kind_prior_lowerBound: {
      const double scaled = p.mu > 0.0 ? p.mu / p.pixels * alpha : 0.0;
      return {scaled, scaled * p.ratios[i]};
    }
    case Params::kind_prior_upperBound: {
      const double used = p.mu != 0.0 ? alpha : 0.0;
      return {used, used * p.ratios[i] + std::max(duals.beta[i], minBeta(p, i, used))};
    }
    default:
      return {};
  }
}

// min over 0 <= B <= 1 of slope B + barrier / B
double minOverForeground(double slope, double barrier) {
  if (!(barrier > 0.0)) return std::min(slope, 0.0);
  return slope > barrier ? 2.0 * std::sqrt(slope * barrier) : slope + barrier;
}

}  // namespace

double priorEnergy(const SharePrior& prior, const Values& shares) {
  constexpr double kRounding = 1e-9;
  return holdsConstraints(prior, shares, kRounding) ? softEnergy(prior, shares) : kInfinity;
}

double shareBound(const SharePrior& prior, const ShareDuals& duals) {
  const double background = duals.gamma[prior.background];
  if (prior.n == 1) return prior.pixels * background;
  double minShareCost = kInfinity;  // per share of the image, over the foreground labels
  double foreground = 0.0;
  forEachForeground(prior, [&](std::size_t i) {
    const Slopes slopes = slopesOf(prior, duals, i);
    minShareCost = std::min(minShareCost, duals.gamma[i] + slopes.share);
    foreground += slopes.foreground;
  });
  const double slope = prior.pixels * (minShareCost - background - foreground);
  return prior.pixels * background + minOverForeground(slope, barrierOf(prior));
}

Certificate certificate(const SharePrior& prior, const Values& sums, const ShareDuals& duals) {
  constexpr double kMaxSlope = 1.4142135623730951;  // of one label of a labeling
  const std::size_t n = prior.n;
  Values shares(n);
  Values labelingShares(n);
  for (std::size_t i = 0; i < n; ++i) {
    shares[i] = sums[kCertificateTerms + i] / prior.pixels;
    labelingShares[i] = sums[kCertificateTerms + n + i] / prior.pixels;
  }
  const Energy relaxed = relaxedEnergy(prior, sums, shares);
  Certificate c;
  c.energy = relaxed.value;
  c.labelingEnergy = labelingEnergyOf(prior, sums, labelingShares);
  c.bound = sums[kReduced] + shareBound(prior, duals) - kMaxSlope * sums[kExcess];
  c.gap = relativeGap(c.energy, c.bound, relaxed.size);
  c.labelingGap = relativeGap(c.labelingEnergy, c.bound, relaxed.size);
  return c;
}

}  // namespace namespace_ratseg
