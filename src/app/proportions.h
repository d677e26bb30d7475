#ifndef RATSEG_APP_PROPORTIONS_H
#define RATSEG_APP_PROPORTIONS_H

#include <string>
#include <vector>

namespace namespace_ratseg {

// Mean and spread of each label's share of the foreground, in [0, 1], one entry per label.
struct Proportions {
  std::vector<float> means;
  std::vector<float> sigmas;
};

// Reads the foreground labels' pairs of mean and sigma from a text file of numbers between blanks,
// up to its end or to the first word that is not a number where a mean is expected; then appends
// the background label with zeros. A file that cannot be opened, one without a pair and a mean
// without a sigma end the process with status 1. Warns on standard error of words that end the
// list, and of values without sense.
Proportions readProportions(const std::string& file);

}  // namespace namespace_ratseg

#endif
