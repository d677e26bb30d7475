#ifndef RATSEG_UTIL_SAME_FILE_H
#define RATSEG_UTIL_SAME_FILE_H

#include <string>

namespace namespace_ratseg {

// True if two names are those of one file: now, or as soon as something is written to either. Names
// may be spelled differently, lead through links, and name files that do not exist yet. False where
// one of them is empty.
bool sameFile(const std::string& a, const std::string& b);

}  // namespace namespace_ratseg

#endif
