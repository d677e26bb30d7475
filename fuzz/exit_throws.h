#ifndef RATSEG_FUZZ_EXIT_THROWS_H
#define RATSEG_FUZZ_EXIT_THROWS_H

// Included before all else into the sources that end the process at bad input (CMakeLists.txt):
// there, exit throws, so that one process can try many inputs.

#include <stdlib.h>

#include <cstdlib>

namespace fuzz {

struct Ended {
  int status;
};

}  // namespace fuzz

namespace std {

[[noreturn]] inline void endByThrowing(int status) { throw fuzz::Ended{status}; }

}  // namespace std

#define exit endByThrowing

#endif
