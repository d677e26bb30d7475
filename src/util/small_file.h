#ifndef RATSEG_UTIL_SMALL_FILE_H
#define RATSEG_UTIL_SMALL_FILE_H

#include <cstddef>
#include <string>

namespace namespace_ratseg {

// Reads a regular file of at most limit bytes into text. For anything else returns false, without
// waiting for a pipe or for an end that may never come, and sets *fault, unless that is null, to
// the reason: words that continue a sentence after "it".
bool readSmallFile(const std::string& filename, std::size_t limit, std::string& text,
                   std::string* fault = nullptr);

}  // namespace namespace_ratseg

#endif
