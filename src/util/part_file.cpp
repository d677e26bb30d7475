#include "util/part_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

namespace namespace_ratseg {

namespace {

constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

// The names of this process's part files, where a handler of signals can read them.
struct Entry {
  std::atomic<bool> taken = false;
  std::atomic<bool> complete = false;
  char path[PATH_MAX];
};
std::array<Entry, 64> entries;
// Number of threads that the first signal waits for.
std::atomic<int> waitedFor = 0;
std::atomic<bool> ending = false;
std::atomic<int> signalThatEnds = 0;
SayOfSignal sayOfSignal = nullptr;
std::atomic<bool> said = false;

void enter(const std::string& path) {
  if (path.size() >= sizeof Entry::path) return;
  for (Entry& entry : entries) {
    if (entry.taken.exchange(true)) continue;
    std::memcpy(entry.path, path.c_str(), path.size() + 1);
    entry.complete = true;
    return;
  }
}

void leave(const std::string& path) {
  for (Entry& entry : entries) {
    if (!entry.complete || path != entry.path) continue;
    entry.complete = false;
    entry.taken = false;
    return;
  }
}

void removeEntered() {
  for (const Entry& entry : entries) {
    if (entry.complete) unlink(entry.path);
  }
}

// atOnce: does not wait for another thread that is already printing the message.
void removeAllAndEnd(int signal, bool atOnce) {
  removeEntered();
  if (!said.exchange(true)) {
    if (sayOfSignal != nullptr) sayOfSignal(signal);
  } else if (!atOnce) {
    waitForTheEnd();
  }
  std::signal(signal, SIG_DFL);
  sigset_t itself;
  sigemptyset(&itself);
  sigaddset(&itself, signal);
  pthread_sigmask(SIG_UNBLOCK, &itself, nullptr);
  std::raise(signal);
}

// For the first signal, ends the process only if there is no thread to wait for; otherwise the last
// of those threads does. A second signal does not wait.
void endUnlessWaiting(int signal) {
  ending = true;
  const bool isFirst = signalThatEnds.exchange(signal) == 0;
  if (isFirst && waitedFor > 0) return;
  removeAllAndEnd(signal, !isFirst);
}

// True if text is "PID" or "PID-K".
bool isNumbering(const std::string& text) {
  const auto isDigits = [](const std::string& part) {
    return !part.empty() &&
           std::all_of(part.begin(), part.end(), [](char c) { return c >= '0' && c <= '9'; });
  };
  const std::size_t dash = text.find('-');
  if (dash == std::string::npos) return isDigits(text);
  return isDigits(text.substr(0, dash)) && isDigits(text.substr(dash + 1));
}

bool isPartOf(const std::string& name, const std::string& of) {
  constexpr std::size_t kEnd = 5;
  return name.size() > of.size() + 1 + kEnd && name.starts_with(of + ".") &&
         name.ends_with(".part") &&
         isNumbering(name.substr(of.size() + 1, name.size() - of.size() - 1 - kEnd));
}

bool removeIfDead(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (file < 0) return false;
  struct stat status;
  const bool dead = fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
                    status.st_uid == geteuid() && flock(file, LOCK_EX | LOCK_NB) == 0;
  const bool removed = dead && unlink(path.c_str()) == 0;
  close(file);
  return removed;
}

}  // namespace

SignalsWait::SignalsWait() {
  sigset_t held;
  sigemptyset(&held);
  for (const int signal : kSignals) sigaddset(&held, signal);
  pthread_sigmask(SIG_BLOCK, &held, &before_);
  ++waitedFor;
}

SignalsWait::~SignalsWait() {
  const int error = errno;
  if (--waitedFor == 0 && signalThatEnds != 0) removeAllAndEnd(signalThatEnds, false);
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  errno = error;
}

bool processIsEnding() { return ending; }

void waitForTheEnd() {
  while (true) pause();
}

PartFile::~PartFile() { remove(); }

bool PartFile::tryName(const std::string& path) {
  path_ = path;
  const SignalsWait untilTheNameIsKnown;
  // A signal that came before waits for nobody: no file would be removed that is made from now on.
  if (ending) {
    errno = EINTR;
    return false;
  }
  const int file = open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (file < 0) return false;
  struct stat status;
  // Another process may have taken the file for a dead one and removed it before it was locked.
  // Without support for locks no process removes such files.
  const bool taken = flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (taken || fstat(file, &status) != 0 || status.st_nlink == 0) {
    descriptor_ = file;
    remove();
    errno = EEXIST;
    return false;
  }
  descriptor_ = file;
  enter(path_);
  if (!ending) return true;
  remove();
  errno = EINTR;
  return false;
}

bool PartFile::create(const std::string& filename) {
  constexpr int kNames = 1000;
  std::string name = filename + "." + std::to_string(getpid());
  const std::size_t end = name.size();
  for (int k = 0; k < kNames; ++k) {
    name.resize(end);
    if (k > 0) name.append("-").append(std::to_string(k));
    if (tryName(name + ".part")) return true;
    if (errno != EEXIST) return false;
  }
  return false;
}

// Another process may have removed or replaced it.
bool PartFile::isThere() const {
  struct stat mine, named;
  return fstat(descriptor_, &mine) == 0 && lstat(path_.c_str(), &named) == 0 &&
         mine.st_dev == named.st_dev && mine.st_ino == named.st_ino;
}

bool PartFile::moveTo(const std::string& filename) {
  if (!isThere()) {
    errno = ENOENT;
    return false;
  }
  if (std::rename(path_.c_str(), filename.c_str()) != 0) return false;
  leave(path_);
  close(descriptor_);
  descriptor_ = -1;
  return true;
}

void PartFile::remove() {
  if (descriptor_ < 0) return;
  const int error = errno;
  if (isThere()) unlink(path_.c_str());
  leave(path_);
  close(descriptor_);
  descriptor_ = -1;
  errno = error;
}

std::vector<std::string> removeDeadPartFiles(const std::string& filename) {
  std::vector<std::string> removed;
  const std::size_t slash = filename.rfind('/') + 1;  // 0 where there is none
  const std::string folder = filename.substr(0, slash);
  const std::string of = filename.substr(slash);
  // (The standard library's iterator ends the process where it finds no memory.)
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.empty() ? "." : folder.c_str()),
                                                    &closedir);
  if (entries == nullptr) return removed;
  while (const dirent* entry = readdir(entries.get())) {
    const std::string path = folder + entry->d_name;
    if (isPartOf(entry->d_name, of) && removeIfDead(path)) removed.push_back(path);
  }
  return removed;
}

// Calls only what a signal handler may call.
void removePartFiles() {
  ending = true;
  constexpr timespec kMillisecond = {0, 1000000};
  for (int wait = 0; waitedFor > 0 && wait < 100; ++wait) nanosleep(&kMillisecond, nullptr);
  removeEntered();
}

void removePartFilesOnSignals(SayOfSignal say) {
  sayOfSignal = say;
  for (const int signal : kSignals) {
    struct sigaction before;
    // Ignored ones stay ignored, as under nohup.
    if (sigaction(signal, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) continue;
    struct sigaction action = {};
    action.sa_handler = endUnlessWaiting;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace namespace_ratseg
