#ifndef RATSEG_DEVICE_HOST_HOST_THREAD_STATE_H
#define RATSEG_DEVICE_HOST_HOST_THREAD_STATE_H

#include <cstdint>

#include "device/types.h"

namespace namespace_ratseg {

// The state of one host machine that each thread has for itself.
struct HostThreadState {
  int device = 0;                     // the current one
  cudaError_t pending = cudaSuccess;  // the error
};

// A number that no other machine of the process has had (addresses may be reused).
std::uint64_t newHostMachine();

// The calling thread's state of a machine, with the values above at the first call. It is destroyed
// with the thread; thread-local objects that are destroyed later may still call this and get a new
// state.
HostThreadState& hostThreadState(std::uint64_t machine);

// Releases the calling thread's state of a machine that ends.
void forgetHostThreadState(std::uint64_t machine);

}  // namespace namespace_ratseg

#endif
