// -accelerate: fewer iterations to the same optimum.

#include "app/ratseg_program.h"

namespace namespace_ratseg {
namespace {

class RatsegAccelerate : public RatsegProgram {
 protected:
  // Iterations until the tolerance was met, from the line on standard error.
  static unsigned long iterationsOf(const ProgramResult& result) {
    std::smatch match;
    const std::regex line("Stopped after (\\d+) iterations[^]*");
    EXPECT_TRUE(std::regex_match(result.err, match, line)) << result.err;
    return match.empty() ? 0 : std::stoul(match[1]);
  }
};

TEST_F(RatsegAccelerate, StopsEarlierAndPrintsTheSame) {
  const ProgramResult ordinary = run({{"-iterations", "5000"}, {"-tolerance", "0.001"}});
  const ProgramResult fast =
      run({{"-iterations", "5000"}, {"-tolerance", "0.001"}, {"-accelerate", "1"}});
  EXPECT_EQ(withoutTime(fast.out), withoutTime(ordinary.out));
  EXPECT_EQ(fast.status, 0);
  EXPECT_LT(iterationsOf(fast), iterationsOf(ordinary));
}

TEST_F(RatsegAccelerate, IsOffByDefaultAndWith0) {
  const ProgramResult ordinary = run({{"-tolerance", "0.001"}});
  EXPECT_EQ(run({{"-tolerance", "0.001"}, {"-accelerate", "0"}}).err, ordinary.err);
  EXPECT_EQ(withoutShares(run({{"-accelerate", "0"}}).err), "");
}

TEST_F(RatsegAccelerate, TakesNothingBut0And1) {
  for (const char* value : {"2", "yes", ""}) {
    const ProgramResult result = run({{"-accelerate", value}});
    const std::string line =
        "ERROR: -accelerate must be 0 or 1, but is \"" + std::string(value) + "\"\n";
    EXPECT_NE(result.out.find(line), std::string::npos) << result.out;
    EXPECT_EQ(result.status, 1);
  }
}

}  // namespace
}  // namespace namespace_ratseg
