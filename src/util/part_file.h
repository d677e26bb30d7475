#ifndef RATSEG_UTIL_PART_FILE_H
#define RATSEG_UTIL_PART_FILE_H

#include <csignal>
#include <string>
#include <vector>

namespace namespace_ratseg {

// A temporary file beside the one that it will replace: NAME.PID.part, or NAME.PID-K.part where
// that name is taken. It is locked (flock) as long as its process lives, which tells files in use
// from those that killed processes left behind.
class PartFile {
 public:
  PartFile() = default;
  // Removes the file unless moveTo() succeeded.
  ~PartFile();
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  // Creates an empty file beside filename. False with errno.
  bool create(const std::string& filename);

  // Renames it to filename. False with errno; the file is then still there.
  bool moveTo(const std::string& filename);

  // Removes the file and closes it.
  void remove();

  // Open for reading and writing; -1 when there is none.
  int descriptor() const { return descriptor_; }
  const std::string& path() const { return path_; }

 private:
  bool tryName(const std::string& path);
  bool isThere() const;

  std::string path_;
  int descriptor_ = -1;
};

// Removes the part files of filename whose processes have ended; those of other users and of
// living processes stay. Returns the names of the removed ones.
std::vector<std::string> removeDeadPartFiles(const std::string& filename);

// While an object of this class exists, the first signal that is to end the process (see
// removePartFilesOnSignals) waits for its destructor; a second signal ends the process at once. The
// signals are blocked in this thread.
class SignalsWait {
 public:
  SignalsWait();
  ~SignalsWait();
  SignalsWait(const SignalsWait&) = delete;
  SignalsWait& operator=(const SignalsWait&) = delete;

 private:
  sigset_t before_;
};

// True once a signal is about to end the process, which then waits for nothing new.
bool processIsEnding();

// Never returns: for a thread that finds the process ending and has nothing more to do.
[[noreturn]] void waitForTheEnd();

// Removes the part files of this process, just before it ends: no more can be made then.
void removePartFiles();

// Prints that a signal of that number ends the process; calls only what a signal handler may call.
using SayOfSignal = void (*)(int signal);

// From now on SIGINT, SIGTERM and SIGHUP remove the part files of this process before they end it,
// and print it once, with say. For programs; libraries leave signals alone.
void removePartFilesOnSignals(SayOfSignal say = nullptr);

}  // namespace namespace_ratseg

#endif
