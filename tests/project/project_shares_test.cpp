#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "project/label_list.h"
#include "project/project.h"

namespace namespace_ratseg {
namespace {

Project with(const std::string& labels, Project::Of of = Project::Of::image) {
  Project project;
  project.labels = parseLabelList(labels);
  project.of = of;
  return project;
}

std::string fault(const Project& project) {
  try {
    knownShares(project);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "";
}

TEST(KnownShares, TheRestIsWhatOthersLeave) {
  const auto shares = knownShares(with("a 58 +-3, b 9 +-4, c"));
  ASSERT_EQ(shares.size(), 3u);
  EXPECT_DOUBLE_EQ(shares[0].mean, 0.58);
  EXPECT_DOUBLE_EQ(shares[1].spread, 0.04);
  EXPECT_NEAR(shares[2].mean, 0.33, 1e-12);
  EXPECT_NEAR(shares[2].spread, 0.05, 1e-12);
}

TEST(KnownShares, UsualSpreads) {
  EXPECT_DOUBLE_EQ(knownShares(with("a 40, b 60"))[0].spread, 0.02);
  EXPECT_DOUBLE_EQ(knownShares(with("a 40, b guess"))[1].spread, 0.1);
}

TEST(KnownShares, NoneWhereNothingIsKnown) { EXPECT_TRUE(knownShares(with("a, b")).empty()); }

TEST(KnownShares, OfTheForegroundTheBackgroundHasNone) {
  Project project = with("a 40, b 60", Project::Of::foreground);
  EXPECT_EQ(fault(project),
            "expected no share of the background, the last label, where shares are of the "
            "foreground, but found one of \"b\"");
  project = with("a 40, b 60");
  project.labels.push_back({.name = "matrix", .colour = {}, .share = {}, .spread = {}});
  project.of = Project::Of::foreground;
  EXPECT_EQ(knownShares(project).size(), 2u);
}

TEST(KnownShares, SaysWhatIsWrong) {
  EXPECT_EQ(
      fault(with("a 0.3, b 0.6")),
      "expected shares that sum to 1, or a label that takes the rest, but found a sum of 0.9");
  EXPECT_EQ(fault(with("a 70, b 60, c")),
            "expected shares that leave something for \"c\", but found a sum of 1.3");
  EXPECT_EQ(fault(with("a 33.3, b 33.3, c 33.3")), "");
  Project project = with("a 40, b 60");
  project.labels[1].share.reset();
  EXPECT_EQ(fault(project),
            "expected shares of all labels or of none, but found one of \"a\" and none of \"b\"");
  project.labels[0].takesRest = project.labels[1].takesRest = true;
  project.labels[0].share.reset();
  EXPECT_EQ(fault(project), "expected one label that takes the rest, but found \"a\" and \"b\"");
}

}  // namespace
}  // namespace namespace_ratseg
