#ifndef RATSEG_APP_MESSAGES_H
#define RATSEG_APP_MESSAGES_H

// Messages of the programs to their user, beside the results. Standard output of ratseg has a fixed
// form, which other programs may read: a run that fails ends it with a line that begins with
// "ERROR". Warnings and hints are not part of it and go to standard error. One thread at a time may
// warn.

#include <cstddef>
#include <functional>
#include <string>

#include "device/quoted.h"

namespace namespace_ratseg {

// Prints the message as a line on standard output and ends the process with status 1.
[[noreturn]] void fail(const std::string& message);

// The name in front of all warnings; "ratseg" unless this is called.
void setProgramName(const std::string& name);

// Prints "ratseg: warning: " and the message as a line on standard error.
void warn(const std::string& message);

// A function that warns of a file: its argument is the rest of a line that begins with the name.
std::function<void(const std::string&)> warnerOf(const std::string& name);

// Prints "ratseg: " and the message in the same way: something that needs no attention.
void note(const std::string& message);

// The same of an option, its value or the option file; repeatOptionWarnings() prints those again,
// marked as repeated: what was said before a long run is far above its end.
void warnOfOption(const std::string& message);
void repeatOptionWarnings();

// Warnings so far, repeated ones left out.
std::size_t warningCount();

// The line about the warnings where they count as errors (-strict 1): "2 warnings, and ...".
std::string warningsAreErrors();

// Warns of a file that does not exist, may not be read or is a folder. False, with nothing said,
// when it is none of these.
bool warnIfUnreadable(const std::string& file);

}  // namespace namespace_ratseg

#endif
