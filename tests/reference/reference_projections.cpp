#include "reference/reference_projections.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>

namespace namespace_ratseg {

namespace {

double squaredDistance(ReferencePoint a, ReferencePoint b) {
  return (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y);
}

// The root of a convex increasing function, approached from above: Newton's steps then fall
// monotonically and never pass the root. They end when rounding stops the fall.
template <class Function, class Derivative>
double rootFromAbove(double start, Function f, Derivative df) {
  double root = start;
  for (int i = 0; i < 1000; ++i) {
    const double next = root - f(root) / df(root);
    if (!(next < root)) break;
    root = next;
  }
  return root;
}

// The foot of q on the ray {t direction, t >= 0}.
ReferencePoint onRay(ReferencePoint q, ReferencePoint direction) {
  const double dot = q.x * direction.x + q.y * direction.y;
  const double t = dot / (direction.x * direction.x + direction.y * direction.y);
  return t > 0 ? ReferencePoint{t * direction.x, t * direction.y} : ReferencePoint{};
}

}  // namespace

ReferencePoint referenceDisc(ReferencePoint q, double r) {
  if (r >= FLT_MAX) return q;
  if (r == 0) return {};
  const double shrink = std::max(std::hypot(q.x, q.y) / r, 1.0);
  return {q.x / shrink, q.y / shrink};
}

void referenceSimplex(std::vector<double>& v) {
  for (std::size_t pass = 0; pass < v.size(); ++pass) {
    const auto active = [pass](double value) { return pass == 0 || value > 0; };
    double sum = 0;
    std::size_t count = 0;
    for (double value : v) {
      if (!active(value)) continue;
      sum += value;
      ++count;
    }
    const double mean = count > 0 ? (sum - 1) / static_cast<double>(count) : 0;
    bool clamped = false;
    for (double& value : v) {
      if (!active(value)) continue;
      value -= mean;
      if (value >= 0) continue;
      value = 0;
      clamped = true;
    }
    if (!clamped) return;
  }
}

ReferencePoint referenceParabola(ReferencePoint q, double d) {
  if (d >= FLT_MAX) return {q.x, std::max(q.y, 0.0)};
  if (d < 1e-12) return {0, std::max(q.y, 0.0)};
  const double magnitude = std::abs(q.x);
  if (q.y >= magnitude * (magnitude / (4 * d))) return q;
  // In units of 2 d the foot t of the normal solves t^3 + k t = X, which is convex for t >= 0; a
  // point outside the region lies right of its foot.
  const double X = magnitude / d;
  const double k = 2 - q.y / d;
  const double t = rootFromAbove(
      magnitude / (2 * d), [&](double s) { return s * s * s + k * s - X; },
      [&](double s) { return 3 * s * s + k; });
  return {std::copysign(2 * d * t, q.x), d * t * t};
}

ReferencePoint referenceIntervalCone(ReferencePoint q, double lo, double hi) {
  if (q.y >= lo * q.x && q.y >= hi * q.x) return q;
  const ReferencePoint right = onRay(q, {1, hi});
  const ReferencePoint left = onRay(q, {-1, -lo});
  return squaredDistance(q, right) <= squaredDistance(q, left) ? right : left;
}

double referenceBarrierProx(double at, double E) {
  const double s = 1 - at;  // z = 1 - a minimises (z - s)^2 / 2 + E / z: z^2 (z - s) = E
  if (E == 0) return 1 - std::max(s, 0.0);
  const double z = rootFromAbove(
      std::max(s, 0.0) + std::cbrt(E), [&](double t) { return t * t * (t - s) - E; },
      [&](double t) { return t * (3 * t - 2 * s); });
  return 1 - z;
}

}  // namespace namespace_ratseg
