#include "util/small_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "util/file_replacement.h"

namespace namespace_ratseg {

namespace {

// Up to limit + 1 bytes of an open file; false when reading fails.
bool readUpTo(int file, std::size_t limit, std::string& text) {
  char buffer[65536];
  text.clear();
  while (text.size() <= limit) {
    const ssize_t bytes = read(file, buffer, sizeof buffer);
    if (bytes < 0 && errno == EINTR) continue;
    if (bytes <= 0) return bytes == 0;
    text.append(buffer, static_cast<std::size_t>(bytes));
  }
  return true;
}

// Empty when all is well.
std::string readOpen(int file, std::size_t limit, std::string& text) {
  struct stat status;
  const bool known = fstat(file, &status) == 0;
  if (known && S_ISDIR(status.st_mode)) return "is a folder";
  if (known && !S_ISREG(status.st_mode)) return "is not a regular file";
  if (!known || !readUpTo(file, limit, text)) return "cannot be read: " + textOfErrno(errno);
  return text.size() > limit ? "has more than " + std::to_string(limit) + " bytes" : "";
}

}  // namespace

bool readSmallFile(const std::string& filename, std::size_t limit, std::string& text,
                   std::string* fault) {
  std::string ignored;
  std::string& why = fault != nullptr ? *fault : ignored;
  const int file = open(filename.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file < 0) {
    why = "cannot be opened: " + textOfErrno(errno);
    return false;
  }
  why = readOpen(file, limit, text);
  close(file);
  return why.empty();
}

}  // namespace namespace_ratseg
