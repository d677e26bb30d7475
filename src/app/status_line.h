#ifndef RATSEG_APP_STATUS_LINE_H
#define RATSEG_APP_STATUS_LINE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace namespace_ratseg {

// A line on a terminal that is written again and again. One per process; whoever prints beside it
// erases it first.
class StatusLine {
 public:
  explicit StatusLine(int terminal) : terminal_(terminal) {}
  ~StatusLine() { erase(); }
  StatusLine(const StatusLine&) = delete;
  StatusLine& operator=(const StatusLine&) = delete;

  // Shows the text, ASCII, cut to the width of the terminal, in place of what stands there. Nothing
  // where the terminal is stopped (Ctrl-S), or another program's for now.
  void show(const std::string& text);

  // Leaves the line empty, with the next output at its beginning.
  void erase();

 private:
  int terminal_;
  std::size_t shown_ = 0;  // characters that stand there
};

// The characters that make a terminal show text in place of the last line of that many characters:
// text covers them and is cut to columns - 1, so that the line does not wrap.
std::string rewrittenLine(const std::string& text, std::size_t standing, std::size_t columns);

// For last words: writes them to the descriptor, on a new line where a status line stands. Waits at
// most so many milliseconds for a reader to take them, without limit for -1. False where they
// could not be written. Calls only what a signal handler may call, and needs no memory.
bool writeLastWords(int descriptor, std::string_view words, int patience);

}  // namespace namespace_ratseg

#endif
