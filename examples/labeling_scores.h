#ifndef RATSEG_EXAMPLES_LABELING_SCORES_H
#define RATSEG_EXAMPLES_LABELING_SCORES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace namespace_ratseg {

// How well a labeling does, beside a picture of the true labels of the same size.
struct LabelingScore {
  std::string name;
  std::optional<double> accuracy;  // fraction of the pixels without a mark that have the true label
  std::vector<double> shares;      // of each of the labels that shares are of
};

// labeling holds one label a pixel, and so does truth unless it is empty: unknown. marks has the
// scribbles, 0 where there is none. There is no accuracy without a truth or without a pixel that is
// not marked. Shares are of the labels 0 to listed-1: how many of the pixels with one of these
// labels have that label; all 0 when there are none.
LabelingScore scoreLabeling(const std::string& name, const std::vector<int>& labeling,
                            const std::vector<std::uint8_t>& truth,
                            const std::vector<std::uint8_t>& marks, std::size_t listed);

// A table with a line for the truth, unless its shares are empty, and one for each score; the
// column of accuracies is there if any score has one. whole names what the shares are of.
std::string scoreTable(const std::vector<double>& trueShares,
                       const std::vector<LabelingScore>& scores, const std::string& whole);

}  // namespace namespace_ratseg

#endif
