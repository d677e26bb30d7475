#include "app/stage_times.h"

#include <cstdio>
#include <ostream>

namespace namespace_ratseg {

void StageTimes::begin(const std::string& stage) {
  end();
  stages_.emplace_back(stage, 0.0);
  running_ = true;
  start_ = std::chrono::steady_clock::now();
}

void StageTimes::end() {
  if (!running_) return;
  stages_.back().second =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  running_ = false;
}

void StageTimes::print(std::ostream& out) {
  end();
  double sum = 0;
  char seconds[32];
  out << "Seconds of wall time:\n";
  for (const auto& [stage, time] : stages_) {
    std::snprintf(seconds, sizeof seconds, "%10.3f", time);
    out << seconds << "  " << stage << "\n";
    sum += time;
  }
  std::snprintf(seconds, sizeof seconds, "%10.3f", sum);
  out << seconds << "  in all" << std::endl;
}

}  // namespace namespace_ratseg
