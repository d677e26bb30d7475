#include "app/stage_times.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

namespace namespace_ratseg {
namespace {

TEST(StageTimes, PrintsEachStageInOrderAndTheSum) {
  StageTimes times;
  times.begin("b");
  times.begin("a");
  times.end();
  times.end();
  times.begin("b");
  std::ostringstream out;
  times.print(out);
  const std::regex expected(
      "Seconds of wall time:\n"
      " +\\d+\\.\\d{3}  b\n"
      " +\\d+\\.\\d{3}  a\n"
      " +\\d+\\.\\d{3}  b\n"
      " +\\d+\\.\\d{3}  in all\n");
  EXPECT_TRUE(std::regex_match(out.str(), expected)) << out.str();
}

TEST(StageTimes, OfNothingIsZero) {
  std::ostringstream out;
  StageTimes().print(out);
  EXPECT_EQ(out.str(), "Seconds of wall time:\n     0.000  in all\n");
}

}  // namespace
}  // namespace namespace_ratseg
