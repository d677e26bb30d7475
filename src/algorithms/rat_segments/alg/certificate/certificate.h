#ifndef RATSEG_ALG_CERTIFICATE_CERTIFICATE_H
#define RATSEG_ALG_CERTIFICATE_CERTIFICATE_H

// Measures how far a labeling is from the optimum: energies and the lower bound from the sums over
// the pixels (certificate_kernels.h) and the variables of the prior. Plain arithmetic in double
// precision; docs/math.md, section 11.

#include <cstddef>
#include <vector>

namespace namespace_ratseg {

// The prior on the shares. Arrays hold n values; those of the background are not used.
struct SharePrior {
  int kind = 0;  // Params::kind_prior_...
  std::size_t n = 0, background = 0;
  double pixels = 0.0;  // of the whole image
  double mu = 0.0, eps = 0.0;
  std::vector<double> ratios, sigmas;
  std::vector<double> mins, maxs;  // of the interval prior
};

// The duals that belong to the prior, n values each.
struct ShareDuals {
  std::vector<double> gamma, alpha, beta;
};

// The prior's energy of these shares, which sum to 1: infinite where a hard constraint does not
// hold (to 1e-9) or the foreground is empty although eps > 0.
double priorEnergy(const SharePrior& prior, const std::vector<double>& shares);

// The least value over all shares a on the simplex of
//   N sum_i gamma_i a_i + K(a; alpha, beta) + R(a_b),
// a lower bound of what gamma and the prior add to the energy. Each beta is raised to the edge of
// its set where rounding left it below.
double shareBound(const SharePrior& prior, const ShareDuals& duals);

struct Certificate {
  double energy = 0.0;          // of the relaxed labeling
  double labelingEnergy = 0.0;  // of the hard labeling; infinite where a hard constraint fails
  double bound = 0.0;           // no labeling has less energy
  double gap = 0.0;             // (energy - bound) / size, at least 0
  double labelingGap = 0.0;     // (labelingEnergy - bound) / size, at least 0
};

// sums: certificateSums(n) sums over all pixels. size is the sum of the magnitudes of the terms of
// the relaxed labeling's energy: that energy itself where no cost is negative.
//
// Shares of a relaxed labeling meet a hard constraint in the limit only. Its energy is then that of
// the mixture of it with labelings of one label each that meets the constraint (section 11.4).
Certificate certificate(const SharePrior& prior, const std::vector<double>& sums,
                        const ShareDuals& duals);

}  // namespace namespace_ratseg

#endif
