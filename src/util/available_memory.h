#ifndef RATSEG_UTIL_AVAILABLE_MEMORY_H
#define RATSEG_UTIL_AVAILABLE_MEMORY_H

#include <cstdint>
#include <optional>
#include <string>

namespace namespace_ratseg {

// Bytes of memory that this process can still get without swapping: what the system has available,
// or less where a control group (version 1 or 2) allows less. Nothing where the system does not
// say. root is put before the names of the system's files, for tests.
std::optional<std::uint64_t> availableMemory(const std::string& root = "");

// A number of bytes for people: "12.5 MiB", "3.0 GiB".
std::string memoryText(double bytes);

}  // namespace namespace_ratseg

#endif
