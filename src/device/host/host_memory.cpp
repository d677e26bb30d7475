#include "device/host/host_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace namespace_ratseg {

namespace {

constexpr std::size_t kAlignment = 256;  // as device allocations are aligned
constexpr std::size_t kHugePage = std::size_t{2} << 20;

bool isLarge(std::size_t bytes) { return bytes >= 2 * kHugePage; }

// bytes rounded up to a multiple of unit; less than bytes on overflow.
std::size_t roundUp(std::size_t bytes, std::size_t unit) {
  return (bytes + unit - 1) / unit * unit;
}

// Asks for a huge page more than needed and gives back what lies before the first one and behind
// the last.
void* mapPages(std::size_t bytes) {
  const std::size_t needed = roundUp(bytes, kHugePage);
  const std::size_t asked = needed + kHugePage;
  if (needed < bytes || asked < needed) return nullptr;
  void* const mapped =
      mmap(nullptr, asked, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return nullptr;
  char* const start = static_cast<char*>(mapped);
  const std::size_t before = -reinterpret_cast<std::uintptr_t>(start) % kHugePage;
  const std::size_t behind = kHugePage - before;
  if (before > 0) munmap(start, before);
  if (behind > 0) munmap(start + before + needed, behind);
#if defined(MADV_HUGEPAGE)
  madvise(start + before, needed, MADV_HUGEPAGE);
#endif
  return start + before;
}

}  // namespace

void* allocateHostMemory(std::size_t bytes) {
  if (isLarge(bytes)) return mapPages(bytes);
  return std::aligned_alloc(kAlignment, roundUp(bytes, kAlignment));
}

void* allocateZeroedHostMemory(std::size_t bytes) {
  void* const memory = allocateHostMemory(bytes);
  if (memory != nullptr && !isLarge(bytes)) std::memset(memory, 0, bytes);
  return memory;
}

void releaseHostMemory(void* memory, std::size_t bytes) {
  if (isLarge(bytes)) {
    munmap(memory, roundUp(bytes, kHugePage));
  } else {
    std::free(memory);
  }
}

}  // namespace namespace_ratseg
