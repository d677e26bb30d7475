#include "reference/reference_energy.h"

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <limits>

namespace namespace_ratseg {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

double indicator(bool inside) { return inside ? 0 : kInfinity; }

// mu^2 / (4 eps) (a - r B)^2 / (sigma^2 B), continued to B = 0 and to the limits of mu.
double upperBoundTerm(const ReferenceProblem& p, std::size_t i, double deviation, double B,
                      double tolerance) {
  if (p.mu == 0) return 0;
  const double c = p.sigmas[i] * p.sigmas[i] * p.eps;
  if (p.mu < 0 || p.mu >= FLT_MAX || c == 0) return indicator(std::abs(deviation) <= tolerance);
  if (B == 0) return indicator(deviation == 0);
  return p.mu * p.mu / 4 * deviation * deviation / (c * B);
}

double upperBoundEnergy(const ReferenceProblem& p, const std::vector<double>& a, double B,
                        double tolerance) {
  if (B < 0) return kInfinity;
  const double barrier = p.eps * static_cast<double>(p.n - 1);
  double energy = barrier > 0 ? barrier / B : 0;
  for (std::size_t i = 0; i < p.n; ++i) {
    if (i == p.ind_bgr) continue;
    energy += upperBoundTerm(p, i, a[i] - p.ratios[i] * B, B, tolerance);
  }
  return energy;
}

}  // namespace

std::vector<double> referenceShares(const ReferenceProblem& p, const std::vector<double>& u) {
  const std::size_t plane = p.w * p.h;
  std::vector<double> a(p.n);
  for (std::size_t i = 0; i < p.n; ++i) {
    for (std::size_t k = 0; k < plane; ++k) a[i] += u[i * plane + k];
    a[i] /= static_cast<double>(plane);
  }
  return a;
}

double referenceDataEnergy(const ReferenceProblem& p, const std::vector<double>& u) {
  double energy = 0;
  for (std::size_t k = 0; k < u.size(); ++k) {
    if (std::abs(p.rho[k]) < FLT_MAX) energy += p.rho[k] * u[k];
  }
  return energy;
}

double referenceLengthEnergy(const ReferenceProblem& p, const std::vector<double>& u) {
  if (p.lambda == 0) return 0;
  const std::size_t plane = p.w * p.h;
  double energy = 0;
  for (std::size_t k = 0; k < u.size(); ++k) {
    const std::size_t pixel = k % plane;
    const double dx = pixel % p.w + 1 < p.w ? u[k + 1] - u[k] : 0;
    const double dy = pixel + p.w < plane ? u[k + p.w] - u[k] : 0;
    const double weight = p.weight.empty() ? 1 : p.weight[pixel];
    const double slope = std::hypot(dx, dy);
    if (slope == 0) continue;
    if (p.lambda >= FLT_MAX || weight >= FLT_MAX) return kInfinity;
    energy += p.lambda / 2 * weight * slope;
  }
  return energy;
}

double referencePriorEnergy(const ReferenceProblem& p, const std::vector<double>& a,
                            double tolerance) {
  const double B = 1 - a[p.ind_bgr];
  if (p.kind_prior == 3) return upperBoundEnergy(p, a, B, tolerance);
  bool inside = true;
  for (std::size_t i = 0; i < p.n; ++i) {
    if (i == p.ind_bgr) continue;
    if (p.kind_prior == 1) {
      inside = inside && B >= -tolerance && a[i] >= p.mins[i] * B - tolerance &&
               a[i] <= p.maxs[i] * B + tolerance;
    } else if (p.kind_prior == 2 && p.mu > 0) {
      inside = inside && std::abs(a[i] - p.ratios[i] * B) <= tolerance;
    }
  }
  return indicator(inside);
}

double referenceEnergy(const ReferenceProblem& p, const std::vector<double>& u, double tolerance) {
  return referenceDataEnergy(p, u) + referenceLengthEnergy(p, u) +
         referencePriorEnergy(p, referenceShares(p, u), tolerance);
}

}  // namespace namespace_ratseg
