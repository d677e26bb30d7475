#include "app/hard_costs.h"

#include <cfloat>
#include <string>

#include "app/messages.h"

namespace namespace_ratseg {

namespace {

// The entries that is holds for; empty where there are none.
template <class Is>
std::vector<bool> entries(const float* values, std::size_t count, Is is) {
  std::vector<bool> found;
  for (std::size_t k = 0; k < count; ++k) {
    if (!is(values[k])) continue;
    if (found.empty()) found.resize(count);
    found[k] = true;
  }
  return found;
}

void warnOfPixels(std::size_t some, std::size_t all, const std::string& what) {
  if (some == 0) return;
  warn(std::to_string(some) + " of " + std::to_string(all) + (all == 1 ? " pixel" : " pixels") +
       (some == 1 ? " has " : " have ") + what);
}

}  // namespace

HardCosts::HardCosts(const float* dataterm, std::size_t pixels, std::size_t n)
    : pixels_(pixels),
      forbidden_(entries(dataterm, pixels * n, [](float cost) { return cost >= FLT_MAX; })),
      forced_(entries(dataterm, pixels * n, [](float cost) { return cost <= -FLT_MAX; })) {}

void HardCosts::warnOfLabeling(const std::vector<int>& labeling) const {
  std::size_t forbidden = 0;
  std::size_t notForced = 0;
  for (std::size_t p = 0; p < pixels_; ++p) {
    const std::size_t own = static_cast<std::size_t>(labeling[p]) * pixels_ + p;
    if (!forbidden_.empty() && forbidden_[own]) ++forbidden;
    if (forced_.empty() || forced_[own]) continue;
    for (std::size_t k = p; k < forced_.size(); k += pixels_) {
      if (!forced_[k]) continue;
      ++notForced;
      break;
    }
  }
  warnOfPixels(forbidden, pixels_, "a label that the data term forbids there");
  warnOfPixels(notForced, pixels_, "another label than the one that the data term forces there");
}

}  // namespace namespace_ratseg
