#include "app/messages.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <vector>

namespace namespace_ratseg {

namespace {

struct Said {
  std::string program = "ratseg";
  std::size_t warnings = 0;
  std::vector<std::string> ofOptions;
};

Said& said() {
  static Said all;
  return all;
}

}  // namespace

void fail(const std::string& message) {
  // Lack of memory while something was printed has closed the stream.
  std::cout.clear();
  std::cout << message << std::endl;
  std::exit(1);
}

void setProgramName(const std::string& name) { said().program = name; }

void warn(const std::string& message) {
  std::cerr << said().program << ": warning: " << message << std::endl;
  ++said().warnings;
}

std::function<void(const std::string&)> warnerOf(const std::string& name) {
  return [name](const std::string& line) { warn(name + " " + line); };
}

void note(const std::string& message) {
  std::cerr << said().program << ": " << message << std::endl;
}

void warnOfOption(const std::string& message) {
  warn(message);
  said().ofOptions.push_back(message);
}

void repeatOptionWarnings() {
  for (const std::string& message : said().ofOptions) {
    std::cerr << said().program << ": warning (repeated): " << message << std::endl;
  }
}

std::size_t warningCount() { return said().warnings; }

std::string warningsAreErrors() {
  const std::size_t count = warningCount();
  return std::to_string(count) + (count == 1 ? " warning" : " warnings") +
         ", and -strict 1 makes " + (count == 1 ? "it an error" : "them errors");
}

bool warnIfUnreadable(const std::string& file) {
  std::error_code ignored;
  if (access(file.c_str(), R_OK) != 0) {
    warn(inQuotes(file) + ": " + std::strerror(errno));
  } else if (std::filesystem::is_directory(file, ignored)) {
    warn(inQuotes(file) + " is a folder");
  } else {
    return false;
  }
  return true;
}

}  // namespace namespace_ratseg
