#include "reference/reference_certificate.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <limits>

#include "reference/reference_energy.h"

namespace namespace_ratseg {

namespace {

using Values = std::vector<double>;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

bool isForbidden(double cost) { return cost >= FLT_MAX; }
bool isForced(double cost) { return cost <= -FLT_MAX; }

// The costs of one pixel's labels as section 11.1 has them: infinite where a label is not allowed.
Values effectiveCosts(const ReferenceProblem& p, std::size_t pixel) {
  const std::size_t plane = p.w * p.h;
  bool anyForced = false, allForbidden = true;
  for (std::size_t i = 0; i < p.n; ++i) {
    anyForced = anyForced || isForced(p.rho[i * plane + pixel]);
    allForbidden = allForbidden && isForbidden(p.rho[i * plane + pixel]);
  }
  Values costs(p.n);
  for (std::size_t i = 0; i < p.n; ++i) {
    const double rho = p.rho[i * plane + pixel];
    costs[i] = rho;
    if (anyForced) {
      costs[i] = isForced(rho) ? 0 : kInfinity;
    } else if (isForbidden(rho)) {
      costs[i] = allForbidden ? 0 : kInfinity;
    }
  }
  return costs;
}

bool hasSpecialCosts(const ReferenceProblem& p) {
  return std::any_of(p.rho.begin(), p.rho.end(),
                     [](double x) { return isForbidden(x) || isForced(x); });
}

struct DataEnergy {
  double value = 0, size = 0;
};

DataEnergy dataEnergy(const ReferenceProblem& p, const Values& u) {
  const std::size_t plane = p.w * p.h;
  DataEnergy sum;
  for (std::size_t k = 0; k < plane; ++k) {
    const Values costs = effectiveCosts(p, k);
    for (std::size_t i = 0; i < p.n; ++i) {
      if (u[i * plane + k] == 0) continue;
      sum.value += costs[i] * u[i * plane + k];
      sum.size += std::abs(costs[i]) * u[i * plane + k];
    }
  }
  return sum;
}

Values normalised(const ReferenceProblem& p, Values u) {
  const std::size_t plane = p.w * p.h;
  for (std::size_t k = 0; k < plane; ++k) {
    double sum = 0;
    for (std::size_t i = 0; i < p.n; ++i) sum += u[i * plane + k];
    for (std::size_t i = 0; i < p.n; ++i) u[i * plane + k] /= sum;
  }
  return u;
}

bool isStrict(const ReferenceProblem& p, std::size_t i) {
  if (p.kind_prior == 2) return p.mu > 0;
  return p.kind_prior == 3 && p.mu != 0 &&
         (p.mu < 0 || p.mu >= FLT_MAX || p.sigmas[i] * p.eps == 0);
}

double least(const ReferenceProblem& p, std::size_t i) {
  return isStrict(p, i) ? p.ratios[i] : p.kind_prior == 1 ? p.mins[i] : 0;
}
double greatest(const ReferenceProblem& p, std::size_t i) {
  return isStrict(p, i) ? p.ratios[i] : p.kind_prior == 1 ? p.maxs[i] : 1;
}

// The foreground's parts q, moved by one common shift within their limits until they sum to 1.
Values shiftedParts(const ReferenceProblem& p, const Values& q, double shift) {
  Values moved(p.n);
  for (std::size_t i = 0; i < p.n; ++i) {
    if (i != p.ind_bgr) moved[i] = std::clamp(q[i] + shift, least(p, i), greatest(p, i));
  }
  return moved;
}

double total(const Values& v) {
  double sum = 0;
  for (double x : v) sum += x;
  return sum;
}

Values allowedShares(const ReferenceProblem& p, const Values& a) {
  const double B = 1 - a[p.ind_bgr];
  if (B <= 0) return a;
  Values q(p.n);
  for (std::size_t i = 0; i < p.n; ++i) q[i] = a[i] / B;
  if (total(shiftedParts(p, q, -2)) > 1 + 1e-5 || total(shiftedParts(p, q, 2)) < 1 - 1e-5)
    return {};
  double lo = -2, hi = 2;
  while (hi - lo > 1e-15) {
    const double mid = (lo + hi) / 2;
    if (mid == lo || mid == hi) break;
    (total(shiftedParts(p, q, mid)) <= 1 ? lo : hi) = mid;
  }
  Values b = shiftedParts(p, q, lo);
  for (double& x : b) x *= B;
  b[p.ind_bgr] = a[p.ind_bgr];
  return b;
}

// The least of slope B + barrier / B over 0 <= B <= 1, by closing in on it.
double leastOfForeground(double slope, double barrier) {
  if (barrier <= 0) return std::min(slope, 0.0);
  const auto value = [&](double B) { return slope * B + barrier / B; };
  double lo = 0, hi = 1;
  for (int k = 0; k < 200; ++k) {
    const double left = lo + (hi - lo) / 3, right = hi - (hi - lo) / 3;
    (value(left) < value(right) ? hi : lo) = value(left) < value(right) ? right : left;
  }
  return std::min(value((lo + hi) / 2), value(1));
}

// K of the shares that have B of the foreground, all of it at label j, and the background's rest.
double priorDual(const ReferenceProblem& p, const ReferenceState& s, std::size_t j) {
  const double N = static_cast<double>(p.w * p.h);
  double value = N * s.gamma[j];
  for (std::size_t i = 0; i < p.n; ++i) {
    if (i == p.ind_bgr) continue;
    const double share = i == j ? 1 : 0;
    const double alpha = s.alpha[i];
    double beta = s.beta[i];
    if (p.kind_prior == 1) {
      beta = std::max({beta, p.mins[i] * alpha, p.maxs[i] * alpha});
      value += N * (alpha * share - beta);
    } else if (p.kind_prior == 2 && p.mu > 0) {
      value += p.mu * alpha * (share - p.ratios[i]);
    } else if (p.kind_prior == 3) {
      const double used = p.mu == 0 ? 0 : alpha;
      double edge = 0;
      if (!isStrict(p, i) && used != 0)
        edge = p.sigmas[i] * p.sigmas[i] * N * p.eps / (p.mu * p.mu) * used * used;
      value += N * (used * (share - p.ratios[i]) - std::max(beta, edge));
    }
  }
  return value;
}

double shareBound(const ReferenceProblem& p, const ReferenceState& s) {
  const double N = static_cast<double>(p.w * p.h);
  const double background = N * s.gamma[p.ind_bgr];
  double best = kInfinity;
  const double barrier = p.kind_prior == 3 ? p.eps * static_cast<double>(p.n - 1) : 0;
  if (p.n == 1) return background;
  for (std::size_t j = 0; j < p.n; ++j) {
    if (j == p.ind_bgr) continue;
    best = std::min(best, background + leastOfForeground(priorDual(p, s, j) - background, barrier));
  }
  return best;
}

// sum over the pixels of the least reduced cost.
double pixelBound(const ReferenceProblem& p, const ReferenceState& s) {
  const std::size_t plane = p.w * p.h;
  double sum = 0;
  for (std::size_t k = 0; k < plane; ++k) {
    const std::size_t x = k % p.w, y = k / p.w;
    const Values costs = effectiveCosts(p, k);
    double best = kInfinity;
    for (std::size_t i = 0; i < p.n; ++i) {
      const std::size_t at = i * plane + k;
      double divergence = 0;
      if (x + 1 < p.w) divergence += s.px[at];
      if (x > 0) divergence -= s.px[at - 1];
      if (y + 1 < p.h) divergence += s.py[at];
      if (y > 0) divergence -= s.py[at - p.w];
      best = std::min(best, costs[i] - divergence - s.gamma[i]);
    }
    sum += best;
  }
  return sum;
}

// How far p is outside its discs: sum of |p_i| - g lambda/2 where that is positive.
double excess(const ReferenceProblem& p, const ReferenceState& s) {
  const std::size_t plane = p.w * p.h;
  double sum = 0;
  for (std::size_t k = 0; k < s.px.size(); ++k) {
    const double g = p.weight.empty() ? 1 : p.weight[k % plane];
    if (p.lambda >= FLT_MAX || (g >= FLT_MAX && p.lambda > 0)) continue;
    const double R = p.lambda == 0 ? 0 : g * p.lambda / 2;
    sum += std::max(std::hypot(s.px[k], s.py[k]) - R, 0.0);
  }
  return sum;
}

}  // namespace

ReferenceState stateOf(const ReferenceSolver& solver) {
  return {solver.u(), solver.px(), solver.py(), solver.gamma, solver.alpha, solver.beta};
}

Values referenceHardLabeling(const ReferenceProblem& p, const Values& u) {
  const std::size_t plane = p.w * p.h;
  Values hard(u.size());
  for (std::size_t k = 0; k < plane; ++k) {
    std::size_t best = 0;
    double value = 0;
    for (std::size_t i = 0; i < p.n; ++i) {
      if (u[i * plane + k] <= value) continue;
      value = u[i * plane + k];
      best = i;
    }
    hard[best * plane + k] = 1;
  }
  return hard;
}

Values referenceFeasible(const ReferenceProblem& p, const Values& u) {
  const std::size_t plane = p.w * p.h;
  Values v = normalised(p, u);
  const Values a = referenceShares(p, v);
  const bool holds = referencePriorEnergy(p, a) < kInfinity || p.kind_prior == 0;
  bool strict = p.kind_prior == 1;
  for (std::size_t i = 0; i < p.n; ++i) strict = strict || (i != p.ind_bgr && isStrict(p, i));
  const Values b = strict && !holds ? allowedShares(p, a) : a;
  if (b.empty()) return {};
  double t = referenceLengthEnergy(p, v) < kInfinity ? 0 : 1;
  for (std::size_t i = 0; i < p.n; ++i) {
    if (b[i] < a[i]) t = std::max(t, 1 - b[i] / a[i]);
  }
  if (t > 0 && hasSpecialCosts(p)) return {};
  for (std::size_t i = 0; i < p.n; ++i) {
    for (std::size_t k = i * plane; k < (i + 1) * plane; ++k)
      v[k] = t == 1 ? b[i] : (1 - t) * v[k] + (b[i] - (1 - t) * a[i]);
  }
  return v;
}

ReferenceCertificate referenceCertificate(const ReferenceProblem& p, const ReferenceState& s) {
  ReferenceCertificate c;
  c.bound = pixelBound(p, s) + shareBound(p, s) - std::sqrt(2.0) * excess(p, s);
  const Values hard = referenceHardLabeling(p, s.u);
  c.labelingEnergy = dataEnergy(p, hard).value + referenceLengthEnergy(p, hard) +
                     referencePriorEnergy(p, referenceShares(p, hard), 1e-9);
  c.energy = c.size = kInfinity;
  const Values feasible = referenceFeasible(p, s.u);
  if (feasible.empty()) return c;
  const DataEnergy data = dataEnergy(p, feasible);
  const double length = referenceLengthEnergy(p, feasible);
  const double prior = referencePriorEnergy(p, referenceShares(p, feasible), 1e-5);
  c.energy = data.value + length + prior;
  c.size = data.size + length + std::abs(prior);
  return c;
}

}  // namespace namespace_ratseg
