#include "reference/reference_shares.h"

#include <cfloat>
#include <cstddef>

namespace namespace_ratseg {

namespace {

// One foreground label's term k (a - r B)^2 / B of prior(a) / N; a strict label has no k.
struct Term {
  bool strict = false;
  double k = 0;
};

Term termOf(const ReferenceProblem& p, std::size_t i) {
  if (p.mu == 0) return {};
  const double c = 4 * p.eps * p.sigmas[i] * p.sigmas[i] * static_cast<double>(p.w * p.h);
  if (p.mu < 0 || p.mu >= FLT_MAX || c == 0) return {true, 0};
  return {false, p.mu * p.mu / c};
}

// The best a_i for a given B: where k (a - r B)^2 / B + step/2 (a - q)^2 is least.
double bestShare(const Term& t, double r, double q, double step, double B) {
  if (t.strict) return r * B;
  return (t.k * r + step / 2 * q) / (t.k / B + step / 2);
}

// The slope by B, the other shares being the best for it: with them held fast, save strict ones.
double slopeByForeground(const ReferenceProblem& p, const std::vector<double>& q, double step,
                         double B) {
  const double barrier = p.eps * static_cast<double>(p.n - 1) / static_cast<double>(p.w * p.h);
  double slope = -barrier / (B * B) - step * (1 - B - q[p.ind_bgr]);
  for (std::size_t i = 0; i < p.n; ++i) {
    if (i == p.ind_bgr) continue;
    const Term t = termOf(p, i);
    const double r = p.ratios[i];
    const double z = step / 2 * (q[i] - r * B) / (t.k + step / 2 * B);  // (best a - r B) / B
    slope += t.strict ? step * r * (r * B - q[i]) : -t.k * z * (2 * r + z);
  }
  return slope;
}

}  // namespace

std::vector<double> referenceExactShares(const ReferenceProblem& p, const std::vector<double>& q,
                                         double step) {
  if (p.kind_prior != 3) return q;
  double lo = 0, hi = 1;
  while (slopeByForeground(p, q, step, hi) < 0) hi *= 2;
  for (int k = 0; k < 200; ++k) {
    const double middle = (lo + hi) / 2;
    (slopeByForeground(p, q, step, middle) < 0 ? lo : hi) = middle;
  }
  std::vector<double> a(p.n);
  for (std::size_t i = 0; i < p.n; ++i) {
    a[i] = i == p.ind_bgr ? 1 - hi : bestShare(termOf(p, i), p.ratios[i], q[i], step, hi);
  }
  return a;
}

}  // namespace namespace_ratseg
