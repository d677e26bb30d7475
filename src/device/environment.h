#ifndef RATSEG_DEVICE_ENVIRONMENT_H
#define RATSEG_DEVICE_ENVIRONMENT_H

// Reads the environment variables RATSEG_... (docs/devices.md). Nothing else reads the environment.

#include <functional>
#include <string>
#include <vector>

#include "device/host/host_config.h"
#include "device/host/host_isa.h"
#include "device/selection.h"

namespace namespace_ratseg {

// Prints the error, one line, on standard error and ends the process with status 1.
[[noreturn]] void endWith(const std::string& error);

// The setting that one or more variables make. A wrong value is an error only when the setting is
// used.
template <class T>
struct Setting {
  T value = {};       // with an error: as if the variables were unset
  std::string error;  // one line that names the variable, what was expected and what was found

  // The value; an error ends the process.
  const T& orEnd() const {
    if (!error.empty()) endWith(error);
    return value;
  }
};

// The shape of the strips of the GPUs' fused engine, for measurements; 0 = chosen to fit the device
// and the image.
struct StripWish {
  unsigned rows = 0;     // of a strip, 1 to 64
  unsigned pixels = 0;   // per thread and row, 1 or 2; 2 only where there are pairs
  unsigned threads = 0;  // of a block, 32, 64 or 128
};

struct Environment {
  Setting<DeviceChoice> device;  // RATSEG_DEVICE: "auto", "cuda" or "host"
  Setting<HostConfig> host;      // RATSEG_HOST_DEVICES, RATSEG_HOST_PEER, RATSEG_HOST_MEMORY
  Setting<HostIsa> isa;          // RATSEG_ISA: one of isas; otherwise the last of them, the best
  Setting<StripWish> strips;     // RATSEG_STRIP_ROWS, RATSEG_STRIP_PIXELS, RATSEG_STRIP_THREADS

  // Value of the variable of that name; null when it is unset or empty.
  using Lookup = std::function<const char*(const char* name)>;

  static Environment read(const Lookup& valueOf, const std::vector<HostIsa>& isas);
};

// The environment of the process, read at the first call: when a device is chosen, or at the latest
// when the first solver is made. Later changes of the variables have no effect.
const Environment& environment();

}  // namespace namespace_ratseg

#endif
