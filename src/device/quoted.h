#ifndef RATSEG_DEVICE_QUOTED_H
#define RATSEG_DEVICE_QUOTED_H

#include <cstddef>
#include <string>

namespace namespace_ratseg {

// Text in double quotes, fit for a line: cut after so many bytes and without control characters.
std::string inQuotes(const std::string& text, std::size_t longest = 60);

}  // namespace namespace_ratseg

#endif
