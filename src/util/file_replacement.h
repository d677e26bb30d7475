#ifndef RATSEG_UTIL_FILE_REPLACEMENT_H
#define RATSEG_UTIL_FILE_REPLACEMENT_H

#include <string>

namespace namespace_ratseg {

// A file that takes the place of one of the same name when it is complete: until then the old one
// stays, and a file that could not be written leaves nothing behind. Where that cannot be done (a
// link, a device, a folder that takes no new files), the file itself is written.
class FileReplacement {
 public:
  explicit FileReplacement(const std::string& filename);
  ~FileReplacement();
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;

  // The file to be written: an empty one beside the old one, or that one.
  const std::string& path() const { return path_; }

  // Puts the file into its place; when it has been written and closed. False when that fails, with
  // the reason in errno.
  bool finish();

 private:
  std::string filename_, path_;
  bool beside_ = false;
};

// The system's words for the value of errno, "" for 0.
std::string textOfErrno(int error);

}  // namespace namespace_ratseg

#endif
