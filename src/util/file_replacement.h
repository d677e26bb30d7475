#ifndef RATSEG_UTIL_FILE_REPLACEMENT_H
#define RATSEG_UTIL_FILE_REPLACEMENT_H

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "util/part_file.h"

namespace namespace_ratseg {

// A file that takes the place of one of the same name when it is complete and on the disk: until
// then the old one stays, and what could not be written leaves nothing behind.
//
// The new content is made beside the old file (part_file.h) and renamed. Where that cannot be, it
// is made in memory and written over the old file, after the disk's room for all of it was set
// aside:
//   - the folder takes no new files (EACCES, EPERM, EROFS), or the name has no room for an ending;
//   - the disk is full (ENOSPC, EDQUOT) for both files at a time, but not for the new one alone;
//   - the old file cannot be replaced: it is a mount point, or another owner's in a sticky folder.
// A link stays a link to the file that it names. Devices and pipes are written at once.
class FileReplacement {
 public:
  // Writes the content to an open file; false with errno. It is called again where the first file
  // could not be written to its end.
  using Write = std::function<bool(int descriptor)>;

  explicit FileReplacement(const std::string& filename);
  ~FileReplacement();
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;

  // Makes the new content. False with errno; finish() fails then as well.
  bool make(const Write& write);

  // Puts the content into its place. False with errno.
  bool finish();

  // The file that is replaced: the one behind the links of that name.
  const std::string& target() const { return target_; }

 private:
  enum class State { nothing, beside, inMemory, placed, failed };

  friend std::vector<int> finishTogether(std::span<FileReplacement* const> files);

  bool giveUp(int error);
  // finish() without waiting for signals and for the folder to be on the disk.
  bool place();
  void flushFolder() const;
  bool makeBeside(const Write& write);
  bool makeInMemory(const Write& write);
  bool writeDirectly(const Write& write);

  std::string target_;  // behind all links
  bool exists_ = false;
  bool isInFolder_ = false;  // made beside, and in its place
  State state_ = State::nothing;
  int error_ = 0;  // errno of what failed
  PartFile part_;
  int memory_ = -1;  // an unnamed file in memory
};

// Finishes the files, one after the other, while no other call of this function for a file of one
// of their folders does: two programs that write files of the same names at the same time leave
// those of one of them, not a mixture. After 10 seconds of waiting for others it goes on. A signal
// that ends the process comes before all or after all (SignalsWait). Returns errno for each file, 0
// for those that are in their places.
std::vector<int> finishTogether(std::span<FileReplacement* const> files);

// Whether the place of any file of this process may have been taken. A handler of signals may ask.
bool anyReplacementBegan();

// Writes all bytes. False with errno.
bool writeAll(int descriptor, const void* bytes, std::size_t count);

// The system's words for the value of errno, "" for 0.
std::string textOfErrno(int error);

}  // namespace namespace_ratseg

#endif
