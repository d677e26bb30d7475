#include "models/held_out.h"

#include <algorithm>
#include <cmath>

namespace namespace_ratseg {

namespace {

// The part of all probability that is spread evenly: no forest excludes anything.
constexpr double kFloor = 0.01;

// The prior of the mix x is (x (1 - x))^kPull; the likelihood counts each stroke once.
constexpr double kPull = 48;

// The logarithm of the probability of a sample's own class under these costs.
double logLikelihood(const float* costs, std::size_t classCount, std::size_t own) {
  double sum = 0;
  for (std::size_t c = 0; c < classCount; ++c) {
    sum += std::exp(static_cast<double>(costs[own]) - static_cast<double>(costs[c]));
  }
  return -std::log(sum);
}

// The mean over the classes that have samples of the mean over their samples.
template <class Value>
double balancedMean(const HeldOut& samples, Value value) {
  std::vector<double> sums(samples.classCount), counts(samples.classCount);
  for (std::size_t k = 0; k < samples.size(); ++k) {
    sums[samples.classes[k]] += value(k);
    ++counts[samples.classes[k]];
  }
  double sum = 0, classes = 0;
  for (std::size_t c = 0; c < samples.classCount; ++c) {
    if (counts[c] == 0) continue;
    sum += sums[c] / counts[c];
    ++classes;
  }
  return classes > 0 ? sum / classes : 0;
}

// Costs of all samples by the forest.
std::vector<float> forestCosts(const HeldOut& samples, const Calibration& calibration) {
  std::vector<float> costs(samples.probabilities.size());
  for (std::size_t k = 0; k < costs.size(); k += samples.classCount) {
    calibration.costs(&samples.probabilities[k], samples.classCount, &costs[k]);
  }
  return costs;
}

void mixCosts(const float* forest, const float* colour, float mix, std::vector<float>& mixed) {
  for (std::size_t c = 0; c < mixed.size(); ++c) {
    mixed[c] = mix * forest[c] + (1 - mix) * colour[c];
  }
}

}  // namespace

void Calibration::costs(const float* probabilities, std::size_t classCount, float* costs) const {
  const double even = kFloor / static_cast<double>(classCount);
  // Logarithms from the greatest one on: a low temperature leaves nothing of the others.
  double greatest = -HUGE_VAL;
  for (std::size_t c = 0; c < classCount; ++c) {
    const double p = (1 - kFloor) * static_cast<double>(probabilities[c]) + even;
    costs[c] = static_cast<float>(std::log(p) / static_cast<double>(temperature));
    greatest = std::max(greatest, static_cast<double>(costs[c]));
  }
  double sum = 0;
  for (std::size_t c = 0; c < classCount; ++c) {
    sum += std::exp(static_cast<double>(costs[c]) - greatest);
  }
  const double all = greatest + std::log(sum);
  for (std::size_t c = 0; c < classCount; ++c) {
    const double cost = std::max(0.0, all - static_cast<double>(costs[c]));
    costs[c] = std::min(most, static_cast<float>(cost));
  }
}

float fitTemperature(const HeldOut& samples, float most) {
  float best = 1;
  double greatest = -HUGE_VAL;
  if (samples.size() == 0) return best;
  for (int step = 0; step <= 12; ++step) {
    const Calibration trial{static_cast<float>(std::pow(2.0, step / 4.0)), most};
    const std::vector<float> costs = forestCosts(samples, trial);
    const double mean = balancedMean(samples, [&](std::size_t k) {
      return logLikelihood(&costs[k * samples.classCount], samples.classCount, samples.classes[k]);
    });
    if (mean <= greatest) continue;
    greatest = mean;
    best = trial.temperature;
  }
  return best;
}

float fitMix(const HeldOut& samples, const Calibration& calibration) {
  const std::vector<float> forest = forestCosts(samples, calibration);
  const auto strokes = static_cast<double>(samples.strokes);
  float best = 0.5f;
  double greatest = -HUGE_VAL;
  std::vector<float> mixed(samples.classCount);
  for (int step = 1; step < 20; ++step) {
    const float mix = static_cast<float>(step) / 20;
    const double mean = balancedMean(samples, [&](std::size_t k) {
      const std::size_t at = k * samples.classCount;
      mixCosts(&forest[at], &samples.colourCosts[at], mix, mixed);
      return logLikelihood(mixed.data(), samples.classCount, samples.classes[k]);
    });
    const double x = static_cast<double>(mix);
    const double value = strokes * mean + kPull * std::log(x * (1 - x));
    if (value <= greatest) continue;
    greatest = value;
    best = mix;
  }
  return best;
}

std::vector<double> confusion(const HeldOut& samples, const Calibration& calibration, float mix) {
  const std::size_t n = samples.classCount;
  const std::vector<float> forest = forestCosts(samples, calibration);
  std::vector<double> parts(n * n), counts(n);
  std::vector<float> mixed(n);
  for (std::size_t k = 0; k < samples.size(); ++k) {
    mixCosts(&forest[k * n], &samples.colourCosts[k * n], mix, mixed);
    const auto best = std::min_element(mixed.begin(), mixed.end()) - mixed.begin();
    ++parts[samples.classes[k] * n + static_cast<std::size_t>(best)];
    ++counts[samples.classes[k]];
  }
  for (std::size_t k = 0; k < n * n; ++k) {
    if (counts[k / n] > 0) parts[k] /= counts[k / n];
  }
  return parts;
}

}  // namespace namespace_ratseg
