// Values are compared with other libraries' in beside_others.py.

#include "models/filter_bank.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>
#include <random>
#include <set>

#include "models/picture_features.h"

namespace namespace_ratseg {
namespace {

struct Picture {
  std::vector<float> values;
  Channels channels;

  Picture(std::size_t w, std::size_t h, std::size_t planes, ChannelKind kind) {
    std::mt19937 chance(7);
    for (std::size_t k = 0; k < w * h * planes; ++k) {
      values.push_back(static_cast<float>(chance() % 256) / 255);
    }
    channels.w = w;
    channels.h = h;
    for (std::size_t c = 0; c < planes; ++c) channels.data.push_back(&values[c * w * h]);
    channels.kind = kind;
  }
};

std::vector<float> features(const Channels& channels, std::size_t first, std::size_t last) {
  const FilterBank bank(channels);
  std::vector<float> out((last - first) * channels.w * bank.featureCount());
  bank.compute(first, last, out.data());
  return out;
}

TEST(FilterBank, RowsAreTheSameHoweverThePictureIsCut) {
  const Picture picture(37, 90, 3, ChannelKind::colour);
  const std::vector<float> whole = features(picture.channels, 0, 90);
  const std::size_t count = FilterBank(picture.channels).featureCount();
  for (const auto& [first, last] :
       {std::pair<std::size_t, std::size_t>{0, 1}, {40, 53}, {89, 90}}) {
    const std::vector<float> part = features(picture.channels, first, last);
    const std::size_t size = (last - first) * 37;
    for (std::size_t f = 0; f < count; ++f) {
      for (std::size_t k = 0; k < size; ++k) {
        ASSERT_EQ(part[f * size + k], whole[f * 37 * 90 + first * 37 + k]) << f << ", " << first;
      }
    }
  }
}

TEST(FilterBank, AnyNumberOfThreadsGivesTheSameBytes) {
  const Picture picture(300, 200, 1, ChannelKind::grey);
  const int before = omp_get_max_threads();
  omp_set_num_threads(1);
  const std::vector<float> one = features(picture.channels, 0, 200);
  omp_set_num_threads(5);
  const std::vector<float> five = features(picture.channels, 0, 200);
  omp_set_num_threads(before);
  EXPECT_EQ(one, five);
}

TEST(FilterBank, PicturesOfAnySizeHaveFiniteFeatures) {
  for (const auto& [w, h] :
       {std::pair<std::size_t, std::size_t>{1, 1}, {1, 40}, {500, 3}, {2, 2}}) {
    const Picture picture(w, h, 1, ChannelKind::grey);
    for (const float v : features(picture.channels, 0, h)) ASSERT_TRUE(std::isfinite(v));
  }
}

// Sampled second derivatives do not sum to 0: a hundredth is left at the least scale, as in scipy.
TEST(FilterBank, AnEvenPictureHasNoEdges) {
  Picture picture(20, 20, 1, ChannelKind::grey);
  std::fill(picture.values.begin(), picture.values.end(), 0.5f);
  const std::vector<float> out = features(picture.channels, 0, 20);
  for (std::size_t f = 0; f < out.size() / 400; ++f) {
    const bool isValue =
        FilterBank::featureName(1, f).find("gaussian") != std::string::npos || f == 0;
    EXPECT_NEAR(out[f * 400 + 210], isValue ? 0.5 : 0, 0.01) << FilterBank::featureName(1, f);
  }
}

TEST(FilterBank, ValuesThatAreNotFiniteDoNoHarm) {
  Picture picture(30, 30, 2, ChannelKind::other);
  picture.values[5] = std::numeric_limits<float>::quiet_NaN();
  picture.values[100] = std::numeric_limits<float>::infinity();
  picture.values[200] = -std::numeric_limits<float>::max();
  for (const float v : features(picture.channels, 0, 30)) ASSERT_TRUE(std::isfinite(v));
}

TEST(FilterBank, EachFeatureHasAName) {
  for (const std::size_t planes : {1u, 3u, 7u}) {
    std::set<std::string> names;
    for (std::size_t f = 0; f < FilterBank::featureCount(planes); ++f) {
      names.insert(FilterBank::featureName(planes, f));
    }
    EXPECT_EQ(names.size(), FilterBank::featureCount(planes));
  }
  EXPECT_EQ(FilterBank::featureName(3, 3 + 7 * 6 * 2 + 6 + 7 * 3), "plane 2, hessian 1, scale 5.6");
}

TEST(FilterBank, SamplesAreGatheredFromAnyBlocks) {
  const Picture picture(16, 40, 1, ChannelKind::grey);
  std::vector<Sample> samples;
  for (const std::size_t pixel : {0, 15, 16, 300, 639}) samples.push_back({pixel, 0, 0, 0});
  PictureFeatures whole(picture.channels), rows(picture.channels, 1);
  EXPECT_EQ(whole.blocks(), 1u);
  EXPECT_EQ(rows.blocks(), 40u);
  const std::vector<float> gathered = rows.gather(samples);
  EXPECT_EQ(gathered, whole.gather(samples));
  EXPECT_EQ(gathered[3], picture.values[300]);
}

}  // namespace
}  // namespace namespace_ratseg
