// For scripts/tsan.sh: does the thread sanitizer see a race between the bodies of a host launch,
// and does it keep quiet about the same launch without one? Built with RACE=1 and with RACE=0.

#include <vector>

#include "device/host/host_launch.h"

int main() {
  const std::size_t count = 100000;
  std::vector<float> values(count, 1.0f);
  for (int launch = 0; launch < 4; ++launch) {
    namespace_ratseg::parallelFor(count, count,
                                  [&](std::size_t i) { values[RACE ? 0 : i] += 1.0f; });
  }
  return values[count - 1] > 5.0f ? 1 : 0;
}
