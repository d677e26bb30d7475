#ifndef RATSEG_APP_DATATERM_WORK_LINE_H
#define RATSEG_APP_DATATERM_WORK_LINE_H

#include <chrono>
#include <string>

#include "app/status_line.h"

namespace namespace_ratseg {

// Says on a terminal how far long work is: "ratseg-dataterm: learning, 40 %". Nothing elsewhere,
// and nothing of work that is soon done.
class WorkLine {
 public:
  WorkLine();

  // part is 0 to 1. For one thread at a time.
  void show(const std::string& work, double part);
  void erase() { line_.erase(); }

 private:
  using Clock = std::chrono::steady_clock;

  bool isShown_;  // whether there is a terminal
  Clock::time_point next_;
  StatusLine line_;
};

}  // namespace namespace_ratseg

#endif
