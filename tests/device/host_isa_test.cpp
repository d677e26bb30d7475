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

TEST(HostIsa, IsFoundByName) {
  const auto isas = usableHostIsas();
  std::string error;
  for (const HostIsa isa : isas) {
    HostIsa found = HostIsa::baseline;
    EXPECT_TRUE(findHostIsa(isas, nameOf(isa), found, error));
    EXPECT_EQ(found, isa);
  }
  EXPECT_EQ(error, "");
}

TEST(HostIsa, UnknownNamesAreRefused) {
  std::string error;
  HostIsa found = HostIsa::avx2;
  EXPECT_FALSE(findHostIsa({HostIsa::baseline, HostIsa::avx2}, "mmx", found, error));
  EXPECT_EQ(found, HostIsa::avx2);
  EXPECT_EQ(error,
            "ERROR: RATSEG_ISA must be one that this program has and this processor runs "
            "(baseline, avx2), but is \"mmx\"");
}

TEST(HostIsa, FollowsTheEnvironment) {
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

TEST(HostIsa, WithoutTheEnvironmentIsTheBestThatTheProcessorRuns) {
  EXPECT_EXIT(
      {
        unsetenv("RATSEG_ISA");
        std::exit(hostIsa() == usableHostIsas().back() ? 0 : 2);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace namespace_ratseg
