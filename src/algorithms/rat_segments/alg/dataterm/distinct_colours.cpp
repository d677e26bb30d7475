#include "algorithms/rat_segments/alg/dataterm/distinct_colours.h"

#include <bit>

namespace namespace_ratseg {

namespace {

std::uint64_t hashOf(const float4& c) {
  std::uint64_t h = std::bit_cast<std::uint32_t>(c.x) * 0x9E3779B97F4A7C15ull;
  h = (h ^ (h >> 29) ^ std::bit_cast<std::uint32_t>(c.y)) * 0xBF58476D1CE4E5B9ull;
  h = (h ^ (h >> 32) ^ std::bit_cast<std::uint32_t>(c.z)) * 0x94D049BB133111EBull;
  return h ^ (h >> 31);
}

bool sameColour(const float4& a, const float4& b) {
  const auto bits = [](float f) { return std::bit_cast<std::uint32_t>(f); };
  return bits(a.x) == bits(b.x) && bits(a.y) == bits(b.y) && bits(a.z) == bits(b.z);
}

constexpr std::uint32_t kEmpty = 0xFFFFFFFFu;

// Open-addressing slots that hold places in colours.
class Slots {
 public:
  Slots() : slots_(1024, kEmpty) {}

  // The slot of colour c: either the one that holds it or the empty one where it belongs.
  std::uint32_t& find(const float4& c, const std::vector<float4>& colours) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t s = hashOf(c) & mask;
    while (slots_[s] != kEmpty && !sameColour(colours[slots_[s]], c)) s = (s + 1) & mask;
    return slots_[s];
  }

  void growFor(const std::vector<float4>& colours) {
    if (colours.size() * 2 < slots_.size()) return;
    slots_.assign(slots_.size() * 4, kEmpty);
    for (std::size_t k = 0; k < colours.size(); ++k) {
      find(colours[k], colours) = static_cast<std::uint32_t>(k);
    }
  }

 private:
  std::vector<std::uint32_t> slots_;  // a power of two
};

}  // namespace

DistinctColours::DistinctColours(const float4* list, std::size_t listCount) : index(listCount) {
  Slots slots;
  for (std::size_t k = 0; k < listCount; ++k) {
    std::uint32_t& slot = slots.find(list[k], colours);
    std::uint32_t place = slot;
    if (place == kEmpty) {
      place = static_cast<std::uint32_t>(colours.size());
      slot = place;
      colours.push_back(list[k]);
      count.push_back(0);
      slots.growFor(colours);
    }
    index[k] = place;
    ++count[place];
  }
}

}  // namespace namespace_ratseg
