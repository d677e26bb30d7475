// -version of all programs.

#include <gmock/gmock.h>

#include <QtGlobal>
#include <sstream>
#include <string>
#include <vector>

#include "device/host/host_isa.h"
#include "support/program.h"

namespace namespace_ratseg {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

std::vector<std::string> split(const std::string& text, char at) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, at);) parts.push_back(part);
  return parts;
}

ProgramResult run(const std::string& name, const std::vector<std::string>& words) {
  Program program;
  program.path = RATSEG_BIN_DIR "/" + name;
  program.environment = {{"RATSEG_DEVICE", "host"}};
  return program.run(words);
}

// The lines that the program says with -version.
std::vector<std::string> version(const std::string& name) {
  const ProgramResult result = run(name, {"-version"});
  EXPECT_EQ(result.status, 0) << name;
  EXPECT_EQ(result.err, "") << name;
  EXPECT_EQ(run(name, {"--version"}).out, result.out);
  return split(result.out, '\n');
}

// Qt's line is empty for programs without Qt.
void expectVersion(const std::string& name, const std::string& qt) {
  std::vector<std::string> lines = version(name);
  if (qt.empty()) lines.emplace_back();
  EXPECT_THAT(lines,
              ElementsAre(name + " " + RATSEG_VERSION,
                          MatchesRegex("commit: (unknown|[0-9a-f]+(, with changes)?)"),
                          MatchesRegex("compiler: [A-Za-z]+ [0-9.]+"),
                          MatchesRegex("backends: host(, CUDA .+)?"),
                          AllOf(StartsWith("instruction sets: baseline"),
                                EndsWith(std::string("; on this machine ") + nameOf(hostIsa()))),
                          qt))
      << name;
}

TEST(Version, IsWhatTheProgramsWereBuiltFrom) {
  for (const std::string& name : split(RATSEG_PROGRAMS, ',')) {
    expectVersion(name,
                  std::string("Qt: built with ") + QT_VERSION_STR + ", runs with " + qVersion());
  }
  for (const std::string& name : split(RATSEG_PROGRAMS_WITHOUT_QT, ',')) expectVersion(name, "");
}

TEST(Version, NamesTheInstructionSetThatIsForced) {
  Program program;
  program.path = RATSEG_BIN_DIR "/ratseg";
  program.environment = {{"RATSEG_ISA", "baseline"}};
  EXPECT_THAT(program.run({"-version"}).out, HasSubstr("; on this machine baseline\n"));
}

TEST(Version, IsAskedForAlone) {
  EXPECT_THAT(run("ratseg", {"-version", "1"}).out, StartsWith("Params: \n"));
  EXPECT_EQ(run("ratseg-dataterm", {"-version", "1"}).status, 1);
}

}  // namespace
}  // namespace namespace_ratseg
