#include "app/dataterm/work_line.h"

#include <unistd.h>

#include <cmath>

namespace namespace_ratseg {

WorkLine::WorkLine()
    : isShown_(isatty(STDERR_FILENO) == 1),
      next_(Clock::now() + std::chrono::seconds(2)),
      line_(STDERR_FILENO) {}

void WorkLine::show(const std::string& work, double part) {
  if (!isShown_ || Clock::now() < next_) return;
  next_ = Clock::now() + std::chrono::milliseconds(200);
  line_.show("ratseg-dataterm: " + work + ", " + std::to_string(std::lround(100 * part)) + " %");
}

}  // namespace namespace_ratseg
