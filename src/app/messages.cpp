#include "app/messages.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace namespace_ratseg {

void fail(const std::string& message) {
  std::cout << message << std::endl;
  std::exit(1);
}

void warn(const std::string& message) { std::cerr << "ratseg: warning: " << message << std::endl; }

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

std::string inQuotes(const std::string& text) {
  constexpr std::size_t kLongest = 60;
  std::string shown = text.substr(0, kLongest);
  const auto isControl = [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; };
  std::replace_if(shown.begin(), shown.end(), isControl, '?');
  return "\"" + shown + (text.size() > kLongest ? "...\"" : "\"");
}

}  // namespace namespace_ratseg
