#include "device/environment.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "device/console.h"
#include "device/quoted.h"

namespace namespace_ratseg {

namespace {

using Lookup = Environment::Lookup;

// "" when the variable is unset.
std::string textOf(const Lookup& valueOf, const char* name) {
  const char* text = valueOf(name);
  return text != nullptr ? text : "";
}

std::string errorOf(const std::string& name, const std::string& expected, const std::string& text) {
  return "ERROR: " + name + " must be " + expected + ", but is " + inQuotes(text);
}

Setting<DeviceChoice> readDevice(const Lookup& valueOf) {
  constexpr const char* kName = "RATSEG_DEVICE";
  Setting<DeviceChoice> device;
  const std::string text = textOf(valueOf, kName);
  if (!text.empty() && !parseDeviceChoice(text, device.value)) {
    device.error = errorOf(kName, "auto, cuda or host", text);
  }
  return device;
}

// Reads a variable as a whole number of [lo, hi] into value, when it is set.
bool readNumber(const Lookup& valueOf, const char* name, long long lo, long long hi,
                long long& value, std::string& error) {
  const std::string text = textOf(valueOf, name);
  if (text.empty()) return true;
  const char* end = text.data() + text.size();
  long long read = 0;
  const auto [stop, code] = std::from_chars(text.data(), end, read);
  if (code != std::errc() || stop != end || read < lo || read > hi) {
    error = errorOf(name, "a whole number from " + std::to_string(lo) + " to " + std::to_string(hi),
                    text);
    return false;
  }
  value = read;
  return true;
}

Setting<HostConfig> readHost(const Lookup& valueOf) {
  Setting<HostConfig> host;
  HostConfig& config = host.value;
  long long devices = config.devices;
  long long peer = config.peer ? 1 : 0;
  long long mib = 0;
  if (!readNumber(valueOf, "RATSEG_HOST_DEVICES", 0, 64, devices, host.error) ||
      !readNumber(valueOf, "RATSEG_HOST_PEER", 0, 1, peer, host.error) ||
      !readNumber(valueOf, "RATSEG_HOST_MEMORY", 1, 1LL << 30, mib, host.error)) {
    return host;
  }
  config.devices = static_cast<int>(devices);
  config.peer = peer != 0;
  if (mib > 0) config.memoryBytes = static_cast<std::size_t>(mib) << 20;
  return host;
}

Setting<HostIsa> readIsa(const Lookup& valueOf, const std::vector<HostIsa>& isas) {
  constexpr const char* kName = "RATSEG_ISA";
  const std::string text = textOf(valueOf, kName);
  Setting<HostIsa> setting = {isas.back(), ""};
  if (text.empty()) return setting;
  std::string names;
  for (const HostIsa isa : isas) {
    if (text == nameOf(isa)) return {isa, ""};
    names += (names.empty() ? "" : ", ") + std::string(nameOf(isa));
  }
  setting.error =
      errorOf(kName, "one that this program has and this processor runs (" + names + ")", text);
  return setting;
}

// A number of one to three digits that is allowed, when the variable is set; 0 when it is not.
template <class Allowed>
bool readWish(const Lookup& valueOf, const char* name, const char* expected, Allowed&& allowed,
              unsigned& value, std::string& error) {
  const std::string text = textOf(valueOf, name);
  if (text.empty()) return true;
  const bool digits = text.find_first_not_of("0123456789") == std::string::npos;
  const unsigned read = digits && text.size() <= 3 ? static_cast<unsigned>(std::stoi(text)) : 0;
  if (!allowed(read)) {
    error = errorOf(name, expected, text);
    return false;
  }
  value = read;
  return true;
}

Setting<StripWish> readStrips(const Lookup& valueOf) {
  Setting<StripWish> strips;
  StripWish wish;
  const auto isRows = [](unsigned k) { return k >= 1 && k <= 64; };
  const auto isPixels = [](unsigned k) { return k == 1 || k == 2; };
  const auto isThreads = [](unsigned k) { return k == 32 || k == 64 || k == 128; };
  if (readWish(valueOf, "RATSEG_STRIP_ROWS", "a number from 1 to 64", isRows, wish.rows,
               strips.error) &&
      readWish(valueOf, "RATSEG_STRIP_PIXELS", "1 or 2", isPixels, wish.pixels, strips.error) &&
      readWish(valueOf, "RATSEG_STRIP_THREADS", "32, 64 or 128", isThreads, wish.threads,
               strips.error)) {
    strips.value = wish;
  }
  return strips;
}

}  // namespace

void endWith(const std::string& error) {
  console().error() << error << std::endl;
  console().end();
}

Environment Environment::read(const Lookup& valueOf, const std::vector<HostIsa>& isas) {
  return {readDevice(valueOf), readHost(valueOf), readIsa(valueOf, isas), readStrips(valueOf)};
}

// Never destroyed: threads may still compute while the process ends.
const Environment& environment() {
  static const Environment& process = *new Environment(Environment::read(
      [](const char* name) -> const char* { return std::getenv(name); }, usableHostIsas()));
  return process;
}

}  // namespace namespace_ratseg
