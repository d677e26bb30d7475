#ifndef RATSEG_DEVICE_HOST_HOST_CONFIG_H
#define RATSEG_DEVICE_HOST_HOST_CONFIG_H

#include <cstddef>
#include <vector>

#include "device/types.h"

namespace namespace_ratseg {

// The machine that the host plays. environment.h has the one that the variables describe.
struct HostConfig {
  int devices = 1;              // RATSEG_HOST_DEVICES, 0 to 64; 0 = a machine without devices
  bool peer = true;             // RATSEG_HOST_PEER, 0 or 1: may devices reach each other's memory
  std::size_t memoryBytes = 0;  // RATSEG_HOST_MEMORY, MiB per device; 0 = the machine's memory

  // Properties of the first devices, for tests that rank them; devices beyond the list get the
  // host's own (defaultHostProperties).
  std::vector<cudaDeviceProp> properties;
};

// Properties that one host device reports: 1024 threads and 48 KiB of shared memory a block, as
// every GPU has, and compute capability 3.0, the first with warp shuffles.
cudaDeviceProp defaultHostProperties();

// Threads that the host's launches are spread over (OMP_NUM_THREADS, otherwise all cores).
int hostThreads();

// Takes OMP_NUM_THREADS down to what a process can start without trouble.
void limitHostThreads();

}  // namespace namespace_ratseg

#endif
