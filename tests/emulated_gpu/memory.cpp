#include "memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "threads.h"

namespace emulated_gpu {

namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kArena = std::size_t{1} << 40;  // of addresses per device
constexpr std::size_t kApart = std::size_t{1}
                               << 20;  // of untouchable addresses between allocations
constexpr std::size_t kGranule = 256;  // where a GPU's allocations start
constexpr std::size_t kWidest = 16;    // what one thread reads at a time
constexpr std::size_t kMostPoisoned = std::size_t{64} << 20;

constexpr char kNew = '\xff';

std::size_t roundedUp(std::size_t bytes, std::size_t to) { return (bytes + to - 1) / to * to; }

}  // namespace

Memory::Memory(int devices, std::size_t bytesPerDevice)
    : most_(bytesPerDevice), devices_(static_cast<std::size_t>(devices)) {
  for (Device& d : devices_) {
    void* arena =
        mmap(nullptr, kArena, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (arena == MAP_FAILED) {
      std::perror("emulated GPU: addresses for a device's memory");
      std::abort();
    }
    d.arena = static_cast<char*>(arena);
  }
}

// Pages of its own, with many untouchable addresses on both sides. It starts with its pages, or
// ends with them as nearly as its alignment allows, so that runs of many seeds see both ends.
void* Memory::allocate(int device, std::size_t bytes) {
  Device& d = devices_[static_cast<std::size_t>(device)];
  if (bytes > most_ || d.used + roundedUp(bytes, kGranule) > most_) return nullptr;
  Block block;
  block.bytes = bytes;
  block.pageBytes = roundedUp(bytes, kPage);
  block.pages = d.arena + d.next + kApart;
  d.next += block.pageBytes + kApart;
  if (d.next + kApart > kArena) fault("no addresses are left");
  protect(block, true);
  const std::size_t slack = block.pageBytes - roundedUp(bytes, kWidest);
  char* p = block.pages + (anyOf(2) == 0 ? 0 : slack);
  if (bytes <= kMostPoisoned) std::memset(p, kNew, bytes);
  fillAround(p, block);
  if (!d.isOpen) protect(block, false);
  d.used += roundedUp(bytes, kGranule);
  d.blocks[p] = block;
  return p;
}

bool Memory::free(void* p) {
  for (Device& d : devices_) {
    const auto found = d.blocks.find(static_cast<char*>(p));
    if (found == d.blocks.end()) continue;
    const Block& block = found->second;
    protect(block, true);
    if (!isUntouchedAround(found->first, block)) fault("a write beyond the ends of an allocation");
    protect(block, false);
    madvise(block.pages, block.pageBytes, MADV_DONTNEED);
    d.used -= roundedUp(block.bytes, kGranule);
    d.blocks.erase(found);
    return true;
  }
  return false;
}

std::size_t Memory::freeBytes(int device) const {
  return most_ - devices_[static_cast<std::size_t>(device)].used;
}

bool Memory::contains(const void* p, std::size_t bytes) const {
  const int device = deviceOf(p);
  if (device < 0) return false;
  const auto& blocks = devices_[static_cast<std::size_t>(device)].blocks;
  const auto* at = static_cast<const char*>(p);
  const auto block = std::prev(blocks.upper_bound(const_cast<char*>(at)));
  return bytes <= block->second.bytes - static_cast<std::size_t>(at - block->first);
}

int Memory::deviceOf(const void* p) const {
  auto* at = static_cast<char*>(const_cast<void*>(p));
  for (std::size_t d = 0; d < devices_.size(); ++d) {
    const auto& blocks = devices_[d].blocks;
    const auto next = blocks.upper_bound(at);
    if (next == blocks.begin()) continue;
    const auto& [start, block] = *std::prev(next);
    if (static_cast<std::size_t>(at - start) < block.bytes) return static_cast<int>(d);
  }
  return -1;
}

bool Memory::isDeviceAddress(const void* p) const {
  const auto* at = static_cast<const char*>(p);
  return std::any_of(devices_.begin(), devices_.end(),
                     [at](const Device& d) { return d.arena <= at && at < d.arena + kArena; });
}

void Memory::open(const std::vector<bool>& devices) {
  for (std::size_t d = 0; d < devices_.size(); ++d) {
    if (devices_[d].isOpen == devices[d]) continue;
    devices_[d].isOpen = devices[d];
    for (const auto& [start, block] : devices_[d].blocks) protect(block, devices[d]);
  }
}

void Memory::protect(const Block& block, bool open) {
  mprotect(block.pages, block.pageBytes, open ? PROT_READ | PROT_WRITE : PROT_NONE);
}

void Memory::fillAround(const char* p, const Block& block) {
  char* behind = block.pages + (p - block.pages) + block.bytes;
  std::fill(block.pages, block.pages + (p - block.pages), kNew);
  std::fill(behind, block.pages + block.pageBytes, kNew);
}

bool Memory::isUntouchedAround(const char* p, const Block& block) {
  const char* end = block.pages + block.pageBytes;
  const auto isNew = [](char c) { return c == kNew; };
  return std::all_of<const char*>(block.pages, p, isNew) &&
         std::all_of(p + block.bytes, end, isNew);
}

}  // namespace emulated_gpu
