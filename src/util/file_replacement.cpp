#include "util/file_replacement.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace namespace_ratseg {

namespace {

std::atomic<bool> anyBegan = false;

// Closes it at the end.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() {
    const int error = errno;
    if (descriptor_ >= 0) ::close(descriptor_);
    errno = error;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  operator int() const { return descriptor_; }
  bool close() { return ::close(std::exchange(descriptor_, -1)) == 0; }

 private:
  int descriptor_;
};

bool isFull(int error) { return error == ENOSPC || error == EDQUOT; }

// True if the error concerns only new files, so that an old one in the folder may still be
// writable.
bool takesNoNewFiles(int error) {
  return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
}

// Waits until what was written is on the disk. Not every file system can tell.
bool flushToDisk(int descriptor) {
  return fsync(descriptor) == 0 || errno == EINVAL || errno == ENOTSUP || errno == ENOSYS;
}

void flushFolderOf(const std::string& file) {
  const std::filesystem::path folder = std::filesystem::path(file).parent_path();
  const int error = errno;
  const Descriptor open(
      ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (open >= 0) fsync(open);
  errno = error;
}

// Gives a new file the owner, as far as that is allowed, and the permissions of the old one.
void takeOver(int descriptor, const struct stat& old) {
  if (fchown(descriptor, old.st_uid, old.st_gid) != 0) errno = 0;
  fchmod(descriptor, old.st_mode & 07777);
}

// The whole of one file into another, from the beginning of both.
bool copyAll(int from, int to, std::size_t size) {
  const auto buffer = std::make_unique<std::array<char, std::size_t{1} << 18>>();
  for (std::size_t done = 0; done < size;) {
    const std::size_t wanted = std::min(buffer->size(), size - done);
    const ssize_t got = pread(from, buffer->data(), wanted, static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got == 0) errno = EIO;  // shorter than it was
    if (got <= 0 || !writeAll(to, buffer->data(), static_cast<std::size_t>(got))) return false;
    done += static_cast<std::size_t>(got);
  }
  return true;
}

// Reserves disk space for that many bytes of a file without changing its content. False with errno,
// and the file is as it was.
bool setRoomAside(int descriptor, off_t size, off_t before) {
  if (size == 0) return true;
  const int error = posix_fallocate(descriptor, 0, size);
  if (error == 0 || error == EOPNOTSUPP || error == EINVAL || error == ENODEV) return true;
  if (ftruncate(descriptor, before) != 0) return false;
  errno = error;
  return false;
}

// Writes the content over the file, or into a new one. False with errno; if only disk space was
// missing, the file is as it was.
bool overwrite(const std::string& target, int content) {
  struct stat status;
  if (fstat(content, &status) != 0) return false;
  const off_t size = status.st_size;
  bool created = false;
  int opened = open(target.c_str(), O_WRONLY | O_CLOEXEC);
  if (opened < 0 && errno == ENOENT) {
    opened = open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    created = opened >= 0;
  }
  Descriptor file(opened);
  if (file < 0 || fstat(file, &status) != 0) return false;
  const bool complete = setRoomAside(file, size, status.st_size) &&
                        copyAll(content, file, static_cast<std::size_t>(size)) &&
                        ftruncate(file, size) == 0 && flushToDisk(file) && file.close();
  if (!complete && created) {
    const int error = errno;
    unlink(target.c_str());
    errno = error;
  }
  return complete;
}

// Holds an exclusive lock on each folder of the files, where the file system supports locks.
class FolderLocks {
 public:
  explicit FolderLocks(std::span<FileReplacement* const> files) {
    // All processes lock in the same order (the map's), so that none waits for another in a circle.
    std::map<std::pair<dev_t, ino_t>, int> folders;
    for (const FileReplacement* file : files) {
      const std::filesystem::path folder = std::filesystem::path(file->target()).parent_path();
      const int opened =
          open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      struct stat status;
      if (opened < 0) continue;
      if (fstat(opened, &status) != 0 ||
          !folders.try_emplace({status.st_dev, status.st_ino}, opened).second) {
        close(opened);
      }
    }
    for (const auto& [id, folder] : folders) {
      held_.push_back(folder);
      wait(folder);
    }
  }
  ~FolderLocks() {
    for (const int folder : held_) close(folder);
  }
  FolderLocks(const FolderLocks&) = delete;
  FolderLocks& operator=(const FolderLocks&) = delete;

 private:
  static void wait(int folder) {
    using namespace std::chrono_literals;
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (flock(folder, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK &&
           std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(2ms);
    }
  }

  std::vector<int> held_;
};

// Holds signals back while files are replaced. If one came before, replaces none and waits for the
// end of the process.
class Placing {
 public:
  Placing() {
    anyBegan = true;
    wait_.emplace();
    if (!processIsEnding()) return;
    wait_.reset();
    waitForTheEnd();
  }

 private:
  std::optional<SignalsWait> wait_;
};

}  // namespace

FileReplacement::FileReplacement(const std::string& filename) : target_(filename) {
  struct stat status;
  if (lstat(filename.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return;
  if (char* resolved = realpath(filename.c_str(), nullptr)) {
    target_ = resolved;
    std::free(resolved);
  }
}

FileReplacement::~FileReplacement() {
  if (memory_ >= 0) close(memory_);
}

bool FileReplacement::giveUp(int error) {
  state_ = State::failed;
  errno = error_ = error != 0 ? error : EIO;
  return false;
}

bool FileReplacement::make(const Write& write) {
  struct stat old;
  exists_ = stat(target_.c_str(), &old) == 0;
  if (exists_ && S_ISDIR(old.st_mode)) return giveUp(EISDIR);
  if (exists_ && !S_ISREG(old.st_mode)) return writeDirectly(write);
  if (exists_ && faccessat(AT_FDCWD, target_.c_str(), W_OK, AT_EACCESS) != 0) return giveUp(errno);
  struct stat link;
  const bool dangling = !exists_ && lstat(target_.c_str(), &link) == 0 && S_ISLNK(link.st_mode);
  if (dangling) return makeInMemory(write);
  if (!part_.create(target_)) {
    const int error = errno;
    if (takesNoNewFiles(error) || (isFull(error) && exists_)) return makeInMemory(write);
    return giveUp(error);
  }
  if (exists_) takeOver(part_.descriptor(), old);
  return makeBeside(write);
}

bool FileReplacement::makeBeside(const Write& write) {
  errno = 0;
  if (write(part_.descriptor()) && flushToDisk(part_.descriptor())) {
    state_ = State::beside;
    return true;
  }
  const int error = errno;
  part_.remove();
  return isFull(error) && exists_ ? makeInMemory(write) : giveUp(error);
}

bool FileReplacement::makeInMemory(const Write& write) {
  memory_ = memfd_create("ratseg", MFD_CLOEXEC);
  if (memory_ < 0) return giveUp(errno);
  errno = 0;
  if (!write(memory_)) return giveUp(errno);
  state_ = State::inMemory;
  return true;
}

bool FileReplacement::writeDirectly(const Write& write) {
  Descriptor file(open(target_.c_str(), O_WRONLY | O_CLOEXEC));
  if (file < 0) return giveUp(errno);
  anyBegan = true;
  if (processIsEnding()) waitForTheEnd();
  errno = 0;
  if (!write(file) || !file.close()) return giveUp(errno);
  state_ = State::placed;
  return true;
}

bool FileReplacement::finish() {
  bool placed = false;
  {
    const Placing placing;
    placed = place();
  }
  flushFolder();
  return placed;
}

void FileReplacement::flushFolder() const {
  if (state_ == State::placed && isInFolder_) flushFolderOf(target_);
}

bool FileReplacement::place() {
  switch (state_) {
    case State::placed:
      return true;
    case State::inMemory:
      if (!overwrite(target_, memory_)) return giveUp(errno);
      break;
    case State::beside:
      if (!part_.moveTo(target_)) {
        const int error = errno;
        const bool copied = overwrite(target_, part_.descriptor());
        part_.remove();
        if (!copied) return giveUp(error);
      }
      isInFolder_ = true;
      break;
    default:
      return giveUp(error_);
  }
  state_ = State::placed;
  return true;
}

std::vector<int> finishTogether(std::span<FileReplacement* const> files) {
  const FolderLocks locks(files);
  std::vector<int> errors;
  errors.reserve(files.size());
  {
    const Placing placing;
    for (FileReplacement* file : files) errors.push_back(file->place() ? 0 : errno);
  }
  for (const FileReplacement* file : files) file->flushFolder();
  return errors;
}

bool anyReplacementBegan() { return anyBegan; }

bool writeAll(int descriptor, const void* bytes, std::size_t count) {
  const char* next = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = write(descriptor, next, count);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    next += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

std::string textOfErrno(int error) {
  return error == 0 ? "" : std::generic_category().message(error);
}

}  // namespace namespace_ratseg
