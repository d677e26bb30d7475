// -strict 1: warnings are errors.

#include <cfloat>
#include <filesystem>

#include "app/ratseg_program.h"

namespace namespace_ratseg {
namespace {

class RatsegStrict : public RatsegProgram {
 protected:
  bool anyResult() const {
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      if (entry.path().filename().string().starts_with("out_")) return true;
    }
    return false;
  }
  static bool lastLineIs(const ProgramResult& result, const std::string& line) {
    return result.out.ends_with("\n" + line + "\n");
  }
};

TEST_F(RatsegStrict, ChangesNothingWithoutWarnings) {
  const ProgramResult usual = run();
  const ProgramResult strict = run({{"-strict", "1"}});
  EXPECT_EQ(withoutTime(strict.out), withoutTime(usual.out));
  EXPECT_EQ(strict.err, usual.err);
  EXPECT_EQ(strict.status, 0);
}

TEST_F(RatsegStrict, EndsBeforeTheComputationWhereThereAreWarnings) {
  const Changes changes = {{"-strict", "1"}, {"-lambda", "1,5"}};
  const ProgramResult one = run(changes);
  EXPECT_TRUE(lastLineIs(one, "ERROR: 1 warning, and -strict 1 makes it an error")) << one.out;
  EXPECT_EQ(one.err, "ratseg: warning: -lambda must be a number, but is \"1,5\"; 1 is used\n");
  EXPECT_EQ(one.out.find("Computing"), std::string::npos);
  EXPECT_EQ(one.status, 1);
  EXPECT_FALSE(anyResult());
}

TEST_F(RatsegStrict, CountsTheWarningsOfInputsToo) {
  saveText("proportions.txt", "0.3 0.1 0.3 0.1 0.3 0.1 end");
  saveImage("image.png", blackImage(FourLabels::w, FourLabels::h));
  const ProgramResult result = run({{"-strict", "1"}, {"-epsilon", "0"}, {"-weightcoeff", "-1"}});
  EXPECT_TRUE(lastLineIs(result, "ERROR: 4 warnings, and -strict 1 makes them errors"))
      << result.out;
  EXPECT_EQ(result.status, 1);
  EXPECT_FALSE(anyResult());
}

TEST_F(RatsegStrict, WritesResultsAndFailsWhereThereAreWarningsAfterwards) {
  std::vector<float> rho = FourLabels::dataterm();
  for (std::size_t i = 0; i < 4; ++i) rho[i * 96 + 40] = FLT_MAX;
  saveDataterm("dataterm.gz", rho);
  const Changes changes = {{"-strict", "1"}, {"-iterations", "0"}};
  const ProgramResult result = run(changes);
  EXPECT_TRUE(lastLineIs(result, "ERROR: 1 warning, and -strict 1 makes it an error"));
  EXPECT_NE(result.out.find("\nSaved out_regularizer_weight.png\nERROR: "), std::string::npos)
      << result.out;
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(anyResult());
}

TEST_F(RatsegStrict, FailsWhereAFileCannotBeSaved) {
  std::filesystem::create_directory(dir_.file("out_result_labeling.png"));
  const ProgramResult result = run({{"-strict", "1"}});
  EXPECT_TRUE(lastLineIs(result, "ERROR: 1 warning, and -strict 1 makes it an error"))
      << result.out << result.err;
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegStrict, FailsWhereTheComputationLeftTheNumbers) {
  const ProgramResult result = run({{"-strict", "1"}, {"-lambda", "1e-40"}, {"-accelerate", "1"}});
  EXPECT_TRUE(lastLineIs(result, "ERROR: 1 warning, and -strict 1 makes it an error"));
  EXPECT_EQ(result.status, 1);
}

TEST_F(RatsegStrict, IsOffByDefaultAndWith0) {
  EXPECT_EQ(run({{"-lambda", "1,5"}}).status, 0);
  EXPECT_EQ(run({{"-lambda", "1,5"}, {"-strict", "0"}}).status, 0);
}

TEST_F(RatsegStrict, TakesNothingBut0And1) {
  for (const std::string value : {"2", "yes", ""}) {
    const ProgramResult result = run({{"-strict", value}});
    EXPECT_EQ(result.out,
              wholeEcho() + "ERROR: -strict must be 0 or 1, but is \"" + value + "\"\n");
    EXPECT_EQ(result.status, 1);
  }
}

}  // namespace
}  // namespace namespace_ratseg
