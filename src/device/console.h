#ifndef RATSEG_DEVICE_CONSOLE_H
#define RATSEG_DEVICE_CONSOLE_H

#include <cstdlib>
#include <iosfwd>

namespace namespace_ratseg {

// The output of the library code, and its way to end when it cannot go on. By default these are
// standard output, standard error, and the end of the process with status 1; ConsoleScope sets
// another console for one thread.
class Console {
 public:
  virtual std::ostream& out() = 0;
  virtual std::ostream& error() = 0;
  // Call it after the reason has been printed.
  [[noreturn]] void end() {
    doEnd();
    std::abort();
  }

 protected:
  ~Console() = default;

 private:
  // Does not return.
  virtual void doEnd() = 0;
};

// The calling thread's console.
Console& console();

// Sets another console for the calling thread until the end of the scope, which it must outlive.
class ConsoleScope {
 public:
  explicit ConsoleScope(Console& c);
  ~ConsoleScope();
  ConsoleScope(const ConsoleScope&) = delete;
  ConsoleScope& operator=(const ConsoleScope&) = delete;

 private:
  Console* previous_;
};

}  // namespace namespace_ratseg

#endif
