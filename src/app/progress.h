#ifndef RATSEG_APP_PROGRESS_H
#define RATSEG_APP_PROGRESS_H

// Shows the progress of a run on standard error.

#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <string>

#include "algorithms/rat_segments/alg/params.h"
#include "device/console.h"

namespace namespace_ratseg {

// The choice of the user: -progress 0, -progress 1, or nothing.
enum class ProgressWanted { never, always, automatic };

// The form in which progress is shown.
struct ProgressForm {
  bool isRewritten;  // one line of a terminal, erased at the end; otherwise lines of a log
  double begin;      // seconds of the run before the first line
  double every;      // and between two
};

// None where no progress is to be shown. Without a choice it is shown on terminals only, and only
// for long runs.
std::optional<ProgressForm> progressForm(ProgressWanted wanted, bool isTerminal);

// A moment of a run.
struct ProgressMoment {
  std::size_t done = 0;   // iterations
  std::size_t limit = 0;  // after which it ends
  double seconds = 0;
  double gap = std::numeric_limits<double>::quiet_NaN();  // of the last check; NaN: none
  double tolerance = 0;                                   // 0: it does not end before
};

// "1200 of 5000 iterations, 35.2 per second, 1 min 48 s left", and the gap.
std::string progressText(const ProgressMoment& moment);

// The line for a log when the run has ended: "5000 of 5000 iterations in 2 min 22 s, 35.2 per
// second".
std::string progressEnd(const ProgressMoment& moment);

// A time for people: "0 s", "1 min 05 s", "2 h 00 min", "12 days".
std::string durationText(double seconds);

// The stream that shows progress, and the clock.
class ProgressScreen {
 public:
  virtual ~ProgressScreen() = default;
  virtual void show(const std::string& line) = 0;
  virtual void erase() {}
  // Seconds from any moment on.
  virtual double now();
};

// Shows the progress of the solver's run. It only looks at the clock and at the counts: the run is
// the same with and without.
class Progress final : public RunWatcher {
 public:
  Progress(const Params& par, const ProgressForm& form, ProgressScreen& screen);
  bool goOn(RunState& state) override;
  // When the run has ended.
  void end(const Statistics& statistics);

 private:
  ProgressMoment moment(const Statistics& statistics, double now) const;

  const Params& par_;
  ProgressForm form_;
  ProgressScreen& screen_;
  double start_;
  double next_;
};

// Calls run(), which runs the solver of these parameters, with its progress on standard error as it
// is wanted. statistics are the solver's.
void runWithProgress(Params& par, const Statistics& statistics, ProgressWanted wanted,
                     const std::function<void()>& run);

}  // namespace namespace_ratseg

#endif
