// Which option file is read, and which is not.

#include <sys/stat.h>

#include <filesystem>

#include "app/ratseg_program.h"

namespace namespace_ratseg {
namespace {

class RatsegOptionFile : public RatsegProgram {
 protected:
  // A program of its own in the folder bin, as it is found through PATH.
  void installIntoBin() {
    std::filesystem::create_directory(dir_.file("bin"));
    std::filesystem::copy_file(program_.path, dir_.file("bin/ratseg"));
    program_.path = dir_.file("bin/ratseg");
  }
  // Its path as the system knows it.
  std::string bin() const { return std::filesystem::canonical(dir_.file("bin")).string(); }

  void expectNotRead(const std::string& fault) const {
    const ProgramResult result = run();
    const std::string line =
        "the option file \"./ratseg.cfg\" is not read: expected a regular file of at most 1048576 "
        "bytes, but it " +
        fault + "\n";
    EXPECT_TRUE(result.out.starts_with(wholeEcho()));
    EXPECT_EQ(withoutShares(result.err),
              "ratseg: warning: " + line + "ratseg: warning (repeated): " + line);
    EXPECT_EQ(result.status, 0);
  }
};

TEST_F(RatsegOptionFile, BesideTheProgramAsItWasTypedIsReadAndNamed) {
  saveText("ratseg.cfg", "weightcoeff 3\n");
  const ProgramResult result = run();
  EXPECT_NE(result.out.find("\n-weightcoeff 3\n"), std::string::npos);
  EXPECT_EQ(withoutShares(result.err), "ratseg: options from \"./ratseg.cfg\"\n");
}

TEST_F(RatsegOptionFile, ThatIsNoneIsToldAndNotWaitedFor) {
  std::filesystem::create_directory(dir_.file("ratseg.cfg"));
  expectNotRead("is a folder");
  std::filesystem::remove(dir_.file("ratseg.cfg"));
  ASSERT_EQ(mkfifo(dir_.file("ratseg.cfg").c_str(), 0600), 0);
  expectNotRead("is not a regular file");
  std::filesystem::remove(dir_.file("ratseg.cfg"));
  std::filesystem::create_symlink("/dev/zero", dir_.file("ratseg.cfg"));
  expectNotRead("is not a regular file");
  std::filesystem::remove(dir_.file("ratseg.cfg"));
  saveText("ratseg.cfg", "mu 77\n" + std::string(1 << 20, '#'));
  expectNotRead("has more than 1048576 bytes");
}

TEST_F(RatsegOptionFile, OfTheWholeSizeIsRead) {
  const std::string text = "weightcoeff 3\n";
  saveText("ratseg.cfg", text + std::string((1 << 20) - text.size(), '#'));
  EXPECT_NE(run().out.find("\n-weightcoeff 3\n"), std::string::npos);
}

TEST_F(RatsegOptionFile, OfAProgramFoundThroughPathIsBesideIt) {
  installIntoBin();
  saveText("ratseg.cfg", "weightcoeff 3\n");
  saveText("bin/ratseg.cfg", "weightcoeff 4\n");
  const ProgramResult result = program_.run(commandLine(), "ratseg");
  EXPECT_NE(result.out.find("\n-weightcoeff 4\n"), std::string::npos);
  EXPECT_TRUE(result.err.starts_with(
      "ratseg: warning: \"./ratseg.cfg\" is not read: the program was found through PATH, and its "
      "option file is \"" +
      bin() + "/ratseg.cfg\"\nratseg: options from \"" + bin() + "/ratseg.cfg\"\n"))
      << result.err;
}

TEST_F(RatsegOptionFile, InTheCurrentFolderIsNotThatOfAProgramFoundThroughPath) {
  installIntoBin();
  saveText("ratseg.cfg", "weightcoeff 3\n");
  const ProgramResult result = program_.run(commandLine(), "ratseg");
  EXPECT_EQ(withoutTime(result.out).substr(0, wholeEcho().size()), wholeEcho());
  EXPECT_TRUE(result.err.starts_with("ratseg: warning: \"./ratseg.cfg\" is not read: "));
  EXPECT_EQ(result.err.find("options from"), std::string::npos);
}

TEST_F(RatsegOptionFile, OfAProgramInTheCurrentFolderFoundThroughPathIsRead) {
  installIntoBin();
  saveText("bin/ratseg.cfg", "weightcoeff 4\n");
  program_.folder = dir_.file("bin");
  const ProgramResult result = program_.run(commandLine({{"-image", "../image.png"},
                                                         {"-proportions", "../proportions.txt"},
                                                         {"-dataterm", "../dataterm.gz"}}),
                                            "ratseg");
  EXPECT_NE(result.out.find("\n-weightcoeff 4\n"), std::string::npos);
  EXPECT_EQ(withoutShares(result.err), "ratseg: options from \"" + bin() + "/ratseg.cfg\"\n");
}

// Links in PATH lead to the program.
TEST_F(RatsegOptionFile, HasTheRealNameOfAProgramFoundThroughPath) {
  installIntoBin();
  std::filesystem::create_symlink("bin/ratseg", dir_.file("segment"));
  program_.path = dir_.file("segment");
  saveText("bin/ratseg.cfg", "weightcoeff 4\n");
  const ProgramResult result = program_.run(commandLine(), "segment");
  EXPECT_NE(result.out.find("\n-weightcoeff 4\n"), std::string::npos);
}

TEST_F(RatsegOptionFile, IsNotNamedOnTheUsageScreen) {
  saveText("ratseg.cfg", "weightcoeff 3\n");
  EXPECT_TRUE(runWords({"-help"}).err.starts_with("Also: -device"));
}

}  // namespace
}  // namespace namespace_ratseg
