#include "app/status_line.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

namespace namespace_ratseg {

namespace {

// The terminal that a status line stands on; -1: none.
std::atomic<int> standsOn = -1;

// True if the descriptor can be written to within that time.
bool isReady(int descriptor, int milliseconds) {
  pollfd asked = {descriptor, POLLOUT, 0};
  return poll(&asked, 1, milliseconds) == 1 && (asked.revents & POLLOUT) != 0;
}

bool writeOnce(int descriptor, std::string_view text) {
  return write(descriptor, text.data(), text.size()) >= 0;
}

// True if the terminal is another program's for now, as after Ctrl-Z and bg.
bool isInBackground(int terminal) {
  const pid_t foreground = tcgetpgrp(terminal);
  return foreground > 0 && foreground != getpgrp();
}

std::size_t columnsOf(int terminal) {
  constexpr std::size_t kUsual = 80;
  winsize size = {};
  const bool known = ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : kUsual;
}

}  // namespace

std::string rewrittenLine(const std::string& text, std::size_t standing, std::size_t columns) {
  const std::string kept = text.substr(0, std::max<std::size_t>(columns, 1) - 1);
  std::string line = "\r";
  line += kept;
  if (standing <= kept.size()) return line;
  line.append(standing - kept.size(), ' ');
  return line + "\r" + kept;
}

void StatusLine::show(const std::string& text) {
  if (isInBackground(terminal_) || !isReady(terminal_, 0)) return;
  const std::size_t columns = columnsOf(terminal_);
  const std::string line = rewrittenLine(text, std::min(shown_, columns - 1), columns);
  standsOn = terminal_;
  writeOnce(terminal_, line);
  shown_ = std::min(text.size(), columns - 1);
}

void StatusLine::erase() {
  if (shown_ == 0) return;
  if (!isInBackground(terminal_)) {
    writeOnce(terminal_, rewrittenLine("", std::min(shown_, columnsOf(terminal_) - 1), 1));
  }
  shown_ = 0;
  standsOn = -1;
}

bool writeLastWords(int descriptor, std::string_view words, int patience) {
  const int terminal = standsOn.exchange(-1);
  if (terminal >= 0 && isReady(terminal, patience)) writeOnce(terminal, "\n");
  return isReady(descriptor, patience) && writeOnce(descriptor, words);
}

}  // namespace namespace_ratseg
