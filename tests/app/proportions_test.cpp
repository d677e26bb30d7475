#include "app/proportions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;

Proportions read(const std::string& text) {
  const TempDir dir;
  std::ofstream(dir.file("proportions.txt"), std::ios::binary) << text;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const Proportions proportions = readProportions(dir.file("proportions.txt"));
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  return proportions;
}

TEST(Proportions, EndWithTheBackgroundOfMeanAndSigmaZero) {
  const Proportions proportions = read("0.25 0.1\n0.75 0.2\n");
  EXPECT_THAT(proportions.means, ElementsAre(0.25f, 0.75f, 0));
  EXPECT_THAT(proportions.sigmas, ElementsAre(0.1f, 0.2f, 0));
}

TEST(Proportions, ArePairsWhateverTheLineBreaks) {
  const Proportions proportions = read("\n0.25\n0.1 0.75\t\n\n0.2");
  EXPECT_THAT(proportions.means, ElementsAre(0.25f, 0.75f, 0));
  EXPECT_THAT(proportions.sigmas, ElementsAre(0.1f, 0.2f, 0));
}

TEST(Proportions, MayBeginWithAByteOrderMark) {
  EXPECT_THAT(read("\xef\xbb\xbf"
                   "0.25 0.1 0.75 0.2")
                  .means,
              ElementsAre(0.25f, 0.75f, 0));
  EXPECT_THAT(read("\xef\xbb\xbf"
                   "0.25 0.1 \xef\xbb\xbf")
                  .means,
              ElementsAre(0.25f, 0));
}

TEST(Proportions, AreReadByStreamExtraction) {
  const Proportions proportions = read("25e-2+.1 -1-0");
  EXPECT_THAT(proportions.means, ElementsAre(0.25f, -1, 0));
  EXPECT_THAT(proportions.sigmas, ElementsAre(0.1f, 0, 0));
}

TEST(Proportions, EndAtAWordInPlaceOfAMean) {
  for (const char* rest : {" abc 0.2", "abc", " nan 0.1", " 1e99 0.1", " - 0.1", " # 0.3 0.1"}) {
    SCOPED_TRACE(rest);
    const Proportions proportions = read(std::string("0.25 0.1") + rest);
    EXPECT_THAT(proportions.means, ElementsAre(0.25f, 0));
    EXPECT_THAT(proportions.sigmas, ElementsAre(0.1f, 0));
  }
}

}  // namespace
}  // namespace namespace_ratseg
