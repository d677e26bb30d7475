#include "util/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

namespace namespace_ratseg {

namespace {

constexpr std::size_t kBegin = std::size_t{1} << 16;
constexpr std::size_t kPiece = std::size_t{1} << 22;

class OpenFile {
 public:
  explicit OpenFile(const std::string& name) : fd_(open(name.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~OpenFile() {
    if (fd_ >= 0) close(fd_);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  bool isOpen() const { return fd_ >= 0; }

  // The length of a regular file.
  std::optional<std::size_t> length() const {
    struct stat status = {};
    if (fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode)) return {};
    return static_cast<std::size_t>(status.st_size);
  }

  // Appends up to count bytes, less at the end of the file only. False on an error.
  bool append(std::string& bytes, std::size_t count) const {
    const std::size_t end = bytes.size() + count;
    std::size_t have = bytes.size();
    bytes.resize(end);
    ssize_t got = 1;
    while (have < end && got != 0) {
      got = read(fd_, bytes.data() + have, end - have);
      if (got < 0 && errno != EINTR) break;
      have += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    bytes.resize(have);
    return got >= 0 || have == end;
  }

 private:
  int fd_;
};

}  // namespace

WholeFile readWholeFile(const std::string& name, std::size_t limit,
                        const std::function<bool(const std::string& begin)>& goOn) {
  WholeFile file;
  const OpenFile in(name);
  const auto failed = [&] {
    file.error = std::strerror(errno);
    return file;
  };
  if (!in.isOpen() || !in.append(file.bytes, std::min(limit, kBegin))) return failed();
  const std::optional<std::size_t> length = in.length();
  if (!length && goOn && !goOn(file.bytes)) return file;
  file.tooLong = length.value_or(0) > limit;
  if (file.tooLong) return file;
  file.bytes.reserve(length.value_or(0));
  std::size_t before = 0;
  for (std::size_t have = file.bytes.size(); have != before && have < limit;) {
    before = have;
    if (!in.append(file.bytes, std::min(limit - have, kPiece))) return failed();
    have = file.bytes.size();
  }
  std::string more;
  if (file.bytes.size() == limit && !in.append(more, 1)) return failed();
  file.tooLong = !more.empty();
  return file;
}

}  // namespace namespace_ratseg
