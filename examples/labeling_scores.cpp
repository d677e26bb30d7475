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
                            const std::vector<std::uint8_t>& truth, std::size_t listed) {
  LabelingScore score{name, 0, std::vector<double>(listed)};
  std::size_t correct = 0;
  std::size_t whole = 0;
  for (std::size_t p = 0; p < labeling.size(); ++p) {
    if (labeling[p] == truth[p]) ++correct;
    if (labeling[p] < 0 || static_cast<std::size_t>(labeling[p]) >= listed) continue;
    score.shares[static_cast<std::size_t>(labeling[p])] += 1;
    ++whole;
  }
  if (!labeling.empty()) {
    score.accuracy = static_cast<double>(correct) / static_cast<double>(labeling.size());
  }
  for (double& share : score.shares) share /= static_cast<double>(std::max<std::size_t>(whole, 1));
  return score;
}

std::string scoreTable(const std::vector<double>& trueShares,
                       const std::vector<LabelingScore>& scores, const std::string& whole) {
  std::size_t longest = 5;
  for (const LabelingScore& score : scores) longest = std::max(longest, score.name.size());
  const int names = static_cast<int>(longest);
  std::ostringstream out;
  out << std::fixed << std::setprecision(4);
  out << std::setw(names) << "" << std::setw(kColumn) << "accuracy"
      << "    share of the " << whole << " of label\n";
  out << std::setw(names + kColumn) << "";
  for (std::size_t k = 0; k < trueShares.size(); ++k) out << std::setw(kColumn) << k;
  out << "\n" << std::left << std::setw(names) << "truth" << std::right << std::setw(kColumn) << "";
  printShares(out, trueShares);
  for (const LabelingScore& score : scores) {
    out << std::left << std::setw(names) << score.name << std::right << std::setw(kColumn)
        << score.accuracy;
    printShares(out, score.shares);
  }
  return out.str();
}

}  // namespace namespace_ratseg
