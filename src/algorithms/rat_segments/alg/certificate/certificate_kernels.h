#ifndef RATSEG_ALG_CERTIFICATE_CERTIFICATE_KERNELS_H
#define RATSEG_ALG_CERTIFICATE_CERTIFICATE_KERNELS_H

// The per-pixel arithmetic of the certificate (docs/math.md, section 11), shared by host and GPU
// launchers: what a tile of LANES adjacent pixels (x .. x + LANES - 1, y) of a band adds to the
// energies of the relaxed and of the hard labeling and to the lower bound. All in double precision.

#include <cfloat>
#include <cmath>
#include <cstddef>

#include "algorithms/rat_segments/alg/kernels/disc_radius_kernels.h"
#include "device/types.h"

// Before a loop whose steps do not depend on each other: the compiler need not check.
#if defined(__GNUC__) && !defined(__clang__) && !defined(__CUDACC__)
#define RATSEG_INDEPENDENT _Pragma("GCC ivdep")
#else
#define RATSEG_INDEPENDENT
#endif

namespace namespace_ratseg {

// One band, its arrays laid out as in labeling_kernels.h. Unlike the iteration, this
// also reads the halo row of u.
struct CertificateBand {
  const float* u = nullptr;
  const float2* p = nullptr;
  const float* rho = nullptr;
  const float* weight = nullptr;  // null = 1 everywhere
  const float* gamma = nullptr;   // n
  float lambda = 0.0f;
  std::size_t w = 0, h = 0, ymin = 0, ymax = 0, n = 0;
};

// The terms that are summed over the pixels. Behind them come three sums per label.
enum CertificateTerm {
  kReduced,    // min over the allowed labels of rho_i - div p_i - gamma_i
  kData,       // sum_i rho_i u_i
  kDataSize,   // sum_i |rho_i| u_i
  kLength,     // R sum_i |grad u_i|,  R = g lambda/2
  kExcess,     // sum_i max(|p_i| - R, 0), which rounding leaves, or a little more
  kUnallowed,  // sum of u_i over labels that are not allowed at the pixel
  kHardData,   // the same of the hard labeling
  kHardLength,
  kHardUnallowed,  // 1 where the hard labeling takes a label that is not allowed
  kSpecial,        // number of costs that forbid or force
  kCertificateTerms
};

// Sums of a band, of a part of one, or of all: the terms; per label the sum of u_i, the number of
// pixels of the hard labeling, and the sum of the finite rho_i.
RATSEG_HD constexpr std::size_t certificateSums(std::size_t n) { return kCertificateTerms + 3 * n; }

namespace tile {
inline namespace RATSEG_ISA {

// For the pixels from element `at` of each plane on: inverse[l] = 1 / sum_i u_i, by which the
// labeling is divided so that it is on the simplex to the last digit, and label[l], the one that
// the hard labeling takes.
template <int LANES>
RATSEG_HD inline void certificate_pixels(double* __restrict__ inverse, int* __restrict__ label,
                                         const CertificateBand& b, std::size_t at) {
  const std::size_t plane = b.w * (b.ymax - b.ymin + 1);
  double sum[LANES];
  float maxValue[LANES];
  for (int l = 0; l < LANES; ++l) {
    sum[l] = 0.0;
    maxValue[l] = 0.0f;
    label[l] = 0;
  }
  for (std::size_t i = 0; i < b.n; ++i) {
    const float* u = b.u + i * plane + at;
    const int number = static_cast<int>(i);
    RATSEG_INDEPENDENT
    for (int l = 0; l < LANES; ++l) sum[l] += static_cast<double>(u[l]);
    RATSEG_INDEPENDENT
    for (int l = 0; l < LANES; ++l) {
      const int taken = u[l] > maxValue[l] ? -1 : 0;
      label[l] = (number & taken) | (label[l] & ~taken);
    }
    RATSEG_INDEPENDENT
    for (int l = 0; l < LANES; ++l) maxValue[l] = u[l] > maxValue[l] ? u[l] : maxValue[l];
  }
  for (int l = 0; l < LANES; ++l) inverse[l] = sum[l] > 0.0 ? 1.0 / sum[l] : 0.0;
}

// sum_i |grad h_i| at a pixel of the hard labeling h: right and below say that the label changes to
// that side, same that both neighbours have the same one. The pixel's own label changes by 1 to
// each such side, the neighbours' labels likewise.
RATSEG_HD inline double hardSlopes(bool right, bool below, bool same) {
  constexpr double root = 1.4142135623730951;
  if (right && below) return root + (same ? root : 2.0);
  return right || below ? 2.0 : 0.0;
}

// The sums of one tile. Call add for each label in turn, then finish. hasLeft and hasRight tell
// whether there are pixels left and right of the tile. Elements left and right of it are read in
// any case; there always are some, if only of the row before or after.
template <int LANES>
class CertificateTile {
 public:
  // inverse and label: of the tile's pixels and the one right of them (anything where there is
  // none); the others: of the pixels below, where there are any.
  RATSEG_HD CertificateTile(const CertificateBand& b, std::size_t x, std::size_t y, bool hasLeft,
                            bool hasRight, const double* inverse, const double* inverseBelow,
                            const int* label, const int* labelBelow)
      : b_(b),
        x_(x),
        y_(y),
        hasLeft_(hasLeft),
        hasRight_(hasRight),
        hasAbove_(b.ymin + y != 0),
        hasBelow_(b.ymin + y + 1 < b.h),
        inverse_(inverse),
        inverseBelow_(inverseBelow),
        label_(label),
        labelBelow_(labelBelow) {
    for (int l = 0; l < LANES; ++l) {
      const float g = b.weight != nullptr ? b.weight[y * b.w + x + l] : 1.0f;
      radius_[l] = discRadius(g, b.lambda, HUGE_VAL);
      halfInverse_[l] = radius_[l] > 0.0 ? 0.5 / radius_[l] : 0.0;
      min_[l] = minForbidden_[l] = minForced_[l] = HUGE_VAL;
      data_[l] = size_[l] = slopes_[l] = excess_[l] = special_[l] = 0.0;
      finite_[l] = forbidden_[l] = 0.0;
    }
  }

  // share[l] = u_i, cost[l] = rho_i or 0 where that is not finite.
  RATSEG_HD void add(std::size_t i, double* __restrict__ share, double* __restrict__ cost) {
    addSlopes(i, share);
    double reduced[LANES];  // -div p_i - gamma_i
    findReduced(i, reduced);
    const std::size_t hb = b_.ymax - b_.ymin;
    const float* rho = b_.rho + i * b_.w * hb + y_ * b_.w + x_;
    int special = 0;
    for (int l = 0; l < LANES; ++l) special += fabsf(rho[l]) >= FLT_MAX ? 1 : 0;
    if (special > 0) {
      addAnyCosts(rho, reduced, share, cost);
    } else {
      addFiniteCosts(rho, reduced, share, cost);
    }
  }

  // terms[k * LANES + l] += term k of lane l.
  RATSEG_HD void finish(double* terms) const {
    const auto to = [terms](int term, int l) -> double& { return terms[term * LANES + l]; };
    for (int l = 0; l < LANES; ++l) {
      const bool forces = minForced_[l] < HUGE_VAL;
      const bool costs = !forces && min_[l] < HUGE_VAL;  // finite costs count
      const double free = costs ? min_[l] : minForbidden_[l];
      to(kReduced, l) += forces ? minForced_[l] : free;
      to(kData, l) += costs ? data_[l] : 0.0;
      to(kDataSize, l) += costs ? size_[l] : 0.0;
      to(kLength, l) += slopes_[l] > 0.0 ? radius_[l] * slopes_[l] : 0.0;
      to(kExcess, l) += excess_[l];
      to(kUnallowed, l) += forces ? finite_[l] + forbidden_[l] : (costs ? forbidden_[l] : 0.0);
      to(kSpecial, l) += special_[l];
      finishHard(terms, l, forces, costs);
    }
  }

 private:
  static constexpr int kLast = LANES - 1;

  static RATSEG_HD double lesser(double a, double b) { return b < a ? b : a; }

  // Differences across the image's border are 0.
  RATSEG_HD void addSlopes(std::size_t i, double* __restrict__ share) {
    const float* here = b_.u + i * b_.w * (b_.ymax - b_.ymin + 1) + y_ * b_.w + x_;
    const float* below = here + (hasBelow_ ? b_.w : 0);
    const double* inverseBelow = hasBelow_ ? inverseBelow_ : inverse_;
    double squares[LANES];  // |grad u_i|^2
    RATSEG_INDEPENDENT
    for (int l = 0; l < LANES; ++l) {
      const double u = static_cast<double>(here[l]) * inverse_[l];
      const double dx = static_cast<double>(here[l + 1]) * inverse_[l + 1] - u;
      const double dy = static_cast<double>(below[l]) * inverseBelow[l] - u;
      squares[l] = dx * dx + dy * dy;
      share[l] = u;
    }
    if (!hasRight_) {
      const double dy = static_cast<double>(below[kLast]) * inverseBelow[kLast] - share[kLast];
      squares[kLast] = dy * dy;
    }
    RATSEG_INDEPENDENT
    for (int l = 0; l < LANES; ++l) slopes_[l] += sqrt(squares[l]);
  }

  // Components across the image's border do not count.
  RATSEG_HD void findReduced(std::size_t i, double* __restrict__ reduced) {
    const std::size_t plane = b_.w * (b_.ymax - b_.ymin + 1);
    const float2* q = b_.p + i * plane + (y_ + 1) * b_.w + x_;
    const float2* left = q - 1;
    const float2* above = q - (hasAbove_ ? b_.w : 0);
    const double toBelow = hasBelow_ ? 1.0 : 0.0;
    const double toAbove = hasAbove_ ? 1.0 : 0.0;
    const double gamma = static_cast<double>(b_.gamma[i]);
    double vertical[LANES];
    RATSEG_INDEPENDENT
    for (int l = 0; l < LANES; ++l) {
      const double qx = static_cast<double>(q[l].x);
      const double qy = static_cast<double>(q[l].y);
      vertical[l] = toAbove * static_cast<double>(above[l].y) - toBelow * qy - gamma;
      reduced[l] = static_cast<double>(left[l].x) - qx + vertical[l];
      // |q| - R <= (|q|^2 - R^2) / (2R)
      const double over = qx * qx + qy * qy - radius_[l] * radius_[l];
      excess_[l] += (over > 0.0 ? over : 0.0) * halfInverse_[l];
    }
    const double first = hasLeft_ ? static_cast<double>(left[0].x) : 0.0;
    const double last = hasRight_ ? static_cast<double>(q[kLast].x) : 0.0;
    if (LANES == 1) {
      reduced[0] = first - last + vertical[0];
      return;
    }
    if (!hasLeft_) reduced[0] = vertical[0] - static_cast<double>(q[0].x);
    if (!hasRight_) reduced[kLast] = static_cast<double>(left[kLast].x) + vertical[kLast];
  }

  RATSEG_HD void addFiniteCosts(const float* __restrict__ rho, const double* __restrict__ reduced,
                                const double* __restrict__ share, double* __restrict__ cost) {
    RATSEG_INDEPENDENT
    for (int l = 0; l < LANES; ++l) {
      const double c = static_cast<double>(rho[l]);
      min_[l] = lesser(min_[l], c + reduced[l]);
      data_[l] += c * share[l];
      size_[l] += fabs(c) * share[l];
      finite_[l] += share[l];
      cost[l] = c;
    }
  }

  RATSEG_HD void addAnyCosts(const float* rho, const double* reduced, const double* share,
                             double* cost) {
    for (int l = 0; l < LANES; ++l) {
      cost[l] = 0.0;
      if (rho[l] >= FLT_MAX) {
        minForbidden_[l] = lesser(minForbidden_[l], reduced[l]);
        forbidden_[l] += share[l];
        special_[l] += 1.0;
      } else if (rho[l] <= -FLT_MAX) {
        minForced_[l] = lesser(minForced_[l], reduced[l]);
        special_[l] += 1.0;
      } else {
        const double c = static_cast<double>(rho[l]);
        min_[l] = lesser(min_[l], c + reduced[l]);
        data_[l] += c * share[l];
        size_[l] += fabs(c) * share[l];
        finite_[l] += share[l];
        cost[l] = c;
      }
    }
  }

  RATSEG_HD void finishHard(double* terms, int l, bool forces, bool costs) const {
    const auto i = static_cast<std::size_t>(label_[l]);
    const double c = static_cast<double>(b_.rho[(i * (b_.ymax - b_.ymin) + y_) * b_.w + x_ + l]);
    const bool finite = fabs(c) < static_cast<double>(FLT_MAX);
    const bool allowed = forces ? c < 0.0 && !finite : !costs || finite;
    const double data = costs && finite ? c : 0.0;
    terms[kHardData * LANES + l] += data;
    terms[kHardUnallowed * LANES + l] += allowed ? 0.0 : 1.0;

    const bool right = (l < kLast || hasRight_) && label_[l + 1] != label_[l];
    const bool below = hasBelow_ && labelBelow_[l] != label_[l];
    const bool same = right && below && label_[l + 1] == labelBelow_[l];
    const double slopes = hardSlopes(right, below, same);
    terms[kHardLength * LANES + l] += slopes > 0.0 ? radius_[l] * slopes : 0.0;
  }

  const CertificateBand& b_;
  std::size_t x_, y_;
  bool hasLeft_, hasRight_, hasAbove_, hasBelow_;
  const double* inverse_;
  const double* inverseBelow_;
  const int* label_;
  const int* labelBelow_;
  double radius_[LANES], halfInverse_[LANES];
  double min_[LANES], minForbidden_[LANES], minForced_[LANES];
  double data_[LANES], size_[LANES], slopes_[LANES], excess_[LANES], special_[LANES];
  double finite_[LANES], forbidden_[LANES];  // sums of u_i over labels with such costs
};

}  // namespace RATSEG_ISA
}  // namespace tile
}  // namespace namespace_ratseg

#endif
