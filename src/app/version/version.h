#ifndef RATSEG_APP_VERSION_VERSION_H
#define RATSEG_APP_VERSION_VERSION_H

#include <string>

namespace namespace_ratseg {

// Prints on standard output what a program is and was built with: its version and commit, the
// compiler, the backends, the instruction sets and the one that this machine uses, and Qt's
// versions where they are given.
void printVersion(const std::string& program, const std::string& qt = "");

// The versions of Qt that this program was built with and runs with.
std::string qtVersions();

}  // namespace namespace_ratseg

#endif
