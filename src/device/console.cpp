#include "device/console.h"

#include <cstdlib>
#include <iostream>
#include <utility>

namespace namespace_ratseg {

namespace {

class ProcessConsole final : public Console {
 public:
  std::ostream& out() override { return std::cout; }
  std::ostream& error() override { return std::cerr; }
  [[noreturn]] void end() override {
    std::cout.flush();
    std::exit(1);
  }
};

thread_local Console* ofThread = nullptr;

}  // namespace

Console& console() {
  static ProcessConsole ofProcess;
  return ofThread != nullptr ? *ofThread : ofProcess;
}

ConsoleScope::ConsoleScope(Console& c) : previous_(std::exchange(ofThread, &c)) {}
ConsoleScope::~ConsoleScope() { ofThread = previous_; }

}  // namespace namespace_ratseg
