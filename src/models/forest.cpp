#include "models/forest.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>

#include "device/host/host_launch.h"

namespace namespace_ratseg {

namespace {

// The least float that is not below it: features, which are floats, are below both or neither.
float roundedUp(double threshold) {
  const auto nearest = static_cast<float>(threshold);
  if (static_cast<double>(nearest) >= threshold) return nearest;
  return std::nextafter(nearest, std::numeric_limits<float>::infinity());
}

constexpr std::size_t kTile = 64;  // pixels whose features are at hand together

}  // namespace

void Forest::add(const std::vector<TreeNode>& tree) {
  const auto base = static_cast<std::uint32_t>(nodes.size());
  roots.push_back(base);
  for (const TreeNode& node : tree) {
    if (node.probabilities.empty()) {
      nodes.push_back({roundedUp(node.threshold), node.feature, base + node.child[0]});
      continue;
    }
    nodes.push_back({0, kLeaf, static_cast<std::uint32_t>(leaves.size())});
    for (const double p : node.probabilities) leaves.push_back(static_cast<float>(p));
  }
}

Forest Forest::grow(const TreeSamples& samples, const TreeSettings& settings, std::size_t trees,
                    std::uint32_t seed, const std::function<void()>& step) {
  std::vector<std::vector<TreeNode>> grown(trees);
  std::mutex oneAtATime;
  parallelFor(trees, trees * samples.samples * 100, [&](std::size_t k) {
    grown[k] = growTree(samples, settings, seed + static_cast<std::uint32_t>(k));
    if (!step) return;
    const std::lock_guard<std::mutex> lock(oneAtATime);
    step();
  });
  Forest forest;
  forest.featureCount = samples.featureCount;
  forest.classCount = samples.classCount;
  for (const auto& tree : grown) forest.add(tree);
  return forest;
}

void Forest::probabilities(const float* features, std::size_t stride, std::size_t pixels,
                           float* out) const {
  const std::size_t tiles = (pixels + kTile - 1) / kTile;
  const float scale = 1.0f / static_cast<float>(roots.size());
  parallelFor(tiles, pixels * roots.size(), [&](std::size_t t) {
    const std::size_t begin = t * kTile, count = std::min(kTile, pixels - begin);
    thread_local std::vector<float> tile;
    tile.resize(kTile * featureCount);
    for (std::size_t f = 0; f < featureCount; ++f) {
      const float* column = features + f * stride + begin;
      for (std::size_t p = 0; p < count; ++p) tile[p * featureCount + f] = column[p];
    }
    float* sums = out + begin * classCount;
    std::fill_n(sums, count * classCount, 0.0f);
    for (const std::uint32_t root : roots) {
      for (std::size_t p = 0; p < count; ++p) {
        const float* own = tile.data() + p * featureCount;
        const Node* node = &nodes[root];
        while (node->feature != kLeaf) {
          node = &nodes[node->next + (own[node->feature] < node->threshold ? 0 : 1)];
        }
        const float* leaf = &leaves[node->next];
        for (std::size_t c = 0; c < classCount; ++c) sums[p * classCount + c] += leaf[c];
      }
    }
    for (std::size_t k = 0; k < count * classCount; ++k) sums[k] *= scale;
  });
}

bool Forest::isValid() const {
  if (classCount == 0 || featureCount == 0 || roots.empty()) return false;
  for (const std::uint32_t root : roots) {
    if (root >= nodes.size()) return false;
  }
  for (std::size_t k = 0; k < nodes.size(); ++k) {
    const Node& node = nodes[k];
    if (node.feature == kLeaf) {
      if (node.next > leaves.size() || leaves.size() - node.next < classCount) return false;
      continue;
    }
    // Children stand behind their parent, so every way down ends.
    if (node.feature >= featureCount || !std::isfinite(node.threshold)) return false;
    if (node.next <= k || std::size_t{node.next} + 1 >= nodes.size()) return false;
  }
  return std::all_of(leaves.begin(), leaves.end(), [](float p) { return p >= 0 && p <= 1; });
}

}  // namespace namespace_ratseg
