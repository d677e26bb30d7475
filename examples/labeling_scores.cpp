#include "labeling_scores.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace namespace_ratseg {

namespace {

constexpr int kColumn = 10;

void printShares(std::ostream& out, const std::vector<double>& shares) {
  for (double share : shares) out << std::setw(kColumn) << share;
  out << "\n";
}

}  // namespace

LabelingScore scoreLabeling(const std::string& name, const std::vector<int>& labeling,
                            const std::vector<std::uint8_t>& truth,
                            const std::vector<std::uint8_t>& marks, std::size_t listed) {
  LabelingScore score{name, {}, std::vector<double>(listed)};
  std::size_t correct = 0;
  std::size_t counted = 0;
  std::size_t whole = 0;
  for (std::size_t p = 0; p < labeling.size(); ++p) {
    if (!truth.empty() && marks[p] == 0) {
      ++counted;
      if (labeling[p] == truth[p]) ++correct;
    }
    if (labeling[p] < 0 || static_cast<std::size_t>(labeling[p]) >= listed) continue;
    score.shares[static_cast<std::size_t>(labeling[p])] += 1;
    ++whole;
  }
  if (counted > 0) score.accuracy = static_cast<double>(correct) / static_cast<double>(counted);
  for (double& share : score.shares) share /= static_cast<double>(std::max<std::size_t>(whole, 1));
  return score;
}

std::string scoreTable(const std::vector<double>& trueShares,
                       const std::vector<LabelingScore>& scores, const std::string& whole) {
  std::size_t longest = 5, listed = trueShares.size();
  bool withAccuracy = false;
  for (const LabelingScore& score : scores) {
    longest = std::max(longest, score.name.size());
    listed = std::max(listed, score.shares.size());
    withAccuracy = withAccuracy || score.accuracy;
  }
  const int names = static_cast<int>(longest);
  const int accuracy = withAccuracy ? kColumn : 0;
  std::ostringstream out;
  out << std::fixed << std::setprecision(4);
  out << std::setw(names) << "" << std::setw(accuracy) << (withAccuracy ? "accuracy" : "")
      << "    share of the " << whole << " of label\n";
  out << std::setw(names + accuracy) << "";
  for (std::size_t k = 0; k < listed; ++k) out << std::setw(kColumn) << k;
  out << "\n";
  if (!trueShares.empty()) {
    out << std::left << std::setw(names) << "truth" << std::right << std::setw(accuracy) << "";
    printShares(out, trueShares);
  }
  for (const LabelingScore& score : scores) {
    out << std::left << std::setw(names) << score.name << std::right << std::setw(accuracy);
    if (score.accuracy) {
      out << *score.accuracy;
    } else {
      out << "";
    }
    printShares(out, score.shares);
  }
  if (withAccuracy) out << "Accuracy is counted where there are no scribbles.\n";
  return out.str();
}

}  // namespace namespace_ratseg
