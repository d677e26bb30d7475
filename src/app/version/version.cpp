#include "app/version/version.h"

#include <iostream>

#include "app/version/commit.h"
#include "device/host/host_isa.h"

namespace namespace_ratseg {

void printVersion(const std::string& program, const std::string& qt) {
  std::cout << program << " " << RATSEG_VERSION << "\n"
            << "commit: " << kCommit << "\n"
            << "compiler: " << RATSEG_COMPILER << "\n"
            << "backends: " << RATSEG_BACKENDS << "\n"
            << "instruction sets: " << RATSEG_ISAS << "; on this machine " << nameOf(hostIsa())
            << "\n";
  if (!qt.empty()) std::cout << "Qt: " << qt << "\n";
  std::cout << std::flush;
}

}  // namespace namespace_ratseg
