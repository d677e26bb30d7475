#include "app/progress.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>

#include "app/messages.h"
#include "app/status_line.h"

namespace namespace_ratseg {

namespace {

std::string formatted(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// Three digits, or the whole number.
std::string numberText(double value) { return formatted(value < 100 ? "%.3g" : "%.0f", value); }

std::string countText(const ProgressMoment& moment) {
  return std::to_string(moment.done) + " of " + std::to_string(moment.limit) + " iterations";
}

// Empty before there is anything to measure.
std::string rateText(const ProgressMoment& moment) {
  if (moment.done == 0 || !(moment.seconds > 0)) return "";
  return ", " + numberText(static_cast<double>(moment.done) / moment.seconds) + " per second";
}

class TerminalScreen final : public ProgressScreen {
 public:
  void show(const std::string& line) override { line_.show("ratseg: " + line); }
  void erase() override { line_.erase(); }

 private:
  StatusLine line_{STDERR_FILENO};
};

class LogScreen final : public ProgressScreen {
 public:
  void show(const std::string& line) override { note(line); }
};

// Erases the progress before it passes on the solver's output.
class ErasingConsole final : public Console {
 public:
  explicit ErasingConsole(ProgressScreen& screen) : screen_(screen) {}
  std::ostream& out() override {
    screen_.erase();
    return before_.out();
  }
  std::ostream& error() override {
    screen_.erase();
    return before_.error();
  }

 private:
  void doEnd() override {
    screen_.erase();
    before_.end();
  }

  ProgressScreen& screen_;
  Console& before_ = console();
};

}  // namespace

std::optional<ProgressForm> progressForm(ProgressWanted wanted, bool isTerminal) {
  constexpr double kShortRun = 2, kRewrite = 0.2, kLog = 10;
  if (wanted == ProgressWanted::never) return {};
  if (wanted == ProgressWanted::automatic) {
    return isTerminal ? std::optional(ProgressForm{true, kShortRun, kRewrite}) : std::nullopt;
  }
  return isTerminal ? ProgressForm{true, 0, kRewrite} : ProgressForm{false, kLog, kLog};
}

std::string durationText(double seconds) {
  constexpr double kMinute = 60, kHour = 60 * kMinute, kDay = 24 * kHour;
  const double whole = std::round(seconds);
  if (whole < kMinute) return formatted("%.0f s", whole);
  if (whole < kHour) {
    return formatted("%.0f min", std::floor(whole / kMinute)) +
           formatted(" %02.0f s", std::fmod(whole, kMinute));
  }
  const double minutes = std::round(seconds / kMinute);
  if (minutes * kMinute < 2 * kDay) {
    return formatted("%.0f h", std::floor(minutes / 60)) +
           formatted(" %02.0f min", std::fmod(minutes, 60));
  }
  return formatted("%.0f days", seconds / kDay);
}

std::string progressText(const ProgressMoment& moment) {
  std::string text = countText(moment) + rateText(moment);
  if (moment.done > 0) {
    const double rest = static_cast<double>(moment.limit - moment.done);
    const double left = moment.seconds / static_cast<double>(moment.done) * rest;
    text += (moment.tolerance > 0 ? ", at most " : ", ") + durationText(left) + " left";
  }
  if (std::isnan(moment.gap)) return text;
  return text + formatted(", gap %.3g", moment.gap) + formatted(" (goal %.3g)", moment.tolerance);
}

std::string progressEnd(const ProgressMoment& moment) {
  return countText(moment) + " in " + durationText(moment.seconds) + rateText(moment);
}

double ProgressScreen::now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

Progress::Progress(const Params& par, const ProgressForm& form, ProgressScreen& screen)
    : par_(par), form_(form), screen_(screen), start_(screen.now()), next_(start_ + form.begin) {}

ProgressMoment Progress::moment(const Statistics& statistics, double now) const {
  const double tolerance = par_.tolerance > 0 ? static_cast<double>(par_.tolerance) : 0.0;
  return {statistics.iterations, par_.Nsteps, now - start_, statistics.gap, tolerance};
}

bool Progress::goOn(RunState& state) {
  const double now = screen_.now();
  if (now < next_) return true;
  next_ = now + form_.every;
  screen_.show(progressText(moment(state.statistics(), now)));
  return true;
}

void Progress::end(const Statistics& statistics) {
  screen_.erase();
  if (!form_.isRewritten) screen_.show(progressEnd(moment(statistics, screen_.now())));
}

void runWithProgress(Params& par, const Statistics& statistics, ProgressWanted wanted,
                     const std::function<void()>& run) {
  const auto form = progressForm(wanted, isatty(STDERR_FILENO) == 1);
  if (!form) return run();
  std::unique_ptr<ProgressScreen> screen;
  if (form->isRewritten) {
    screen = std::make_unique<TerminalScreen>();
  } else {
    screen = std::make_unique<LogScreen>();
  }
  ErasingConsole console(*screen);
  const ConsoleScope scope(console);
  Progress progress(par, *form, *screen);
  par.watcher = &progress;
  run();
  par.watcher = nullptr;
  progress.end(statistics);
}

}  // namespace namespace_ratseg
