// Values that are not what an option expects: what is used, and that it is said first and last.

#include "app/ratseg_program.h"

namespace namespace_ratseg {
namespace {

class RatsegValues : public RatsegProgram {
 protected:
  // Adds the words to the command line of a short run. Expects the line's warning before the run
  // and once more as the last line.
  ProgramResult expectWarning(const std::vector<std::string>& words,
                              const std::string& line) const {
    std::vector<std::string> all = commandLine();
    all.insert(all.end(), words.begin(), words.end());
    ProgramResult result = runWords(all);
    EXPECT_EQ(withoutShares(result.err),
              "ratseg: warning: " + line + "\nratseg: warning (repeated): " + line + "\n");
    EXPECT_TRUE(result.err.ends_with("\nratseg: warning (repeated): " + line + "\n"));
    EXPECT_EQ(result.status, 0);
    return result;
  }
  static void expectEcho(const ProgramResult& result, const std::string& line) {
    EXPECT_NE(result.out.find("\n" + line + "\n"), std::string::npos) << result.out;
  }
};

struct Misread {
  const char* option;
  const char* value;
  const char* used;
};

TEST_F(RatsegValues, OfNumbersThatAreMisreadAreTold) {
  for (const auto& [option, value, used] : {Misread{"lambda", "inf", "0"},
                                            {"lambda", "nan", "0"},
                                            {"lambda", "0x10", "0"},
                                            {"lambda", "1.5e", "0"},
                                            {"lambda", "2lambda", "2"},
                                            {"lambda", "1,5", "1"},
                                            {"lambda", "1e-50", "0"},
                                            {"lambda", "", "0"},
                                            {"mu", "infinity", "0"},
                                            {"mu", "NaN", "0"},
                                            {"mu", "1,5", "1"},
                                            {"mu", "1e39", "3.40282e+38"},
                                            {"epsilon", "1e-60", "0"},
                                            {"epsilon", "10%", "10"},
                                            {"weightcoeff", "five", "0"},
                                            {"weightcoeff", "5.0.1", "5"}}) {
    SCOPED_TRACE(std::string(option) + " " + value);
    const std::string name = std::string("-") + option;
    std::vector<std::string> all = commandLine();
    all.insert(all.end(), {name, value});
    const ProgramResult result = runWords(all);
    const std::string line =
        name + " must be a number, but is \"" + value + "\"; " + used + " is used\n";
    EXPECT_TRUE(result.err.starts_with("ratseg: warning: " + line)) << result.err;
    EXPECT_NE(result.err.find("\nratseg: warning (repeated): " + line), std::string::npos);
    expectEcho(result, name + " " + used);
  }
}

TEST_F(RatsegValues, OfNumbersInOtherSpellingsAreTaken) {
  for (const auto& [option, value, used] : {Misread{"lambda", "+5", "5"},
                                            {"lambda", "5.", "5"},
                                            {"lambda", "0.5e1", "5"},
                                            {"lambda", "0e5", "0"},
                                            {"lambda", "-0.0", "-0"},
                                            {"iterations", "007", "7"},
                                            {"iterations", "+7", "7"}}) {
    SCOPED_TRACE(value);
    std::vector<std::string> all = commandLine();
    all.insert(all.end(), {std::string("-") + option, value});
    const ProgramResult result = runWords(all);
    EXPECT_EQ(withoutShares(result.err), "");
    expectEcho(result, std::string("-") + option + " " + used);
  }
}

TEST_F(RatsegValues, OfWholeNumbersThatAreMisreadAreTold) {
  for (const auto& [option, value, used] : {Misread{"iterations", "1e3", "1"},
                                            {"iterations", "0x10", "0"},
                                            {"iterations", "3.9", "3"},
                                            {"iterations", "2,000", "2"},
                                            {"iterations", "inf", "0"},
                                            {"iterations", "nan", "0"},
                                            {"iterations", "4 times", "4"}}) {
    SCOPED_TRACE(value);
    const std::string name = std::string("-") + option;
    expectEcho(expectWarning({name, value}, name + " must be a whole number from 0 on, but is \"" +
                                                value + "\"; " + used + " is used"),
               name + " " + used);
  }
  for (const char* value : {"0x1", "0.5", "0e3", "nan"}) {
    expectEcho(expectWarning({"-gpu", value}, "-gpu must be a whole number, but is \"" +
                                                  std::string(value) + "\"; 0 is used"),
               "-gpu 0");
  }
}

TEST_F(RatsegValues, BeyondTheFirstAreTold) {
  expectWarning({"-lambda", "1", "2"}, "-lambda has 2 values; only the first is used");
  expectWarning({"-outprefix", "my", "results"}, "-outprefix has 2 values; only the first is used");
  expectWarning({"-device", "host", "cuda"}, "-device has 2 values; only the first is used");
  for (const char* option : {"-timing", "-accelerate", "-strict"}) {
    EXPECT_TRUE(runWords({"-image", "image.png", option, "1", "0"}).status == 1);
    std::vector<std::string> all = commandLine();
    all.insert(all.end(), {option, "1", "0"});
    EXPECT_TRUE(runWords(all).out.ends_with("\nERROR: " + std::string(option) +
                                            " must be 0 or 1, but is \"1 0\"\n"));
  }
}

TEST_F(RatsegValues, OfAToleranceMustBeOneNumber) {
  for (const char* value : {"inf", "nan", "1e-50", "1e99", "0,1", "0x1", "-1", ""}) {
    const ProgramResult result = run({{"-tolerance", value}});
    EXPECT_TRUE(result.out.ends_with("\nERROR: -tolerance must be a number from 0 on, but is \"" +
                                     std::string(value) + "\"\n"))
        << result.out;
    EXPECT_EQ(result.status, 1);
  }
}

TEST_F(RatsegValues, BehindAnEqualsSignOrTwoMinusSignsAreNotTaken) {
  expectEcho(
      expectWarning({"-lambda=3"}, "unknown option \"-lambda=3\" is ignored; write \"-lambda 3\""),
      "-lambda 0.5");
  expectWarning({"--mu=500"}, "unknown option \"--mu=500\" is ignored; write \"-mu 500\"");
  expectWarning({"--iterations", "3"},
                "unknown option \"--iterations\" is ignored; write \"-iterations\"");
  expectWarning({"-gamma=3"}, "unknown option \"-gamma=3\" is ignored");
  expectWarning({"-="}, "unknown option \"-=\" is ignored");
}

TEST_F(RatsegValues, BeforeTheFirstOptionAreTold) {
  std::vector<std::string> words = commandLine();
  words.insert(words.begin(), "picture.png");
  EXPECT_TRUE(runWords(words).err.starts_with(
      "ratseg: warning: \"picture.png\" stands before the first option and is ignored\n"));
}

TEST_F(RatsegValues, AreRepeatedInTheirOrderAndNothingElseIs) {
  saveText("proportions.txt", "0.3 0.1 0.3 0.1 0.3 0.1");
  const ProgramResult result =
      run({{"-iteration", "3"}, {"-lambda", "five"}, {"-iterations", "2.5"}, {"-timing", "1"}});
  EXPECT_TRUE(result.err.ends_with(
      "in all\n"
      "ratseg: warning (repeated): unknown option \"-iteration\" is ignored\n"
      "ratseg: warning (repeated): -lambda must be a number, but is \"five\"; 0 is used\n"
      "ratseg: warning (repeated): -iterations must be a whole number from 0 on, but is \"2.5\"; 2 "
      "is used\n"))
      << result.err;
}

}  // namespace
}  // namespace namespace_ratseg
