#include "models/learn.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cstring>

namespace namespace_ratseg {
namespace {

// A grey picture whose left half is even and whose right half is a chequerboard of the same mean;
// label 0 is marked on the left, label 2 on the right.
struct Halves {
  static constexpr std::size_t w = 64, h = 48;
  std::vector<float> values;
  std::vector<std::uint8_t> marks;
  Channels channels;

  Halves() : values(w * h), marks(w * h) {
    for (std::size_t y = 0; y < h; ++y) {
      for (std::size_t x = 0; x < w; ++x) {
        values[y * w + x] = x < w / 2 ? 0.5f : (x / 2 + y / 2) % 2 == 0 ? 0.4f : 0.6f;
      }
    }
    for (std::size_t x = 4; x < 26; ++x) {
      marks[10 * w + x] = 1;
      marks[30 * w + x] = 1;
      marks[14 * w + w / 2 + x] = 3;
      marks[38 * w + w / 2 + x] = 3;
    }
    channels.w = w;
    channels.h = h;
    channels.data = {values.data()};
    channels.kind = ChannelKind::grey;
  }
  Learned learned(std::size_t blockBytes = PictureFeatures::kBlockBytes) const {
    PictureFeatures features(channels, blockBytes);
    return learn(features, {w, h, marks.data()}, {});
  }
};

class LearnTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!haveVigra()) GTEST_SKIP() << "built without VIGRA";
  }
};

TEST_F(LearnTest, SeesTexture) {
  const Halves halves;
  const Learned model = halves.learned();
  EXPECT_EQ(model.labels, (std::vector<std::uint32_t>{0, 2}));
  EXPECT_EQ(model.mix, 1.0f);
  EXPECT_EQ(model.heldOutStrokes, 8u);  // two strokes of each label are four pieces
  EXPECT_GT(model.confusion[0], 0.9);
  EXPECT_GT(model.confusion[3], 0.9);
  PictureFeatures features(halves.channels);
  std::vector<float> out(2 * Halves::w * Halves::h);
  model.forest.probabilities(features.block(0).values, features.pixels(), features.pixels(),
                             out.data());
  std::size_t right = 0;
  for (std::size_t p = 0; p < features.pixels(); ++p) {
    const bool isLeft = p % Halves::w < Halves::w / 2;
    right += (out[2 * p] > out[2 * p + 1]) == isLeft ? 1 : 0;
  }
  EXPECT_GT(right, features.pixels() * 95 / 100);
}

TEST_F(LearnTest, IsTheSameForAnyNumberOfThreadsAndBlocks) {
  const Halves halves;
  const Learned one = halves.learned();
  const int before = omp_get_max_threads();
  omp_set_num_threads(3);
  const Learned other = halves.learned(1);
  omp_set_num_threads(before);
  ASSERT_EQ(one.forest.nodes.size(), other.forest.nodes.size());
  EXPECT_EQ(std::memcmp(one.forest.nodes.data(), other.forest.nodes.data(),
                        one.forest.nodes.size() * sizeof(Forest::Node)),
            0);
  EXPECT_EQ(one.calibration.temperature, other.calibration.temperature);
}

TEST_F(LearnTest, OnePixelPerLabelIsEnough) {
  Halves halves;
  std::fill(halves.marks.begin(), halves.marks.end(), 0);
  for (std::size_t k = 0; k < 254; ++k) halves.marks[k * 12] = static_cast<std::uint8_t>(k + 1);
  const Learned model = halves.learned();
  EXPECT_EQ(model.labels.size(), 254u);
  EXPECT_TRUE(model.confusion.empty());
  EXPECT_TRUE(model.forest.isValid());
}

TEST_F(LearnTest, AsksColoursOnlyOfWhatWasHeldOut) {
  const Halves halves;
  PictureFeatures features(halves.channels);
  LearnSettings settings;
  std::size_t asked = 0;
  settings.colourCosts = [&](const std::vector<const Sample*>& known,
                             const std::vector<const Sample*>& some, float* out) {
    asked += some.size();
    for (const Sample* sample : some) {
      EXPECT_EQ(std::count(known.begin(), known.end(), sample), 0);
      for (const Sample* other : known) EXPECT_NE(sample->fold, other->fold);
    }
    std::fill_n(out, 2 * some.size(), 1.0f);
  };
  const Learned model = learn(features, {Halves::w, Halves::h, halves.marks.data()}, settings);
  EXPECT_EQ(asked, 88u);
  // Colours that know nothing are no help.
  EXPECT_GE(model.mix, 0.5f);
  settings.mix = 0.25f;
  EXPECT_EQ(learn(features, {Halves::w, Halves::h, halves.marks.data()}, settings).mix, 0.25f);
}

}  // namespace
}  // namespace namespace_ratseg
