// A library to be preloaded into a program: one kind of system call fails at its k-th use, or ends
// the program there. It counts from main on, over all threads, and never allocates.
//
//   TORTURE_CALL   new, memory, open, write, rename, sync, close, unlink, truncate or lock
//   TORTURE_AT     k, from 1 on; 0: none fails
//   TORTURE_MODE   once: the k-th alone; on: that and all later ones; signal: TORTURE_SIGNAL is
//                  raised before the k-th
//   TORTURE_ERRNO  number that errno gets (a failing allocation leaves ENOMEM)
//   TORTURE_COUNT  file that the number of uses is written to when the program ends
//
// "memory" is every allocation of C, those of all libraries too; "new" the allocations of C++ that
// the program's own code asks for, itself or through the C++ library.
//
// Calls that the C library makes itself (its streams' writes) are not seen, so fopen and fclose are
// kinds of open and close. What fails is not done, but for close, which leaves no file open.

#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "counted_uses.h"

namespace {

// The next library's function of that name.
template <class Function>
Function* next(const char* name, Function*) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

using Main = int(int, char**, char**);
Main* programsMain = nullptr;

int countedMain(int argc, char** argv, char** environment) {
  readEnvironment();
  int position = 0;
  dl_iterate_phdr(findOwn, &position);
  started = true;
  return programsMain(argc, argv, environment);
}

// The mode that open's flags ask for.
mode_t modeOf(int flags, va_list list) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(list, mode_t) : 0;
}

int openCounted(int folder, const char* path, int flags, mode_t permissions) {
  if (fails(kOpen)) return -1;
  return static_cast<int>(syscall(SYS_openat, folder, path, flags, permissions));
}

}  // namespace

extern "C" {

// What glibc's malloc and its kin are called inside.
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* old, size_t bytes);
void* __libc_memalign(size_t alignment, size_t bytes);

int __libc_start_main(Main* main, int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*rtldFini)(), void* stackEnd) {
  programsMain = main;
  return next("__libc_start_main", &__libc_start_main)(countedMain, argc, argv, init, fini,
                                                       rtldFini, stackEnd);
}

void* malloc(size_t bytes) { return memoryFails() ? nullptr : __libc_malloc(bytes); }
void* calloc(size_t count, size_t bytes) {
  return memoryFails() ? nullptr : __libc_calloc(count, bytes);
}
void* realloc(void* old, size_t bytes) {
  return memoryFails() ? nullptr : __libc_realloc(old, bytes);
}
void* memalign(size_t alignment, size_t bytes) {
  return memoryFails() ? nullptr : __libc_memalign(alignment, bytes);
}
void* aligned_alloc(size_t alignment, size_t bytes) {
  return memoryFails() ? nullptr : __libc_memalign(alignment, bytes);
}
int posix_memalign(void** target, size_t alignment, size_t bytes) {
  void* memory = memoryFails() ? nullptr : __libc_memalign(alignment, bytes);
  if (memory == nullptr) return ENOMEM;
  *target = memory;
  return 0;
}

// The C++ library's operators, under their names there; they throw where the allocation fails.
#define TORTURE_NEW(name, parameters, values)                                \
  void* name parameters {                                                    \
    static std::atomic<void*> operatorNew = nullptr;                         \
    if (operatorNew == nullptr) operatorNew = dlsym(RTLD_NEXT, #name);       \
    if (isOwn(__builtin_return_address(0)) && fails(kNew)) nextFails = true; \
    return reinterpret_cast<void*(*)parameters>(operatorNew.load()) values;  \
  }
TORTURE_NEW(_Znwm, (size_t bytes), (bytes))
TORTURE_NEW(_Znam, (size_t bytes), (bytes))
TORTURE_NEW(_ZnwmRKSt9nothrow_t, (size_t bytes, const void* no), (bytes, no))
TORTURE_NEW(_ZnamRKSt9nothrow_t, (size_t bytes, const void* no), (bytes, no))
TORTURE_NEW(_ZnwmSt11align_val_t, (size_t bytes, size_t alignment), (bytes, alignment))
TORTURE_NEW(_ZnamSt11align_val_t, (size_t bytes, size_t alignment), (bytes, alignment))

#define TORTURE_OPEN(name)                                  \
  int name(const char* path, int flags, ...) {              \
    va_list list;                                           \
    va_start(list, flags);                                  \
    const mode_t permissions = modeOf(flags, list);         \
    va_end(list);                                           \
    return openCounted(AT_FDCWD, path, flags, permissions); \
  }
#define TORTURE_OPENAT(name)                               \
  int name(int folder, const char* path, int flags, ...) { \
    va_list list;                                          \
    va_start(list, flags);                                 \
    const mode_t permissions = modeOf(flags, list);        \
    va_end(list);                                          \
    return openCounted(folder, path, flags, permissions);  \
  }
TORTURE_OPEN(open)
TORTURE_OPEN(open64)
TORTURE_OPENAT(openat)
TORTURE_OPENAT(openat64)
int __open_2(const char* path, int flags) { return openCounted(AT_FDCWD, path, flags, 0); }
int __open64_2(const char* path, int flags) { return openCounted(AT_FDCWD, path, flags, 0); }
int __openat_2(int folder, const char* path, int flags) {
  return openCounted(folder, path, flags, 0);
}
int __openat64_2(int folder, const char* path, int flags) {
  return openCounted(folder, path, flags, 0);
}
int creat(const char* path, mode_t permissions) {
  return openCounted(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, permissions);
}
int creat64(const char* path, mode_t permissions) { return creat(path, permissions); }
FILE* fopen(const char* path, const char* how) {
  return fails(kOpen) ? nullptr : next("fopen", &fopen)(path, how);
}
FILE* fopen64(const char* path, const char* how) {
  return fails(kOpen) ? nullptr : next("fopen64", &fopen64)(path, how);
}

ssize_t write(int file, const void* bytes, size_t count) {
  return fails(kWrite) ? -1 : syscall(SYS_write, file, bytes, count);
}
ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset) {
  return fails(kWrite) ? -1 : syscall(SYS_pwrite64, file, bytes, count, offset);
}
ssize_t pwrite64(int file, const void* bytes, size_t count, off64_t offset) {
  return fails(kWrite) ? -1 : syscall(SYS_pwrite64, file, bytes, count, offset);
}
ssize_t writev(int file, const iovec* parts, int count) {
  return fails(kWrite) ? -1 : syscall(SYS_writev, file, parts, count);
}

int rename(const char* from, const char* to) {
  if (fails(kRename)) return -1;
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}
int renameat(int fromFolder, const char* from, int toFolder, const char* to) {
  if (fails(kRename)) return -1;
  return static_cast<int>(syscall(SYS_renameat2, fromFolder, from, toFolder, to, 0));
}
int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) {
  if (fails(kRename)) return -1;
  return static_cast<int>(syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}
int link(const char* from, const char* to) {
  if (fails(kRename)) return -1;
  return static_cast<int>(syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0));
}
int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) {
  if (fails(kRename)) return -1;
  return static_cast<int>(syscall(SYS_linkat, fromFolder, from, toFolder, to, flags));
}

int fsync(int file) { return fails(kSync) ? -1 : static_cast<int>(syscall(SYS_fsync, file)); }
int fdatasync(int file) {
  return fails(kSync) ? -1 : static_cast<int>(syscall(SYS_fdatasync, file));
}

int close(int file) {
  const bool failing = fails(kClose);
  const int error = errno;
  const int status = static_cast<int>(syscall(SYS_close, file));
  if (failing) errno = error;
  return failing ? -1 : status;
}
int fclose(FILE* stream) {
  const bool failing = fails(kClose);
  const int error = errno;
  const int status = next("fclose", &fclose)(stream);
  if (failing) errno = error;
  return failing ? EOF : status;
}

int unlink(const char* path) {
  return fails(kUnlink) ? -1 : static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}
int unlinkat(int folder, const char* path, int flags) {
  return fails(kUnlink) ? -1 : static_cast<int>(syscall(SYS_unlinkat, folder, path, flags));
}

int ftruncate(int file, off_t length) {
  return fails(kTruncate) ? -1 : static_cast<int>(syscall(SYS_ftruncate, file, length));
}
int ftruncate64(int file, off64_t length) {
  return fails(kTruncate) ? -1 : static_cast<int>(syscall(SYS_ftruncate, file, length));
}

int flock(int file, int operation) {
  return fails(kLock) ? -1 : static_cast<int>(syscall(SYS_flock, file, operation));
}

}  // extern "C"
