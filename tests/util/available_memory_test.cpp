#include "util/available_memory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/temp_dir.h"

namespace namespace_ratseg {
namespace {

// A machine whose files say what the tests want.
class AvailableMemory : public testing::Test {
 protected:
  void save(const std::string& name, const std::string& text) const {
    const std::filesystem::path path = dir_.path() / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
  }
  std::uint64_t available() const {
    return availableMemory(dir_.path().string()).value_or(kUnknown);
  }
  static constexpr std::uint64_t kUnknown = 4711;
  const TempDir dir_;
};

TEST_F(AvailableMemory, IsUnknownWhereTheSystemDoesNotSay) {
  EXPECT_EQ(available(), kUnknown);
  save("proc/meminfo", "MemTotal: 8 kB\nMemFree: 3 kB\n");
  EXPECT_EQ(available(), kUnknown);
}

TEST_F(AvailableMemory, IsWhatTheSystemHas) {
  save("proc/meminfo", "MemTotal:  8 kB\nMemFree: 3 kB\nMemAvailable:   5 kB\nCached: 1 kB\n");
  EXPECT_EQ(available(), 5 * 1024u);
  save("proc/self/cgroup", "no such line\n0::/\n");
  EXPECT_EQ(available(), 5 * 1024u);
}

TEST_F(AvailableMemory, IsWhatTheGroupAndThoseAboveAllow) {
  save("proc/meminfo", "MemAvailable: 1000 kB\n");
  save("proc/self/cgroup", "0::/outer/inner\n");
  const std::string outer = "sys/fs/cgroup/outer/", inner = outer + "inner/";
  save(inner + "memory.max", "max\n");
  save(inner + "memory.current", "400000\n");
  EXPECT_EQ(available(), 1000 * 1024u);
  save(inner + "memory.max", "500000\n");
  EXPECT_EQ(available(), 100000u);
  save(inner + "memory.stat", "anon 370000\ninactive_file 30000\n");
  EXPECT_EQ(available(), 130000u);
  save(outer + "memory.max", "600000\n");
  save(outer + "memory.current", "590000\n");
  EXPECT_EQ(available(), 10000u);
  save(outer + "memory.current", "700000\n");
  EXPECT_EQ(available(), 0u);
}

TEST_F(AvailableMemory, OfAContainerIsThatOfTheMountsTop) {
  save("proc/self/cgroup", "0::/docker/0123\n");
  save("sys/fs/cgroup/memory.max", "500\n");
  save("sys/fs/cgroup/memory.current", "100\n");
  EXPECT_EQ(available(), 400u);
}

TEST_F(AvailableMemory, OfGroupsOfTheFirstVersion) {
  save("proc/self/cgroup", "5:cpu:/\n4:memory:/group\n0::/\n");
  const std::string group = "sys/fs/cgroup/memory/group/";
  save(group + "memory.limit_in_bytes", "500\n");
  save(group + "memory.usage_in_bytes", "300\n");
  save(group + "memory.stat", "inactive_file 1\ntotal_inactive_file 20\n");
  EXPECT_EQ(available(), 220u);
}

TEST(MemoryText, IsInMiBUpToAGiB) {
  EXPECT_EQ(memoryText(1.5 * (1 << 20)), "1.5 MiB");
  EXPECT_EQ(memoryText(1023.0 * (1 << 20)), "1023.0 MiB");
  EXPECT_EQ(memoryText(2.5 * (1 << 30)), "2.5 GiB");
}

}  // namespace
}  // namespace namespace_ratseg
