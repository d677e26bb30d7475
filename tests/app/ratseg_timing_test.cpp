// -timing: the seconds of each stage.

#include "app/ratseg_program.h"

namespace namespace_ratseg {
namespace {

class RatsegTiming : public RatsegProgram {};

TEST_F(RatsegTiming, ReportsEachStageOnStandardErrorAndNothingElseChanges) {
  const ProgramResult plain = run();
  const ProgramResult timed = run({{"-timing", "1"}});
  EXPECT_EQ(withoutTime(timed.out), withoutTime(plain.out));
  EXPECT_EQ(timed.status, 0);
  const std::string digits = " +\\d+\\.\\d{3}  ";
  const std::regex expected("Seconds of wall time:\n" + digits + "reading the image\n" + digits +
                            "reading the data term\n" + digits + "memory and data-term upload\n" +
                            digits + "edge weight\n" + digits + "iteration\n" + digits +
                            "download\n" + digits + "writing\n" + digits + "in all\n");
  EXPECT_TRUE(timed.err.starts_with(plain.err)) << timed.err;
  EXPECT_TRUE(std::regex_match(timed.err.substr(plain.err.size()), expected)) << timed.err;
}

TEST_F(RatsegTiming, IsOffByDefaultAndWith0) {
  EXPECT_EQ(withoutShares(run().err), "");
  EXPECT_EQ(withoutShares(run({{"-timing", "0"}}).err), "");
}

TEST_F(RatsegTiming, TakesNothingBut0And1) {
  for (const char* value : {"2", "yes", ""}) {
    const ProgramResult result = run({{"-timing", value}});
    EXPECT_NE(
        result.out.find("ERROR: -timing must be 0 or 1, but is \"" + std::string(value) + "\"\n"),
        std::string::npos)
        << result.out;
    EXPECT_EQ(result.status, 1);
  }
}

}  // namespace
}  // namespace namespace_ratseg
