#ifndef RATSEG_APP_DATATERM_INPUT_ERROR_H
#define RATSEG_APP_DATATERM_INPUT_ERROR_H

#include <stdexcept>
#include <string>

#include "device/quoted.h"

namespace namespace_ratseg {

// Something that the user gave is wrong: an option or a file. what() is one line that names it,
// what was expected and what was found, without control characters.
class InputError : public std::runtime_error {
 public:
  // thing is an option's name or a file's.
  InputError(const std::string& thing, const std::string& expected, const std::string& found)
      : std::runtime_error(inLine(thing + ": expected " + expected + ", but found " + found)) {}

  // A file that does not open.
  static InputError unopened(const std::string& file, const std::string& expected,
                             const std::string& reason) {
    return {file, expected, "a file that does not open: " + reason};
  }
};

}  // namespace namespace_ratseg

#endif
