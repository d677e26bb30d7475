#ifndef RATSEG_MODELS_FOREST_H
#define RATSEG_MODELS_FOREST_H

// Random forests: grown by VIGRA, kept in a form that is quick to go through.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "models/vigra_calls.h"

namespace namespace_ratseg {

class Forest {
 public:
  // A node has its children side by side, behind itself: the first of them at next for features
  // below the threshold. A leaf has kLeaf as its feature; its probabilities begin at next.
  struct Node {
    float threshold = 0;
    std::uint32_t feature = 0;
    std::uint32_t next = 0;
  };
  static constexpr std::uint32_t kLeaf = 0xFFFFFFFFu;

  std::size_t featureCount = 0;
  std::size_t classCount = 0;
  std::vector<std::uint32_t> roots;  // one per tree
  std::vector<Node> nodes;
  std::vector<float> leaves;  // classCount per leaf

  // Grows so many trees; their number and the samples decide what they are like, and not the number
  // of threads. Calls step after each of them, one call at a time.
  static Forest grow(const TreeSamples& samples, const TreeSettings& settings, std::size_t trees,
                     std::uint32_t seed, const std::function<void()>& step = {});

  // The mean over the trees. Feature f of pixel p is features[f * stride + p], the probability of
  // class c goes to out[p * classCount + c].
  void probabilities(const float* features, std::size_t stride, std::size_t pixels,
                     float* out) const;

  // True where going through any tree ends, inside all arrays, and probabilities are ones.
  bool isValid() const;

 private:
  void add(const std::vector<TreeNode>& tree);
};

}  // namespace namespace_ratseg

#endif
