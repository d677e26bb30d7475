#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "device/source_location.h"

#include <gtest/gtest.h>

#include <set>

#include "support/machine.h"

namespace namespace_ratseg {
namespace {

TEST(CheckedSteps, EachFilesLinesHaveThousandsOfTheirOwn) {
  EXPECT_EQ(printedLine("/a/b/plain/plain_steps.cpp", 12), 1012u);
  EXPECT_EQ(printedLine("solver_state.cpp", 12), 7012u);
  EXPECT_EQ(printedLine("src/rat_seg_impl.cpp", 12), 12u);
  EXPECT_EQ(printedLine("src/my_rat_seg_impl_run.cpp", 12), 12u);
  std::set<unsigned long> begins;
  for (const FileLines& lines : kFileLines) begins.insert(lines.begin);
  EXPECT_EQ(begins.size(), std::size(kFileLines));
}

// The ring has the line of the call, not that of the function behind it.
TEST(CheckedSteps, ChecksNameTheLineThatTheyStandIn) {
  const HostMachine machine;
  const auto last = [] { return lastcalls[(lastcalls_pos + kLastCalls - 1) % kLastCalls]; };
  const unsigned long line = SourceLocation::current().line();
  check();
  EXPECT_EQ(last(), (std::pair<std::string, unsigned long>(kImplPath, line + 1)));
  checkMalloc();
  EXPECT_EQ(last(), (std::pair<std::string, unsigned long>(kImplPath, line + 3)));
  cuda_check("some/file");
  EXPECT_EQ(last(), (std::pair<std::string, unsigned long>("some/file", line + 5)));
}

}  // namespace
}  // namespace namespace_ratseg
