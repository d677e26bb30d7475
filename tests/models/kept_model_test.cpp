#include "models/kept_model.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <functional>
#include <limits>

namespace namespace_ratseg {
namespace {

// A model of grey pictures with two of three labels marked.
KeptModel small() {
  KeptModel model;
  model.kind = ChannelKind::grey;
  model.planes = 1;
  model.labelCount = 3;
  model.sigma = 4;
  model.learned.labels = {0, 2};
  model.learned.calibration.temperature = 1.5f;
  model.learned.mix = 0.4f;
  Forest& forest = model.learned.forest;
  forest.featureCount = FilterBank::featureCount(1);
  forest.classCount = 2;
  forest.roots = {0, 3};
  forest.nodes = {
      {0.5f, 1, 1}, {0, Forest::kLeaf, 0}, {0, Forest::kLeaf, 2}, {0, Forest::kLeaf, 2}};
  forest.leaves = {1, 0, 0.25f, 0.75f};
  model.colours = {{{0.1f, 0.2f, 0.3f}}, {{1, 1, 1}, {0, 0, 0}}};
  return model;
}

std::string complaint(const std::string& bytes) {
  try {
    unpackModel(bytes);
  } catch (const NoModel& e) {
    return e.what();
  }
  return "no complaint";
}

TEST(KeptModel, IsReadAsItWasWritten) {
  const KeptModel model = unpackModel(packModel(small()));
  EXPECT_EQ(model.kind, ChannelKind::grey);
  EXPECT_EQ(model.labelCount, 3u);
  EXPECT_EQ(model.sigma, 4.0f);
  EXPECT_EQ(model.learned.labels, small().learned.labels);
  EXPECT_EQ(model.learned.calibration.temperature, 1.5f);
  EXPECT_EQ(model.learned.mix, 0.4f);
  EXPECT_EQ(model.learned.forest.roots, small().learned.forest.roots);
  EXPECT_EQ(model.learned.forest.leaves, small().learned.forest.leaves);
  EXPECT_EQ(model.colours, small().colours);
  EXPECT_EQ(packModel(model), packModel(small()));
}

// The layout that docs/models.md gives, byte by byte.
TEST(KeptModel, BeginsAsDocumented) {
  const std::string bytes = packModel(small());
  EXPECT_EQ(bytes.substr(0, 8), "ratsegMD");
  std::uint32_t version = 0, sum = 0;
  std::uint64_t length = 0;
  std::memcpy(&version, &bytes[8], 4);
  std::memcpy(&sum, &bytes[12], 4);
  std::memcpy(&length, &bytes[16], 8);
  EXPECT_EQ(version, 1u);
  EXPECT_EQ(length, bytes.size() - 24);
  const auto* payload = reinterpret_cast<const Bytef*>(bytes.data() + 24);
  EXPECT_EQ(sum, crc32(0, payload, static_cast<uInt>(length)));
}

TEST(KeptModel, IsRefusedWhereverItIsCut) {
  const std::string bytes = packModel(small());
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_EQ(complaint(bytes.substr(0, length)), length < 8 ? "is no kept model" : "ends early")
        << length;
  }
  EXPECT_EQ(complaint(bytes + "x"), "goes on behind its end");
}

TEST(KeptModel, IsRefusedWithAnyBitFlipped) {
  const std::string bytes = packModel(small());
  for (std::size_t k = 0; k < 8 * bytes.size(); ++k) {
    std::string flipped = bytes;
    flipped[k / 8] = static_cast<char>(flipped[k / 8] ^ (1 << (k % 8)));
    EXPECT_NE(complaint(flipped), "no complaint") << k;
  }
}

TEST(KeptModel, OfAnotherVersionIsNamed) {
  std::string bytes = packModel(small());
  bytes[8] = 2;
  EXPECT_EQ(complaint(bytes), "has version 2 of the format, not 1");
}

// Files with right checksums whose contents cannot be.
TEST(KeptModel, WhatCannotBeIsRefused) {
  const auto refused = [](const std::function<void(KeptModel&)>& change) {
    KeptModel model = small();
    change(model);
    return complaint(packModel(model));
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(refused([](KeptModel& m) { m.kind = static_cast<ChannelKind>(3); }),
            "holds an unknown kind of picture");
  EXPECT_EQ(refused([](KeptModel& m) { m.planes = 2; }),
            "holds a number of channels that cannot be");
  EXPECT_EQ(refused([&](KeptModel& m) { m.sigma = nan; }), "holds a sigma that cannot be");
  EXPECT_EQ(refused([](KeptModel& m) { m.sigma = 0; }), "holds a sigma that cannot be");
  EXPECT_EQ(refused([&](KeptModel& m) { m.learned.calibration.temperature = nan; }),
            "holds a temperature that cannot be");
  EXPECT_EQ(refused([&](KeptModel& m) { m.learned.mix = nan; }), "holds a mix that cannot be");
  EXPECT_EQ(refused([](KeptModel& m) { m.labelCount = 256; }), "holds a wrong number of labels");
  EXPECT_EQ(refused([](KeptModel& m) { m.labelCount = 2; }), "holds labels that cannot be");
  EXPECT_EQ(refused([](KeptModel& m) {
              m.learned.labels = {2, 2};
            }),
            "holds labels that cannot be");
  EXPECT_EQ(refused([](KeptModel& m) { m.learned.forest.featureCount = 42; }),
            "holds features of other filters");
  EXPECT_EQ(refused([](KeptModel& m) { m.learned.forest.nodes[0].next = 0; }),
            "holds a forest that is none");
  EXPECT_EQ(refused([&](KeptModel& m) { m.colours[1][0][2] = nan; }),
            "holds colours that are none");
  EXPECT_EQ(refused([](KeptModel& m) { m.colours.clear(); }), "holds a label without colours");
}

TEST(KeptModel, OfAForestAloneNeedsNoColours) {
  KeptModel model = small();
  model.learned.mix = 1;
  model.colours.clear();
  EXPECT_EQ(complaint(packModel(model)), "no complaint");
}

}  // namespace
}  // namespace namespace_ratseg
