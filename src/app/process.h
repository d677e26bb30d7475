#ifndef RATSEG_APP_PROCESS_H
#define RATSEG_APP_PROCESS_H

#include <string>

namespace namespace_ratseg {

// Sets how the process of a program ends on signals and faults. Call it first in main().
//   - A reader of standard output that goes away (| head) does not end it: results are still saved.
//   - SIGINT, SIGTERM and SIGHUP remove half-written files and print a line on standard error
//   before
//     they end it.
//   - A signal of a fault removes them too, prints a line, and ends the process as it would have.
//   - An exception that nobody can catch any more for lack of memory ends it as
//     endForLackOfMemory() does, and not by a signal.
// lastWords is the descriptor that the last line goes to.
void prepareProcess(int lastWords);

// Prints "ERROR: out of memory", for which it needs none, and ends the process with status 1. No
// thread is waited for, as one may hold a lock that it could not give back.
[[noreturn]] void endForLackOfMemory();

// Removes what killed runs left of the file (util/part_file.h), and says so on standard error.
void removeLeftovers(const std::string& file);

}  // namespace namespace_ratseg

#endif
