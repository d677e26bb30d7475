#include "util/cudadefs.h"
#include "device/console.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>

namespace namespace_ratseg {

thread_local std::pair<std::string, unsigned long> lastcalls[kLastCalls];
constinit thread_local int lastcalls_pos = 0;
constinit thread_local int lastcalls_ncur = 0;
std::atomic<bool> cuda_check_sync = false;

namespace {

// True while the thread's ring exists. Has no destructor, so that it outlives the ring.
thread_local bool hasRing = true;

struct RingEnd {
  ~RingEnd() {
    hasRing = false;
    lastcalls_ncur = 0;
  }
};

// The path and line that the check of cudaCheckAvailability prints: fixed, because what a failed
// call prints is known by them, so it is not the line that the check stands in.
constexpr const char* kFile = "src/util/cudadefs";
constexpr unsigned long kLineOfAvailability = 143;

std::size_t numDigits(int number) { return std::to_string(number).size(); }

void printInvalidDeviceFunctionHint() {
  console().out() << "**" << std::endl;
  console().out()
      << "** Likely reason: Wrong -arch parameter. E.g. compiling with -arch=sm_30, but running"
         " on device of compute capability sm_10\n";
  console().out() << "** \n";
  console().out() << "** Other possible reasons: \n";
  console().out() << "** This indicates that a kernel launch is requesting resources that can \n";
  console().out()
      << "** never be satisfied by the current device. Requesting more shared memory \n";
  console().out() << "** per block than the device supports will trigger this error, as will \n";
  console().out() << "** requesting too many threads or blocks. See ::cudaDeviceProp for more \n";
  console().out() << "** device limitations." << std::endl;
  console().out() << "**" << std::endl;
}

// True while an exception unwinds the calling thread: a check must not throw a second one then, and
// the end of a console may be an exception.
bool isUnwinding() { return std::uncaught_exceptions() > 0; }

[[noreturn]] void endProcess() {
  if (lastcalls_ncur > 0) cudacalls_print();
  console().end();
}

}  // namespace

cudaMallocException::cudaMallocException(std::string file_, int line_)
    : file(std::move(file_)), line(line_) {}

void cudaMallocException::printError() const {
  console().error() << "ERROR: Insufficient GPU memory (" << file << ", line " << line << ")"
                    << std::endl;
}

void cuda_check_setSync(bool sync) { cuda_check_sync = sync; }
bool cuda_check_isSync() { return cuda_check_sync; }

void cuda_check(const std::string& file, unsigned long line) {
  if (cuda_check_sync) cudaDeviceSynchronize();
  const cudaError_t error = cudaGetLastError();
  if (error == cudaSuccess) {
    cudacalls_add(file, line);
    return;
  }
  if (isUnwinding()) return;
  console().out() << std::endl;
  console().out() << file << ", line " << line;
  console().out() << ": " << cudaGetErrorString(error) << " (" << cudaErrorNumber(error) << ")"
                  << std::endl;
  if (error == cudaErrorInvalidDeviceFunction) printInvalidDeviceFunctionHint();
  endProcess();
}

void cuda_check_malloc(const std::string& file, unsigned long line) {
  const cudaError_t error = cudaGetLastError();
  if (error == cudaSuccess) {
    cudacalls_add(file, line);
    return;
  }
  if (isUnwinding()) return;
  if (error == cudaErrorMemoryAllocation) throw cudaMallocException(file, static_cast<int>(line));
  console().out() << std::endl;
  console().out() << file << ", line " << line << ": " << cudaGetErrorString(error) << std::endl;
  endProcess();
}

void cuda_peek(const std::string& file, unsigned long line) {
  const cudaError_t error = cudaPeekAtLastError();
  if (error != cudaSuccess) {
    console().out() << "CUDA WARNING: " << file << ", line " << line << ": "
                    << cudaGetErrorString(error) << std::endl;
  }
  cudacalls_add(file, line);
}

void cudacalls_add(const std::string& file, unsigned long line) {
  if (!hasRing) return;
  lastcalls[lastcalls_pos] = {file, line};
  static thread_local RingEnd end;  // made after the ring, and so destroyed before it
  lastcalls_ncur = std::min(lastcalls_ncur + 1, kLastCalls);
  lastcalls_pos = (lastcalls_pos + 1) % kLastCalls;
}

void cudacalls_print() {
  console().out() << "Previous CUDA calls:" << std::endl;
  const std::size_t width = numDigits(lastcalls_ncur);
  for (int i = 0; i < lastcalls_ncur; ++i) {
    const auto& [file, line] = lastcalls[(lastcalls_pos - 1 - i + kLastCalls) % kLastCalls];
    console().out() << std::string(width - numDigits(i), ' ') << i << ": " << file << ", line "
                    << line << std::endl;
  }
}

bool peekCudaError() { return cudaPeekAtLastError() != cudaSuccess; }
bool getCudaError() { return cudaGetLastError() != cudaSuccess; }

bool cudaCheckAvailability() {
  int count = 0;
  cudaGetDeviceCount(&count);
  cuda_check(kFile, kLineOfAvailability);
  return count > 0;
}

std::ostream& operator<<(std::ostream& out, const dim3& d) {
  return out << "(" << d.x << "," << d.y << "," << d.z << ")";
}

}  // namespace namespace_ratseg
