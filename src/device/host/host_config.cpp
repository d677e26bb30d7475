#include "device/host/host_config.h"

#include <omp.h>

#include <cstdio>

namespace namespace_ratseg {

int hostThreads() { return omp_get_max_threads(); }

void limitHostThreads() {
  constexpr int kMaxThreads = 1024;
  if (omp_get_max_threads() > kMaxThreads) omp_set_num_threads(kMaxThreads);
}

cudaDeviceProp defaultHostProperties() {
  cudaDeviceProp prop;
  std::snprintf(prop.name, sizeof prop.name, "Host (%d thread%s)", hostThreads(),
                hostThreads() == 1 ? "" : "s");
  prop.major = 3;
  prop.minor = 0;
  prop.multiProcessorCount = hostThreads();
  prop.maxThreadsPerBlock = 1024;
  prop.sharedMemPerBlock = 48 << 10;
  prop.sharedMemPerBlockOptin = 48 << 10;
  return prop;
}

}  // namespace namespace_ratseg
