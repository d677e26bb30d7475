#ifndef RATSEG_PROJECT_COLOUR_TEXT_H
#define RATSEG_PROJECT_COLOUR_TEXT_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace namespace_ratseg {

// "#rrggbb" with hexadecimal digits of either case; none for other text.
std::optional<std::array<std::uint8_t, 3>> colourFromText(const std::string& text);

// In lower case.
std::string textOfColour(const std::array<std::uint8_t, 3>& colour);

}  // namespace namespace_ratseg

#endif
