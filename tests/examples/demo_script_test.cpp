// What scripts/demo.sh says before it builds or runs anything.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/program.h"
#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

class DemoScript : public testing::Test {
 protected:
  DemoScript() {
    program_.path = "/usr/bin/env";
    program_.folder = dir_.path().string();
  }

  ProgramResult run(const std::vector<std::string>& words) const {
    std::vector<std::string> all = {"bash", RATSEG_SCRIPTS_DIR "/demo.sh"};
    all.insert(all.end(), words.begin(), words.end());
    return program_.run(all);
  }
  void expectError(const std::vector<std::string>& words, const std::string& line) const {
    const ProgramResult result = run(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "ERROR: " + line + "\n");
  }

  const TempDir dir_;
  Program program_;
};

TEST_F(DemoScript, HelpListsItsOptions) {
  const ProgramResult result = run({"-help"});
  EXPECT_EQ(result.status, 0);
  for (const std::string option :
       {"-shares", "-lambda", "-mu", "-epsilon", "-spread", "-sigma", "-thr", "-iterations"}) {
    EXPECT_NE(result.out.find("\n" + option + " "), std::string::npos) << option;
  }
}

TEST_F(DemoScript, WrongOptions) {
  expectError({"-gamma", "5"}, "unknown option -gamma; see scripts/demo.sh -help");
  expectError({"-"}, "unknown option -; see scripts/demo.sh -help");
  expectError({"-mu"}, "-mu needs a value");
  expectError({"a", "b"}, "expected one folder, but found \"a\" and \"b\"");
}

TEST_F(DemoScript, FoldersWithoutTheThreePictures) {
  expectError({"my pictures"}, "expected a folder, but found none at \"my pictures\"");
  std::filesystem::create_directory(dir_.file("my pictures"));
  const std::string folder = std::filesystem::canonical(dir_.file("my pictures")).string();
  expectError({"my pictures"}, "expected one file image.* in \"" + folder + "\", but found 0");
  std::ofstream(folder + "/image.tif");
  std::ofstream(folder + "/image.png");
  expectError({"my pictures"}, "expected one file image.* in \"" + folder + "\", but found 2");
  std::filesystem::remove(folder + "/image.png");
  expectError({"my pictures"}, "expected a file \"" + folder + "/scribbles.png\", but found none");
}

}  // namespace
}  // namespace namespace_ratseg
