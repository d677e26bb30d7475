#ifndef RATSEG_DEVICE_CONSOLE_H
#define RATSEG_DEVICE_CONSOLE_H

#include <iosfwd>

namespace namespace_ratseg {

// Where the code below the programs says what it has to say, and how it ends where it cannot go on.
// Unless a thread has a scope with another one: standard output, standard error, and the end of the
// process with status 1.
class Console {
 public:
  virtual std::ostream& out() = 0;
  virtual std::ostream& error() = 0;
  // Does not return. The reason has been said before.
  [[noreturn]] virtual void end() = 0;

 protected:
  ~Console() = default;
};

// The calling thread's.
Console& console();

// Another console for the calling thread, for a scope; it must outlive that.
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
