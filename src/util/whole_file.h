#ifndef RATSEG_UTIL_WHOLE_FILE_H
#define RATSEG_UTIL_WHOLE_FILE_H

#include <cstddef>
#include <functional>
#include <string>

namespace namespace_ratseg {

// What came of reading a file.
struct WholeFile {
  std::string bytes;
  std::string error;     // why it could not be read, in the system's words; empty after a success
  bool tooLong = false;  // it has more bytes than were allowed; bytes holds no more than the limit
};

// Reads the file of exactly that name to its end, a pipe or a device too; it is opened once. At
// most limit bytes are read. Of what is no regular file, goOn, unless it is empty, is asked once,
// when the first 64 KiB (or all bytes, where there are less) are there, whether the rest is wanted.
WholeFile readWholeFile(const std::string& name, std::size_t limit,
                        const std::function<bool(const std::string& begin)>& goOn = {});

}  // namespace namespace_ratseg

#endif
