#include "project/colour_text.h"

#include <charconv>
#include <cstdio>

namespace namespace_ratseg {

std::optional<std::array<std::uint8_t, 3>> colourFromText(const std::string& text) {
  constexpr std::size_t kSize = 7;
  if (text.size() != kSize || text[0] != '#') return {};
  std::array<std::uint8_t, 3> colour = {};
  for (std::size_t k = 0; k < colour.size(); ++k) {
    const char* digits = text.data() + 1 + 2 * k;
    const auto [stop, error] = std::from_chars(digits, digits + 2, colour[k], 16);
    if (error != std::errc() || stop != digits + 2) return {};
  }
  return colour;
}

std::string textOfColour(const std::array<std::uint8_t, 3>& colour) {
  char text[8];
  std::snprintf(text, sizeof text, "#%02x%02x%02x", colour[0], colour[1], colour[2]);
  return text;
}

}  // namespace namespace_ratseg
