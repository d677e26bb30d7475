#ifndef RATSEG_DEVICE_SELECTION_H
#define RATSEG_DEVICE_SELECTION_H

// Chooses the backend that the runtime calls go to. One is current for the whole process, so for
// all its threads, unless a thread has its own (ThreadBackendScope); whatever was allocated under a
// backend must be used and released while that backend is current. Any thread may ask for it at any
// time; change it (chooseBackend, setBackend, BackendScope) only while no other thread computes or
// holds memory on the previous one.

#include <iosfwd>
#include <string>

#include "device/backend.h"

namespace namespace_ratseg {

enum class DeviceChoice { automatic, cuda, host };

// Reads "auto", "cuda" or "host". False, with choice untouched, for anything else.
bool parseDeviceChoice(const std::string& text, DeviceChoice& choice);

// The choice that the environment variable RATSEG_DEVICE makes (automatic when unset or empty).
// False, with one line in error, when its value is none of the three.
bool deviceChoiceFromEnvironment(DeviceChoice& choice, std::string& error);

// Makes the chosen backend current and returns it:
//   host       the host, as RATSEG_HOST_* describe it (docs/devices.md);
//   cuda       the CUDA GPUs; without a GPU, driver or CUDA build a machine without devices;
//   automatic  the CUDA GPUs when a driver reports one, otherwise the host, which is then said in
//              one line on notice, with the number of threads.
// GPUs that are all too old for the code in this build count as none, which is said on notice.
Backend& chooseBackend(DeviceChoice choice, std::ostream& notice);

// The CUDA backend when this build has one and a driver reports a GPU that can run it, otherwise
// null.
Backend* cudaBackendIfUsable();

// The current backend. When none was chosen yet, chooses by the environment first (notices and
// errors on standard error; a bad RATSEG_DEVICE ends the process with status 1); where several
// threads ask at a time, that happens once.
Backend& backend();

// Makes b current, in all threads; b must outlive its use. For programs and tests that hold several
// backends.
void setBackend(Backend& b);

// Makes a backend current for a scope, then the one before it again: in all threads, so that scopes
// of several threads must not overlap.
class BackendScope {
 public:
  explicit BackendScope(Backend& b);
  ~BackendScope();
  BackendScope(const BackendScope&) = delete;
  BackendScope& operator=(const BackendScope&) = delete;

 private:
  Backend* previous_;
};

// Makes a backend current for a scope in the calling thread alone, whatever is current in others.
class ThreadBackendScope {
 public:
  explicit ThreadBackendScope(Backend& b);
  ~ThreadBackendScope();
  ThreadBackendScope(const ThreadBackendScope&) = delete;
  ThreadBackendScope& operator=(const ThreadBackendScope&) = delete;

 private:
  Backend* previous_;
};

// The host as RATSEG_HOST_* describe it, whatever is current.
Backend& hostBackend();

}  // namespace namespace_ratseg

#endif
