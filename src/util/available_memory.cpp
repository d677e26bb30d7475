#include "util/available_memory.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <vector>

namespace namespace_ratseg {

namespace {

using Bytes = std::optional<std::uint64_t>;

// The number behind the word at the begin of a line: "MemAvailable: 1234 kB", "cache 77".
Bytes numberBehind(const std::string& file, const std::string& word) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    std::string first;
    std::uint64_t number = 0;
    if (words >> first >> number && first == word) return number;
  }
  return {};
}

// The number that a file holds; nothing for a word such as "max".
Bytes numberIn(const std::string& file) {
  std::uint64_t number = 0;
  return std::ifstream(file) >> number ? Bytes(number) : Bytes();
}

struct Names {
  const char* limit;
  const char* used;
  const char* cache;  // what the system gives up when memory is short, in memory.stat
};
constexpr Names kVersion1 = {"memory.limit_in_bytes", "memory.usage_in_bytes",
                             "total_inactive_file"};
constexpr Names kVersion2 = {"memory.max", "memory.current", "inactive_file"};

Bytes leftIn(const std::string& folder, const Names& names) {
  const Bytes limit = numberIn(folder + names.limit);
  const Bytes used = numberIn(folder + names.used);
  if (!limit || !used) return {};
  const std::uint64_t cache = numberBehind(folder + "memory.stat", names.cache).value_or(0);
  const std::uint64_t kept = *used - std::min(*used, cache);
  return *limit - std::min(*limit, kept);
}

void lower(Bytes& lowest, const Bytes& other) {
  if (other && (!lowest || *other < *lowest)) lowest = other;
}

// A group and all groups above it, which limit it too. Inside a container its own group is the
// mount's top, whatever its path is called outside.
Bytes leftInGroups(const std::string& mount, std::string path, const Names& names) {
  Bytes lowest;
  for (;;) {
    lower(lowest, leftIn(mount + path + "/", names));
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return lowest;
    path.resize(slash);
  }
}

}  // namespace

Bytes availableMemory(const std::string& root) {
  Bytes lowest;
  if (const Bytes kib = numberBehind(root + "/proc/meminfo", "MemAvailable:")) lowest = *kib * 1024;
  std::ifstream groups(root + "/proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {  // "number:controllers:path"
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first + 1);
    if (first == std::string::npos || second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    const std::string path = line.substr(second + 1);
    const std::string mount = root + "/sys/fs/cgroup";
    if (controllers.empty()) lower(lowest, leftInGroups(mount, path, kVersion2));
    if (controllers == "memory") lower(lowest, leftInGroups(mount + "/memory", path, kVersion1));
  }
  return lowest;
}

std::string memoryText(double bytes) {
  const double mib = bytes / (1 << 20);
  char text[64];
  if (mib < 1024) {
    std::snprintf(text, sizeof text, "%.1f MiB", mib);
  } else {
    std::snprintf(text, sizeof text, "%.1f GiB", mib / 1024);
  }
  return text;
}

}  // namespace namespace_ratseg
