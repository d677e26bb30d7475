#ifndef RATSEG_APP_STAGE_TIMES_H
#define RATSEG_APP_STAGE_TIMES_H

#include <chrono>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace namespace_ratseg {

// Wall-clock seconds of the stages of a run, one after the other.
class StageTimes {
 public:
  // Ends the stage before and begins this one.
  void begin(const std::string& stage);
  void end();

  // One line per stage in the order of their beginnings, then their sum. Ends what is running.
  void print(std::ostream& out);

 private:
  std::vector<std::pair<std::string, double>> stages_;
  std::chrono::steady_clock::time_point start_;
  bool running_ = false;
};

}  // namespace namespace_ratseg

#endif
