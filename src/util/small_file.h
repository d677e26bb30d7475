#ifndef RATSEG_UTIL_SMALL_FILE_H
#define RATSEG_UTIL_SMALL_FILE_H

#include <cstddef>
#include <string>

namespace namespace_ratseg {

// Reads a regular file of at most limit bytes into text. Otherwise, without waiting for a pipe or
// for a file's end that may never come, false and *fault, unless that is null: what is wrong, to
// go behind "it".
bool readSmallFile(const std::string& filename, std::size_t limit, std::string& text,
                   std::string* fault = nullptr);

}  // namespace namespace_ratseg

#endif
