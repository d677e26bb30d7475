#include "util/file_replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace namespace_ratseg {

namespace {

// Creates an empty file with the permissions of the old one, if there is one.
bool create(const std::string& beside, const std::string& filename) {
  struct stat old;
  const bool exists = lstat(filename.c_str(), &old) == 0;
  if (exists && (!S_ISREG(old.st_mode) || access(filename.c_str(), W_OK) != 0)) return false;
  const int file = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0) return false;
  if (exists) fchmod(file, old.st_mode & 07777);
  close(file);
  return true;
}

}  // namespace

FileReplacement::FileReplacement(const std::string& filename)
    : filename_(filename), path_(filename + "." + std::to_string(getpid()) + ".part") {
  const int before = errno;
  beside_ = create(path_, filename_);
  if (!beside_) path_ = filename_;
  errno = before;  // That it cannot be done is no error.
}

FileReplacement::~FileReplacement() {
  if (beside_) unlink(path_.c_str());
}

bool FileReplacement::finish() {
  if (!beside_) return true;
  if (std::rename(path_.c_str(), filename_.c_str()) != 0) return false;
  beside_ = false;
  return true;
}

std::string textOfErrno(int error) {
  return error == 0 ? "" : std::generic_category().message(error);
}

}  // namespace namespace_ratseg
