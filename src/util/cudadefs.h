#ifndef RATSEG_UTIL_CUDADEFS_H
#define RATSEG_UTIL_CUDADEFS_H

// Checks after calls of the device runtime. A failed call is fatal: the check prints where and what
// it was and the last call sites that passed, on standard output, and ends the process with
// status 1. Only running out of device memory can be recovered from (cuda_check_malloc). While an
// exception is under way, the error of a failed call is discarded: the exception has the reason.
//
// Each thread has its own pending error and its own ring of call sites.

#include <atomic>
#include <iosfwd>
#include <string>
#include <utility>

#include "device/runtime.h"
#include "device/source_location.h"

namespace namespace_ratseg {

// Device memory ran out; names the check that saw it.
class cudaMallocException {
 public:
  std::string file;  // source path
  int line;

  cudaMallocException(std::string file, int line);

  // Writes "ERROR: Insufficient GPU memory (FILE, line LINE)" to standard error.
  void printError() const;
};

// The ring of the last call sites (source path, line) of the calling thread that passed a check.
inline constexpr int kLastCalls = 30;
extern thread_local std::pair<std::string, unsigned long> lastcalls[kLastCalls];
extern constinit thread_local int lastcalls_pos;   // slot that the next entry goes to
extern constinit thread_local int lastcalls_ncur;  // number of valid entries, at most kLastCalls

// When true, cuda_check waits for the device first, so that a fault inside a kernel shows at the
// check behind its launch. Costs throughput; false at start. For all threads.
extern std::atomic<bool> cuda_check_sync;
void cuda_check_setSync(bool sync);
bool cuda_check_isSync();

// The check after ordinary calls and kernel launches. Takes the pending error; without one the call
// site is recorded, otherwise the process ends.
void cuda_check(const std::string& file, unsigned long line);

// The same for the line of the call.
inline void cuda_check(const std::string& file, SourceLocation where = SourceLocation::current()) {
  cuda_check(file, where.line());
}

// The check after a device allocation; never waits. Throws cudaMallocException(file, line) when
// memory ran out; any other error ends the process.
void cuda_check_malloc(const std::string& file, unsigned long line);

// A check that is not fatal: prints a warning when an error is pending, leaves it pending, and
// records the call site in any case.
void cuda_peek(const std::string& file, unsigned long line);

// Records a call site in the ring. Does nothing once the thread's ring is destroyed: objects
// that are destroyed later, at the end of the process, may still release device memory.
void cudacalls_add(const std::string& file, unsigned long line);

// Prints the ring to standard output, the most recent call first.
void cudacalls_print();

// True if an error is pending. peekCudaError keeps it, getCudaError clears it.
bool peekCudaError();
bool getCudaError();

// True when there is a device. On a machine without one, where asking is itself an error, the
// process ends as in cuda_check; ask CudaUtil::hasCuda to live on.
bool cudaCheckAvailability();

// Writes "(x,y,z)".
std::ostream& operator<<(std::ostream& out, const dim3& d);

}  // namespace namespace_ratseg

#endif
