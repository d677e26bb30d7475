// Accuracy is compared with another library's in beside_others.py.

#include "models/forest.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstring>
#include <random>

namespace namespace_ratseg {
namespace {

// Two features; the class is whether the first is above the second, and 2 in a corner.
struct Data {
  std::vector<float> features;  // column by column
  std::vector<std::uint32_t> classes;
  std::size_t samples;

  explicit Data(std::size_t n) : features(2 * n), classes(n), samples(n) {
    std::mt19937 chance(3);
    for (std::size_t k = 0; k < n; ++k) {
      const float a = static_cast<float>(chance() % 1000) / 1000;
      const float b = static_cast<float>(chance() % 1000) / 1000;
      features[k] = a;
      features[n + k] = b;
      classes[k] = a > 0.8f && b > 0.8f ? 2 : a > b ? 1 : 0;
    }
  }
  TreeSamples view() const { return {features.data(), classes.data(), samples, 2, 3}; }
};

Forest grown(const Data& data, std::size_t trees, std::uint32_t seed = 1) {
  return Forest::grow(data.view(), {200, 1}, trees, seed);
}

bool areSame(const Forest& a, const Forest& b) {
  return a.roots == b.roots && a.leaves == b.leaves && a.nodes.size() == b.nodes.size() &&
         std::memcmp(a.nodes.data(), b.nodes.data(), a.nodes.size() * sizeof(Forest::Node)) == 0;
}

class ForestTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!haveVigra()) GTEST_SKIP() << "built without VIGRA";
  }
};

TEST_F(ForestTest, LearnsWhatItIsShown) {
  const Data data(600), other(1000);
  const Forest forest = grown(data, 30);
  ASSERT_TRUE(forest.isValid());
  std::vector<float> out(3 * other.samples);
  forest.probabilities(other.features.data(), other.samples, other.samples, out.data());
  std::size_t right = 0;
  for (std::size_t k = 0; k < other.samples; ++k) {
    const float* own = &out[3 * k];
    EXPECT_NEAR(own[0] + own[1] + own[2], 1, 1e-5);
    right += std::max_element(own, own + 3) - own == other.classes[k] ? 1 : 0;
  }
  EXPECT_GT(right, 930u);
}

TEST_F(ForestTest, GoesThroughTreesAsVigraGrewThem) {
  const Data data(300);
  const Forest forest = grown(data, 1, 5);
  const std::vector<TreeNode> tree = growTree(data.view(), {200, 1}, 5);
  std::vector<float> out(3 * data.samples);
  forest.probabilities(data.features.data(), data.samples, data.samples, out.data());
  for (std::size_t k = 0; k < data.samples; ++k) {
    std::size_t at = 0;
    while (tree[at].probabilities.empty()) {
      const float value = data.features[tree[at].feature * data.samples + k];
      at = tree[at].child[static_cast<double>(value) < tree[at].threshold ? 0 : 1];
    }
    for (std::size_t c = 0; c < 3; ++c) {
      EXPECT_EQ(out[3 * k + c], static_cast<float>(tree[at].probabilities[c]));
    }
  }
}

TEST_F(ForestTest, IsTheSameForAnyNumberOfThreadsAndEachTime) {
  const Data data(300);
  const Forest first = grown(data, 9);
  const int before = omp_get_max_threads();
  omp_set_num_threads(4);
  const Forest second = grown(data, 9);
  omp_set_num_threads(before);
  EXPECT_TRUE(areSame(first, second));
  EXPECT_FALSE(areSame(first, grown(data, 9, 100)));
}

TEST_F(ForestTest, OneSamplePerClassIsEnough) {
  const std::vector<float> features = {0, 1, 2};
  const std::vector<std::uint32_t> classes = {0, 1, 2};
  const Forest forest = Forest::grow({features.data(), classes.data(), 3, 1, 3}, {1, 1}, 5, 1);
  EXPECT_TRUE(forest.isValid());
  float out[9];
  forest.probabilities(features.data(), 3, 3, out);
  EXPECT_GT(out[0], 0.9f);
  EXPECT_GT(out[4], 0.9f);
  EXPECT_GT(out[8], 0.9f);
}

// A stump: one split, two leaves.
Forest stump() {
  Forest forest;
  forest.featureCount = 2;
  forest.classCount = 2;
  forest.roots = {0};
  forest.nodes = {{0.5f, 1, 1}, {0, Forest::kLeaf, 0}, {0, Forest::kLeaf, 2}};
  forest.leaves = {1, 0, 0.25f, 0.75f};
  return forest;
}

TEST(Forest, ValuesAtTheThresholdGoToTheSecondChild) {
  const float features[] = {9, 9, 9, 0.5f, std::nextafter(0.5f, 0.0f), 1};
  float out[6];
  stump().probabilities(features, 3, 3, out);
  EXPECT_EQ(out[0], 0.25f);
  EXPECT_EQ(out[2], 1.0f);
  EXPECT_EQ(out[4], 0.25f);
}

TEST(Forest, IsInvalidWherePathsLeadOutsideOrBack) {
  EXPECT_TRUE(stump().isValid());
  const auto broken = [](auto change) {
    Forest forest = stump();
    change(forest);
    return !forest.isValid();
  };
  EXPECT_TRUE(broken([](Forest& f) { f.roots = {}; }));
  EXPECT_TRUE(broken([](Forest& f) { f.roots = {3}; }));
  EXPECT_TRUE(broken([](Forest& f) { f.nodes[0].next = 0; }));
  EXPECT_TRUE(broken([](Forest& f) { f.nodes[0].next = 2; }));
  EXPECT_TRUE(broken([](Forest& f) { f.nodes[0].next = 0xFFFFFFFFu; }));
  EXPECT_TRUE(broken([](Forest& f) { f.nodes[0].feature = 2; }));
  EXPECT_TRUE(broken([](Forest& f) { f.nodes[0].threshold = NAN; }));
  EXPECT_TRUE(broken([](Forest& f) { f.nodes[2].next = 3; }));
  EXPECT_TRUE(broken([](Forest& f) { f.leaves[0] = NAN; }));
  EXPECT_TRUE(broken([](Forest& f) { f.leaves[0] = -1; }));
  EXPECT_TRUE(broken([](Forest& f) { f.classCount = 0; }));
}

}  // namespace
}  // namespace namespace_ratseg
