#include "device/quoted.h"

#include <algorithm>

namespace namespace_ratseg {

std::string inLine(std::string text) {
  const auto isControl = [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; };
  std::replace_if(text.begin(), text.end(), isControl, '?');
  return text;
}

std::string inQuotes(const std::string& text, std::size_t longest) {
  std::string quoted = "\"";
  quoted += inLine(text.substr(0, longest));
  quoted += text.size() > longest ? "...\"" : "\"";
  return quoted;
}

}  // namespace namespace_ratseg
