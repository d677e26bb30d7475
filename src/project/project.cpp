#include "project/project.h"

#include <cmath>
#include <cstdio>
#include <map>
#include <stdexcept>

#include "device/quoted.h"

namespace namespace_ratseg {

namespace {

std::string text(double value) {
  char digits[32];
  std::snprintf(digits, sizeof digits, "%.6g", value);
  return digits;
}

// The labels that have shares: all, or all but the background.
std::vector<ProjectLabel> sharedLabels(const Project& project) {
  std::vector<ProjectLabel> labels = project.labels;
  if (project.of == Project::Of::foreground && !labels.empty()) {
    const ProjectLabel& background = labels.back();
    if (background.share || background.takesRest) {
      throw std::runtime_error(
          "expected no share of the background, the last label, where shares " +
          std::string("are of the foreground, but found one of ") + inQuotes(background.name));
    }
    labels.pop_back();
  }
  return labels;
}

}  // namespace

std::optional<double> spreadOfWord(const std::string& word) {
  static const std::map<std::string, double> words = {
      {"measured", 0.02}, {"roughly", 0.05}, {"guess", 0.1}};
  const auto found = words.find(word);
  if (found == words.end()) return {};
  return found->second;
}

std::vector<KnownShare> knownShares(const Project& project) {
  const std::vector<ProjectLabel> labels = sharedLabels(project);
  std::vector<KnownShare> shares;
  const ProjectLabel* without = nullptr;
  std::optional<std::size_t> rest;
  double sum = 0, variance = 0;
  for (const ProjectLabel& label : labels) {
    if (label.takesRest) {
      if (rest) {
        throw std::runtime_error("expected one label that takes the rest, but found " +
                                 inQuotes(labels[*rest].name) + " and " + inQuotes(label.name));
      }
      rest = shares.size();
    } else if (!label.share) {
      without = &label;
    }
    const double spread = label.spread.value_or(kUsualSpread);
    shares.push_back({label.share.value_or(0), spread});
    sum += shares.back().mean;
    if (!label.takesRest) variance += spread * spread;
  }
  if (without != nullptr) {
    for (const ProjectLabel& label : labels) {
      if (!label.share && !label.takesRest) continue;
      throw std::runtime_error("expected shares of all labels or of none, but found one of " +
                               inQuotes(label.name) + " and none of " + inQuotes(without->name));
    }
    return {};
  }
  constexpr double kRounding = 0.005;
  if (rest) {
    if (sum > 1 + kRounding) {
      throw std::runtime_error("expected shares that leave something for " +
                               inQuotes(labels[*rest].name) + ", but found a sum of " + text(sum));
    }
    shares[*rest].mean = std::max(0.0, 1 - sum);
    if (!labels[*rest].spread) shares[*rest].spread = std::sqrt(variance);
  } else if (!shares.empty() && std::abs(sum - 1) > kRounding) {
    throw std::runtime_error(
        "expected shares that sum to 1, or a label that takes the rest, but found a sum of " +
        text(sum));
  }
  return shares;
}

}  // namespace namespace_ratseg
