#ifndef RATSEG_DEVICE_HOST_HOST_THREAD_STATE_H
#define RATSEG_DEVICE_HOST_HOST_THREAD_STATE_H

#include <cstdint>

#include "device/types.h"

namespace namespace_ratseg {

// What a thread has of one host machine for itself.
struct HostThreadState {
  int device = 0;                     // the current one
  cudaError_t pending = cudaSuccess;  // the error
};

// A number that no other machine of the process has had: addresses come again.
std::uint64_t newHostMachine();

// The calling thread's state of a machine; as above at its first call. It ends with the thread.
// What is destroyed behind that may still ask, and gets a new one.
HostThreadState& hostThreadState(std::uint64_t machine);

// Releases the calling thread's state of a machine that ends.
void forgetHostThreadState(std::uint64_t machine);

}  // namespace namespace_ratseg

#endif
