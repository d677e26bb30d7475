// -tolerance: the certified stop.

#include "app/ratseg_program.h"

namespace namespace_ratseg {
namespace {

class RatsegTolerance : public RatsegProgram {};

TEST_F(RatsegTolerance, StopsEarlyAndReportsOnStandardErrorAlone) {
  const ProgramResult plain = run({{"-iterations", "5000"}});
  const ProgramResult stopped = run({{"-iterations", "5000"}, {"-tolerance", "0.01"}});
  EXPECT_EQ(withoutTime(stopped.out), withoutTime(plain.out));
  EXPECT_EQ(withoutShares(plain.err), "");
  EXPECT_EQ(stopped.status, 0);
  const std::string number = "-?[0-9.e+-]+";
  const std::regex expected(
      "Stopped after (\\d+) iterations: the gap is within the tolerance of 0.01\n"
      "    energy of the relaxed labeling: " +
      number + "\n    energy of the hard labeling:    " + number +
      "\n    lower bound of all energies:    " + number + "\n    gap: " + number + " relaxed, " +
      number + " hard\n    relaxed labeling: within " + number +
      " % of the optimum\n    hard labeling: within " + number + " % of the optimum\n");
  std::smatch match;
  const std::string err = withoutShares(stopped.err);
  ASSERT_TRUE(std::regex_match(err, match, expected)) << stopped.err;
  EXPECT_LE(std::stoul(match[1]), 1000u);
}

TEST_F(RatsegTolerance, SaysWhenTheIterationsRanOut) {
  const ProgramResult result = run({{"-iterations", "3"}, {"-tolerance", "1e-9"}});
  EXPECT_EQ(result.err.find("The tolerance of 1e-09 was not met in 3 iterations\n"), 0u)
      << result.err;
  EXPECT_EQ(result.status, 0);
}

TEST_F(RatsegTolerance, SaysThatNothingIsCertifiedWithoutIterations) {
  EXPECT_EQ(withoutShares(run({{"-iterations", "0"}, {"-tolerance", "1e-3"}}).err),
            "Nothing is certified: there was no iteration\n");
}

TEST_F(RatsegTolerance, IsOffByDefaultAndWith0) {
  EXPECT_EQ(withoutShares(run().err), "");
  EXPECT_EQ(withoutShares(run({{"-tolerance", "0"}}).err), "");
}

TEST_F(RatsegTolerance, TakesNothingButNumbersFrom0On) {
  for (const char* value : {"-1", "abc", "1e-3x", "nan", ""}) {
    const ProgramResult result = run({{"-tolerance", value}});
    const std::string line =
        "ERROR: -tolerance must be a number from 0 on, but is \"" + std::string(value) + "\"\n";
    EXPECT_NE(result.out.find(line), std::string::npos) << result.out;
    EXPECT_EQ(result.status, 1);
  }
}

TEST_F(RatsegTolerance, RefusesWhatNothingCanBeCertifiedWith) {
  const auto expectRefused = [&](Changes changes, const std::string& line) {
    changes["-tolerance"] = "0.01";
    const ProgramResult result = run(changes);
    EXPECT_TRUE(result.out.ends_with("\n    GPU to use\nERROR: with -tolerance, " + line + "\n"))
        << result.out;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 1);
  };
  expectRefused({{"-lambda", "-5"}}, "-lambda must be a number from 0 on, but is -5");
  expectRefused({{"-epsilon", "0"}}, "-epsilon must be positive, but is 0");
  expectRefused({{"-epsilon", "-1"}}, "-epsilon must be positive, but is -1");
}

TEST_F(RatsegTolerance, TakesTheBordersAndWhatItDoesNotConcern) {
  for (const Changes& changes : {Changes{{"-lambda", "0"}, {"-tolerance", "0.01"}},
                                 Changes{{"-epsilon", "0.001"}, {"-tolerance", "0.01"}},
                                 Changes{{"-mu", "-1"}, {"-tolerance", "0.01"}},
                                 Changes{{"-lambda", "-5"}, {"-tolerance", "0"}},
                                 Changes{{"-epsilon", "0"}, {"-tolerance", "0"}}}) {
    EXPECT_EQ(run(changes).status, 0);
  }
}

}  // namespace
}  // namespace namespace_ratseg
