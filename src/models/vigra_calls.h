#ifndef RATSEG_MODELS_VIGRA_CALLS_H
#define RATSEG_MODELS_VIGRA_CALLS_H

// All that VIGRA does for this program. Its headers want C++17, so this one, vigra_calls.cpp and
// what they include are C++17. In builds without VIGRA the calls throw std::logic_error.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace namespace_ratseg {

// Whether VIGRA was there when this was built.
bool haveVigra();

// What trees are grown from: feature f of sample s is features[f * samples + s].
struct TreeSamples {
  const float* features = nullptr;
  const std::uint32_t* classes = nullptr;  // 0 to classCount - 1, each of which occurs
  std::size_t samples = 0;
  std::size_t featureCount = 0;
  std::size_t classCount = 0;
};

struct TreeSettings {
  std::size_t perClass = 1000;   // samples drawn of each class, with replacement
  std::size_t leastToSplit = 1;  // samples in a node
};

// A node of a tree: goes to child[0] where the feature is below the threshold, otherwise to
// child[1]. In a leaf child[0] is 0 and probabilities has an entry per class.
struct TreeNode {
  std::uint32_t feature = 0;
  double threshold = 0;
  std::uint32_t child[2] = {0, 0};
  std::vector<double> probabilities;
};

// One tree of a random forest, the root first and children behind their parents. The same arguments
// give the same tree. Several threads may grow trees at a time.
std::vector<TreeNode> growTree(const TreeSamples& samples, const TreeSettings& settings,
                               std::uint32_t seed);

}  // namespace namespace_ratseg

#endif
