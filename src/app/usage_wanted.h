#ifndef RATSEG_APP_USAGE_WANTED_H
#define RATSEG_APP_USAGE_WANTED_H

#include <string>

namespace namespace_ratseg {

// Whether a program with these arguments is to print its usage screen: none, or -help or --help
// alone.
inline bool usageWanted(int argc, const char* const* argv) {
  if (argc <= 1) return true;
  const std::string word = argv[1];
  return argc == 2 && (word == "-help" || word == "--help");
}

}  // namespace namespace_ratseg

#endif
