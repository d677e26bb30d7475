#include "device/host/host_config.h"
#include "device/console.h"
#include "device/quoted.h"

#include <omp.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace namespace_ratseg {

namespace {

// Reads variable name as a whole number of [lo, hi] into value, when it is set.
bool readNumber(const char* name, long long lo, long long hi, long long& value,
                std::string& error) {
  const char* text = std::getenv(name);
  if (text == nullptr || *text == '\0') return true;
  const char* end = text + std::strlen(text);
  long long read = 0;
  const auto [stop, code] = std::from_chars(text, end, read);
  if (code != std::errc() || stop != end || read < lo || read > hi) {
    error = "ERROR: " + std::string(name) + " must be a whole number from " + std::to_string(lo) +
            " to " + std::to_string(hi) + ", but is " + inQuotes(text);
    return false;
  }
  value = read;
  return true;
}

}  // namespace

bool HostConfig::fromEnvironment(HostConfig& config, std::string& error) {
  long long devices = config.devices;
  long long peer = config.peer ? 1 : 0;
  long long mib = 0;
  if (!readNumber("RATSEG_HOST_DEVICES", 0, 64, devices, error) ||
      !readNumber("RATSEG_HOST_PEER", 0, 1, peer, error) ||
      !readNumber("RATSEG_HOST_MEMORY", 1, 1LL << 30, mib, error)) {
    return false;
  }
  config.devices = static_cast<int>(devices);
  config.peer = peer != 0;
  if (mib > 0) config.memoryBytes = static_cast<std::size_t>(mib) << 20;
  return true;
}

HostConfig HostConfig::fromEnvironmentOrExit() {
  HostConfig config;
  std::string error;
  if (!fromEnvironment(config, error)) {
    console().error() << error << std::endl;
    console().end();
  }
  return config;
}

int hostThreads() { return omp_get_max_threads(); }

void limitHostThreads() {
  constexpr int kMostThreads = 1024;
  if (omp_get_max_threads() > kMostThreads) omp_set_num_threads(kMostThreads);
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
