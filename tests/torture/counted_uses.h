#ifndef RATSEG_TESTS_TORTURE_COUNTED_USES_H
#define RATSEG_TESTS_TORTURE_COUNTED_USES_H

// Which use of which call fails (failing_calls.cpp), for one file that includes it.

#include <fcntl.h>
#include <link.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace {

enum Call {
  kNone,
  kNew,
  kMemory,
  kOpen,
  kWrite,
  kRename,
  kSync,
  kClose,
  kUnlink,
  kTruncate,
  kLock
};
constexpr const char* kNames[] = {"none", "new",   "memory", "open",     "write", "rename",
                                  "sync", "close", "unlink", "truncate", "lock"};
enum Mode { kOnce, kOn, kSignal };

Call chosen = kNone;
Mode mode = kOnce;
long at = 0;
int number = 0;
int signalNumber = 0;
const char* countFile = nullptr;
std::atomic<bool> started = false;
std::atomic<long> uses = 0;

// Counts a use; whether it is to fail.
bool fails(Call call) {
  if (call != chosen || !started.load(std::memory_order_relaxed)) return false;
  const long k = ++uses;
  if (at == 0 || k < at || (k > at && mode != kOn)) return false;
  if (mode == kSignal) {
    syscall(SYS_kill, syscall(SYS_getpid), signalNumber);
    return false;
  }
  errno = call == kMemory || call == kNew ? ENOMEM : number;
  return true;
}

long numberOf(const char* variable) {
  const char* text = getenv(variable);
  return text == nullptr ? 0 : strtol(text, nullptr, 10);
}

void readEnvironment() {
  const char* call = getenv("TORTURE_CALL");
  for (int k = kNew; call != nullptr && k <= kLock; ++k) {
    if (strcmp(call, kNames[k]) == 0) chosen = static_cast<Call>(k);
  }
  const char* name = getenv("TORTURE_MODE");
  if (name != nullptr) mode = *name == 's' ? kSignal : strcmp(name, "on") == 0 ? kOn : kOnce;
  at = numberOf("TORTURE_AT");
  number = static_cast<int>(numberOf("TORTURE_ERRNO"));
  signalNumber = static_cast<int>(numberOf("TORTURE_SIGNAL"));
  countFile = getenv("TORTURE_COUNT");
}

// The code of the program and of the C++ library.
struct Range {
  std::uintptr_t begin = 0, end = 0;
};
Range own[2];

int findOwn(dl_phdr_info* info, size_t, void* position) {
  int& k = *static_cast<int*>(position);
  const bool program = k++ == 0;  // It is the first.
  if (!program && strstr(info->dlpi_name, "/libstdc++.so") == nullptr) return 0;
  Range& range = own[program ? 0 : 1];
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const auto& part = info->dlpi_phdr[i];
    if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0) continue;
    range.begin = info->dlpi_addr + part.p_vaddr;
    range.end = range.begin + part.p_memsz;
  }
  return 0;
}

// The next allocation of this thread fails. Other models of TLS allocate.
__attribute__((tls_model("initial-exec"))) thread_local bool nextFails = false;

// Whether an allocation fails, with errno set.
bool memoryFails() {
  if (!nextFails) return fails(kMemory);
  nextFails = false;
  errno = ENOMEM;
  return true;
}

// Whether the code at this address is the program's own, or the C++ library's.
bool isOwn(const void* address) {
  const auto a = reinterpret_cast<std::uintptr_t>(address);
  return (own[0].begin <= a && a < own[0].end) || (own[1].begin <= a && a < own[1].end);
}

__attribute__((destructor)) void writeCount() {
  if (countFile == nullptr || !started) return;
  started = false;
  char text[32];
  const int length = snprintf(text, sizeof text, "%ld\n", uses.load());
  const int file = static_cast<int>(
      syscall(SYS_openat, AT_FDCWD, countFile, O_WRONLY | O_CREAT | O_TRUNC, 0666));
  syscall(SYS_write, file, text, length);
  syscall(SYS_close, file);
}

}  // namespace

#endif
