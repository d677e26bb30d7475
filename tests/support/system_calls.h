#ifndef RATSEG_TESTS_SUPPORT_SYSTEM_CALLS_H
#define RATSEG_TESTS_SUPPORT_SYSTEM_CALLS_H

// Stands between the code under test and some calls of the system, so that a test can let them
// fail. Include it in one file of a test program: its functions take the place of the C library's.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <string>

namespace system_calls {

// What a call is asked before it is made: an errno with which it is to fail, or 0.
struct Hooks {
  std::function<int(const std::string& path, int flags)> open;
  std::function<int(const std::string& from, const std::string& to)> rename;
  std::function<int(int descriptor, std::size_t count)> write;
  std::function<int(int descriptor)> fsync;
  std::function<int(int descriptor, int operation)> flock;
  std::function<int(int descriptor, off_t size)> fallocate;
  std::function<int()> pause;
};
inline Hooks hooks;

template <class Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <class Hook, class... Arguments>
bool fails(const Hook& hook, Arguments&&... arguments) {
  if (!hook) return false;
  const int error = hook(std::forward<Arguments>(arguments)...);
  if (error == 0) return false;
  errno = error;
  return true;
}

}  // namespace system_calls

extern "C" {

int open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if (flags & O_CREAT) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  if (system_calls::fails(system_calls::hooks.open, path, flags)) return -1;
  return system_calls::real<int(const char*, int, ...)>("open")(path, flags, mode);
}

int rename(const char* from, const char* to) noexcept {
  if (system_calls::fails(system_calls::hooks.rename, from, to)) return -1;
  return system_calls::real<int(const char*, const char*)>("rename")(from, to);
}

ssize_t write(int descriptor, const void* bytes, size_t count) {
  if (system_calls::fails(system_calls::hooks.write, descriptor, count)) return -1;
  return system_calls::real<ssize_t(int, const void*, size_t)>("write")(descriptor, bytes, count);
}

int fsync(int descriptor) {
  if (system_calls::fails(system_calls::hooks.fsync, descriptor)) return -1;
  return system_calls::real<int(int)>("fsync")(descriptor);
}

int flock(int descriptor, int operation) noexcept {
  if (system_calls::fails(system_calls::hooks.flock, descriptor, operation)) return -1;
  return system_calls::real<int(int, int)>("flock")(descriptor, operation);
}

int pause() {
  if (system_calls::fails(system_calls::hooks.pause)) return -1;
  return system_calls::real<int()>("pause")();
}

int posix_fallocate(int descriptor, off_t offset, off_t size) {
  if (system_calls::hooks.fallocate) {
    const int error = system_calls::hooks.fallocate(descriptor, size);
    if (error != 0) return error;
  }
  return system_calls::real<int(int, off_t, off_t)>("posix_fallocate")(descriptor, offset, size);
}

}  // extern "C"

#endif
