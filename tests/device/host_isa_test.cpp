// The choice of the instruction set.

#include "device/host/host_isa.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace namespace_ratseg {
namespace {

TEST(HostIsa, TheBaselineIsAlwaysThereAndFirst) {
  const auto isas = usableHostIsas();
  ASSERT_FALSE(isas.empty());
  EXPECT_EQ(isas.front(), HostIsa::baseline);
}

// Each in a process of its own, which has not read its environment yet.
TEST(HostIsaDeathTest, FollowsTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const HostIsa isa : usableHostIsas()) {
    EXPECT_EXIT(
        {
          setenv("RATSEG_ISA", nameOf(isa), 1);
          std::exit(hostIsa() == isa ? 0 : 2);
        },
        testing::ExitedWithCode(0), "");
  }
  EXPECT_EXIT(
      {
        setenv("RATSEG_ISA", "mmx", 1);
        hostIsa();
      },
      testing::ExitedWithCode(1), "ERROR: RATSEG_ISA must be one");
}

TEST(HostIsaDeathTest, WithoutTheEnvironmentIsTheBestThatTheProcessorRuns) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        unsetenv("RATSEG_ISA");
        std::exit(hostIsa() == usableHostIsas().back() ? 0 : 2);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace namespace_ratseg
