#ifndef RATSEG_UTIL_WHOLE_FILE_H
#define RATSEG_UTIL_WHOLE_FILE_H

#include <cstddef>
#include <functional>
#include <string>

namespace namespace_ratseg {

// The result of reading a file.
struct WholeFile {
  std::string bytes;
  std::string error;     // why it could not be read, in the system's words; empty after a success
  bool tooLong = false;  // it has more bytes than were allowed; bytes holds no more than the limit
};

// Reads the file of exactly that name to its end, a pipe or a device too; it is opened once. At
// most limit bytes are read. If it is not a regular file and goOn is not empty, goOn
// gets the first 64 KiB (or all bytes, if there are fewer) once and decides if the rest is read.
WholeFile readWholeFile(const std::string& name, std::size_t limit,
                        const std::function<bool(const std::string& begin)>& goOn = {});

}  // namespace namespace_ratseg

#endif
