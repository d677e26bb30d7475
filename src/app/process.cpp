#include "app/process.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <string_view>
#include <utility>

#include "app/messages.h"
#include "app/status_line.h"
#include "util/file_replacement.h"
#include "util/part_file.h"

namespace namespace_ratseg {

namespace {

int descriptorOfLastWords = STDOUT_FILENO;
constexpr int kForEver = -1;

constexpr std::pair<int, std::string_view> kFaults[] = {
    {SIGSEGV, "ERROR: ended by signal 11, a fault of the program or lack of memory\n"},
    {SIGBUS, "ERROR: ended by signal 7, a fault of the program or of a disk\n"},
    {SIGABRT, "ERROR: ended by signal 6, a fault of the program or lack of memory\n"},
    {SIGTRAP, "ERROR: ended by signal 5, a fault of the program or lack of memory\n"},
    {SIGFPE, "ERROR: ended by signal 8, a fault of the program\n"},
    {SIGILL, "ERROR: ended by signal 4, a fault of the program or an unknown processor\n"}};

// Without a current exception, as after a throw out of a noexcept function, abort() gives the
// reason.
[[noreturn]] void endAfterException() {
  if (const std::exception_ptr exception = std::current_exception()) {
    try {
      std::rethrow_exception(exception);
    } catch (const std::bad_alloc&) {
      endForLackOfMemory();
    } catch (...) {
    }
  }
  std::abort();
}

// Prints that the program or a library has a fault; calls only what a signal handler may call.
void sayFault(int signal) {
  removePartFiles();
  std::string_view line = "ERROR: ended by an unknown signal\n";
  for (const auto& [number, text] : kFaults) {
    if (number == signal) line = text;
  }
  // Nothing is left to be done where this fails.
  if (!writeLastWords(descriptorOfLastWords, line, kForEver)) _exit(1);
  std::raise(signal);  // SA_RESETHAND: ends the process now, with a core file where that is wanted
}

constexpr std::pair<int, std::string_view> kEnds[] = {
    {SIGINT, "ERROR: ended by signal 2 (SIGINT, Ctrl-C)"},
    {SIGTERM, "ERROR: ended by signal 15 (SIGTERM)"},
    {SIGHUP, "ERROR: ended by signal 1 (SIGHUP, the terminal is gone)"}};

// Calls only what a handler of signals may call. Whoever ended the program does not wait for a
// terminal that is stopped.
void sayEnd(int signal) {
  constexpr int kPatience = 200;
  constexpr std::string_view kNothing = "; no result file was saved\n";
  constexpr std::string_view kPerhaps = "; result files may have been saved\n";
  char line[200];
  std::size_t size = 0;
  const auto add = [&](std::string_view text) {
    text.copy(line + size, text.size());
    size += text.size();
  };
  for (const auto& [number, text] : kEnds) {
    if (number == signal) add(text);
  }
  add(anyReplacementBegan() ? kPerhaps : kNothing);
  writeLastWords(STDERR_FILENO, {line, size}, kPatience);
}

// Sanitizers and debuggers that have handlers of their own keep them.
void saySignalsOfFaults() {
  for (const auto& [signal, text] : kFaults) {
    struct sigaction before;
    if (sigaction(signal, nullptr, &before) != 0 || before.sa_handler != SIG_DFL) continue;
    struct sigaction action = {};
    action.sa_handler = sayFault;
    action.sa_flags = SA_RESETHAND | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace

void prepareProcess(int lastWords) {
  descriptorOfLastWords = lastWords;
  std::signal(SIGPIPE, SIG_IGN);
  removePartFilesOnSignals(sayEnd);
  saySignalsOfFaults();
  std::set_terminate(endAfterException);
}

void endForLackOfMemory() {
  std::cout.flush();
  std::cerr.flush();
  removePartFiles();
  constexpr std::string_view kLine = "ERROR: out of memory\n";
  writeLastWords(descriptorOfLastWords, kLine, kForEver);
  std::_Exit(1);
}

void removeLeftovers(const std::string& file) {
  for (const std::string& left : removeDeadPartFiles(file)) {
    note("removed " + left + ", which a run that was killed left behind");
  }
}

}  // namespace namespace_ratseg
