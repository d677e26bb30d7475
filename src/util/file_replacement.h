#ifndef RATSEG_UTIL_FILE_REPLACEMENT_H
#define RATSEG_UTIL_FILE_REPLACEMENT_H

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "util/part_file.h"

namespace namespace_ratseg {

// Replaces a file by new content, once that is complete and on the disk. Until then the old file
// stays, and after a failure nothing of the new one is left.
//
// The new content goes into a file beside the old one (part_file.h), which is then renamed. In
// these cases it is made in memory instead, and written over the old file once the room for all of
// it is reserved on the disk:
//   - the folder takes no new files (EACCES, EPERM, EROFS), or the name has no room for an ending;
//   - the disk is full (ENOSPC, EDQUOT) for both files at a time, but not for the new one alone;
//   - the old file cannot be replaced: it is a mount point, or another owner's in a sticky folder.
// A link stays a link to the file that it names. Devices and pipes are written at once.
class FileReplacement {
 public:
  // Writes the content to an open file; false with errno. It is called a second time, for a file in
  // memory, when there is no room for the one beside.
  using Write = std::function<bool(int descriptor)>;

  explicit FileReplacement(const std::string& filename);
  ~FileReplacement();
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;

  // Makes the new content. False with errno; finish() fails then as well.
  bool make(const Write& write);

  // Puts the content into its place. False with errno.
  bool finish();

  // The file that is replaced: filename with its links followed.
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
  bool isInFolder_ = false;  // made beside and in its place: the folder has to be flushed
  State state_ = State::nothing;
  int error_ = 0;  // errno of what failed
  PartFile part_;
  int memory_ = -1;  // an unnamed file in memory
};

// Finishes the files, one after the other, with their folders locked against other calls of this
// function, also in other processes: of two programs that write files of the same names at the same
// time, the files of one remain, not a mixture. Waits at most 10 seconds for a lock, then goes on
// without it. A signal that ends the process takes effect before the first or after the last file
// (SignalsWait). Returns for each file 0, or errno if it could not be replaced.
std::vector<int> finishTogether(std::span<FileReplacement* const> files);

// True if this process may have replaced any file already. Signal handlers may call it.
bool anyReplacementBegan();

// Writes all bytes. False with errno.
bool writeAll(int descriptor, const void* bytes, std::size_t count);

// The system's words for the value of errno, "" for 0.
std::string textOfErrno(int error);

}  // namespace namespace_ratseg

#endif
