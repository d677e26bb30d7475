#ifndef RATSEG_APP_MESSAGES_H
#define RATSEG_APP_MESSAGES_H

// What the program tells its user beside the results. Standard output has a fixed form, which other
// programs may read: a run that fails ends it with a line that begins with "ERROR". Hints that are
// not part of it go to standard error.

#include <string>

namespace namespace_ratseg {

// Prints the message as a line on standard output and ends the process with status 1.
[[noreturn]] void fail(const std::string& message);

// Prints "ratseg: warning: " and the message as a line on standard error.
void warn(const std::string& message);

// Warns of a file that does not exist, may not be read or is a folder. False, with nothing said,
// when it is none of these.
bool warnIfUnreadable(const std::string& file);

// Text in double quotes, fit for a line: cut after 60 bytes and without control characters.
std::string inQuotes(const std::string& text);

}  // namespace namespace_ratseg

#endif
