#include "device/quoted.h"

#include <algorithm>

namespace namespace_ratseg {

std::string inQuotes(const std::string& text, std::size_t longest) {
  std::string shown = text.substr(0, longest);
  const auto isControl = [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; };
  std::replace_if(shown.begin(), shown.end(), isControl, '?');
  return "\"" + shown + (text.size() > longest ? "...\"" : "\"");
}

}  // namespace namespace_ratseg
