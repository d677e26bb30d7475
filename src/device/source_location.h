#ifndef RATSEG_DEVICE_SOURCE_LOCATION_H
#define RATSEG_DEVICE_SOURCE_LOCATION_H

#include <version>
#if defined(__cpp_lib_source_location)
#include <source_location>
#endif

namespace namespace_ratseg {

#if defined(__cpp_lib_source_location)
using SourceLocation = std::source_location;
#else
// As much of std::source_location as is needed, for compilers that do not support the standard
// library's own, such as clang 14 with GCC's library.
class SourceLocation {
 public:
  static constexpr SourceLocation current(const char* file = __builtin_FILE(),
                                          unsigned line = __builtin_LINE()) {
    return {file, line};
  }
  constexpr const char* file_name() const { return file_; }
  constexpr unsigned line() const { return line_; }

 private:
  constexpr SourceLocation(const char* file, unsigned line) : file_(file), line_(line) {}

  const char* file_;
  unsigned line_;
};
#endif

}  // namespace namespace_ratseg

#endif
