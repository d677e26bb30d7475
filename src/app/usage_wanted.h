#ifndef RATSEG_APP_USAGE_WANTED_H
#define RATSEG_APP_USAGE_WANTED_H

#include <string>

namespace namespace_ratseg {

// True if -name or --name is a program's only argument.
inline bool isOnlyArgument(const std::string& name, int argc, const char* const* argv) {
  if (argc != 2) return false;
  const std::string word = argv[1];
  return word == "-" + name || word == "--" + name;
}

// True if a program with these arguments is to print its usage screen: none, or -help or --help
// alone.
inline bool usageWanted(int argc, const char* const* argv) {
  return argc <= 1 || isOnlyArgument("help", argc, argv);
}

// True if it is to print its version: -version or --version alone.
inline bool versionWanted(int argc, const char* const* argv) {
  return isOnlyArgument("version", argc, argv);
}

}  // namespace namespace_ratseg

#endif
