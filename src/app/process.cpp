#include "app/process.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <string_view>

#include "util/part_file.h"

namespace namespace_ratseg {

namespace {

int descriptorOfLastWords = STDOUT_FILENO;

// Where no exception is under way, as after a call that could not throw, abort() says why.
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

}  // namespace

void prepareProcess(int lastWords) {
  descriptorOfLastWords = lastWords;
  std::signal(SIGPIPE, SIG_IGN);
  removePartFilesOnSignals();
  std::set_terminate(endAfterException);
}

void endForLackOfMemory() {
  std::cout.flush();
  std::cerr.flush();
  removePartFiles();
  constexpr std::string_view kLine = "ERROR: out of memory\n";
  if (write(descriptorOfLastWords, kLine.data(), kLine.size()) < 0) std::_Exit(1);
  std::_Exit(1);
}

void removeLeftovers(const std::string& file, const char* program) {
  for (const std::string& left : removeDeadPartFiles(file)) {
    std::cerr << program << ": removed " << left << ", which a run that was killed left behind"
              << std::endl;
  }
}

}  // namespace namespace_ratseg
