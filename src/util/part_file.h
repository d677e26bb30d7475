#ifndef RATSEG_UTIL_PART_FILE_H
#define RATSEG_UTIL_PART_FILE_H

#include <csignal>
#include <string>
#include <vector>

namespace namespace_ratseg {

// A file that is being written beside the one whose place it is to take: NAME.PID.part, or
// NAME.PID-K.part where that is taken. It is locked (flock) as long as its process lives, so that
// the ones that killed processes left can be told from those at work.
class PartFile {
 public:
  PartFile() = default;
  // Removes the file unless it was put into its place.
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

// Removes part files of filename that processes which are no longer alive left behind; those of
// other users and those that are at work stay. Returns their names.
std::vector<std::string> removeDeadPartFiles(const std::string& filename);

// As long as there is one, the first of the signals that end the process (below) waits; whoever
// asks a second time does not. The signals are held back in this thread.
class SignalsWait {
 public:
  SignalsWait();
  ~SignalsWait();
  SignalsWait(const SignalsWait&) = delete;
  SignalsWait& operator=(const SignalsWait&) = delete;

 private:
  sigset_t before_;
};

// Whether the process is in its last moment: what begins now is not waited for.
bool processIsEnding();

// For a thread that has nothing more to do when it is.
[[noreturn]] void waitForTheEnd();

// Removes the part files of this process, for its last moment: no more can be made.
void removePartFiles();

// What says that a signal of that number ends the process; it calls only what a handler of signals
// may call.
using SayOfSignal = void (*)(int signal);

// From now on SIGINT, SIGTERM and SIGHUP remove the part files of this process before they end it,
// and have it said once. For programs; libraries leave signals alone.
void removePartFilesOnSignals(SayOfSignal say = nullptr);

}  // namespace namespace_ratseg

#endif
