#include "models/vigra_calls.h"

#include <vigra/multi_array.hxx>
#include <vigra/random.hxx>
#include <vigra/random_forest.hxx>

namespace namespace_ratseg {

bool haveVigra() { return true; }

namespace {

using Tree = vigra::detail::DecisionTree;

TreeNode nodeAt(const Tree& tree, int at, std::size_t classes) {
  using namespace vigra;
  TreeNode node;
  if (tree.isLeafNode(tree.topology_[at])) {
    const Node<e_ConstProbNode> leaf(tree.topology_, tree.parameters_, at);
    node.probabilities.assign(leaf.prob_begin(), leaf.prob_begin() + classes);
  } else {
    const Node<i_ThresholdNode> split(tree.topology_, tree.parameters_, at);
    node.feature = static_cast<std::uint32_t>(split.column());
    node.threshold = split.threshold();
    node.child[0] = static_cast<std::uint32_t>(split.child(0));
    node.child[1] = static_cast<std::uint32_t>(split.child(1));
  }
  return node;
}

// VIGRA's nodes know their children by places in an array; here they are numbered level by level.
std::vector<TreeNode> numbered(const Tree& tree, std::size_t classes) {
  constexpr int kRoot = 2;
  std::vector<TreeNode> nodes = {nodeAt(tree, kRoot, classes)};
  for (std::size_t k = 0; k < nodes.size(); ++k) {
    if (!nodes[k].probabilities.empty()) continue;
    for (unsigned side = 0; side < 2; ++side) {
      const int at = static_cast<int>(nodes[k].child[side]);
      nodes[k].child[side] = static_cast<std::uint32_t>(nodes.size());
      nodes.push_back(nodeAt(tree, at, classes));
    }
  }
  return nodes;
}

}  // namespace

std::vector<TreeNode> growTree(const TreeSamples& samples, const TreeSettings& settings,
                               std::uint32_t seed) {
  using namespace vigra;
  const auto rows = static_cast<MultiArrayIndex>(samples.samples);
  const auto columns = static_cast<MultiArrayIndex>(samples.featureCount);
  const MultiArrayView<2, float> features(Shape2(rows, columns), Shape2(1, rows),
                                          const_cast<float*>(samples.features));
  const MultiArrayView<2, UInt32> classes(Shape2(rows, 1), Shape2(1, rows),
                                          const_cast<UInt32*>(samples.classes));
  RandomForest<UInt32> forest(
      RandomForestOptions()
          .tree_count(1)
          .samples_per_tree(static_cast<int>(settings.perClass * samples.classCount))
          .sample_with_replacement(true)
          .use_stratification(RF_EQUAL)
          .features_per_node(RF_SQRT)
          .min_split_node_size(static_cast<int>(settings.leastToSplit)));
  forest.learn(features, classes, rf_default(), rf_default(), rf_default(), RandomMT19937(seed));
  return numbered(forest.tree(0), samples.classCount);
}

}  // namespace namespace_ratseg
