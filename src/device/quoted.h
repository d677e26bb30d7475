#ifndef RATSEG_DEVICE_QUOTED_H
#define RATSEG_DEVICE_QUOTED_H

#include <cstddef>
#include <string>

namespace namespace_ratseg {

// Text with a ? for each control character, line ends among them.
std::string inLine(std::string text);

// Text in double quotes, fit for a line: cut after so many bytes and without control characters.
std::string inQuotes(const std::string& text, std::size_t longest = 60);

}  // namespace namespace_ratseg

#endif
