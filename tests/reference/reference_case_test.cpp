// The reader of the stored cases.

#include "support/reference_case.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace namespace_ratseg {
namespace {

using Values = std::vector<double>;

TEST(FlatJson, ReadsNumbersArraysAndNestedObjects) {
  const auto json = FlatJson::parse(
      "{ \"w\": 64, \"mu\":-5.5e2,\n \"expected\": {\"a\": [1, 2.5 ,-3e-7], \"none\": []} }\n");
  EXPECT_EQ(json.size(), 4u);
  EXPECT_EQ(json.at("w"), Values{64});
  EXPECT_EQ(json.at("mu"), Values{-550});
  EXPECT_EQ(json.at("expected.a"), (Values{1, 2.5, -3e-7}));
  EXPECT_EQ(json.at("expected.none"), Values{});
}

TEST(FlatJson, RefusesWhatItDoesNotKnow) {
  for (const char* text : {"", "[1]", "{\"w\"}", "{\"w\": }", "{\"w\": 1", "{\"w: 1}",
                           "{\"w\": \"text\"}", "{\"w\": [1, 2}", "{\"w\": 1} more", "{\"w\": {"}) {
    EXPECT_THROW(FlatJson::parse(text), std::runtime_error) << text;
  }
}

TEST(ReferenceCaseReader, ReadsParametersProportionsAndPlanes) {
  if (referenceCaseNames().empty()) GTEST_SKIP() << "no cases in " << referenceCaseFolder();
  const ReferenceCase c = loadReferenceCase("interval_64x48x3");
  EXPECT_EQ(c.w, 64u);
  EXPECT_EQ(c.h, 48u);
  EXPECT_EQ(c.n, 3u);
  EXPECT_EQ(c.ind_bgr, 2u);
  EXPECT_EQ(c.kind_prior, 1);
  EXPECT_EQ(c.iterations, 400u);
  EXPECT_EQ(c.lambda, 5.0f);
  EXPECT_EQ(c.ratios, (std::vector<float>{0.6f, 0.4f, 0}));
  EXPECT_EQ(c.sigmas, (std::vector<float>{0.02f, 0.02f, 0}));
  EXPECT_FLOAT_EQ(c.mins[0], 0.54f);
  EXPECT_FLOAT_EQ(c.maxs[1], 0.46f);
  EXPECT_EQ(c.maxs[2], 0);
  EXPECT_EQ(c.rho.size(), 64u * 48 * 3);
  EXPECT_EQ(c.u.size(), 64u * 48 * 3);
  EXPECT_EQ(c.weight.size(), 64u * 48);
  EXPECT_EQ(c.sum_u.size(), 3u);
}

TEST(ReferenceCaseReader, AMissingCaseIsAnError) {
  EXPECT_THROW(loadReferenceCase("no such case"), std::runtime_error);
}

}  // namespace
}  // namespace namespace_ratseg
