#ifndef RATSEG_EXAMPLES_LABELING_SCORES_H
#define RATSEG_EXAMPLES_LABELING_SCORES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace namespace_ratseg {

// How well a labeling does, beside a picture of the true labels of the same size.
struct LabelingScore {
  std::string name;
  double accuracy = 0;         // fraction of the pixels with the true label
  std::vector<double> shares;  // of each of the labels that shares are of
};

// labeling and truth hold one label a pixel. Shares are of the labels 0 to listed-1: how many of
// the pixels with one of these labels have that label; all 0 when there are none.
LabelingScore scoreLabeling(const std::string& name, const std::vector<int>& labeling,
                            const std::vector<std::uint8_t>& truth, std::size_t listed);

// A table with a line for the truth and one for each score. whole names what the shares are of.
std::string scoreTable(const std::vector<double>& trueShares,
                       const std::vector<LabelingScore>& scores, const std::string& whole);

}  // namespace namespace_ratseg

#endif
