#ifndef RATSEG_UTIL_DEVICE_SCOPE_H
#define RATSEG_UTIL_DEVICE_SCOPE_H

#include "device/runtime.h"

namespace namespace_ratseg {

// Makes a device current for a scope, then the one before it again.
class DeviceScope {
 public:
  // Only remembers the current device, for a scope that switches devices itself.
  DeviceScope() { cudaGetDevice(&previous_); }
  explicit DeviceScope(int device) : DeviceScope() { cudaSetDevice(device); }
  ~DeviceScope() { cudaSetDevice(previous_); }
  DeviceScope(const DeviceScope&) = delete;
  DeviceScope& operator=(const DeviceScope&) = delete;

 private:
  int previous_ = 0;
};

}  // namespace namespace_ratseg

#endif
