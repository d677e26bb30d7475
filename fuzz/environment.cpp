// Values of environment variables, each ended by a zero byte: RATSEG_HOST_DEVICES,
// RATSEG_HOST_PEER, RATSEG_HOST_MEMORY, RATSEG_DEVICE, RATSEG_ISA and those of the strips.

#include <charconv>
#include <iostream>

#include "device/console.h"
#include "device/environment.h"
#include "exit_throws.h"
#include "target.h"

namespace {

using namespace namespace_ratseg;

// The environment with one variable set.
Environment with(const char* variable, const std::string& value) {
  return Environment::read(
      [&](const char* name) { return std::string(name) == variable ? value.c_str() : nullptr; },
      usableHostIsas());
}

// Whether the value is one that an unset variable has too, or a number of [lo, hi].
bool inRange(const std::string& value, long long lo, long long hi) {
  if (value.empty()) return true;
  long long number = 0;
  const char* end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data(), end, number);
  return error == std::errc() && stop == end && lo <= number && number <= hi;
}

void expectLine(const std::string& error, const std::string& name) {
  FUZZ_EXPECT(error.starts_with("ERROR: " + name), "the error names the variable " + name);
  FUZZ_EXPECT(!fuzz::hasControl(error), "the error is one line without control characters");
}

void tryHost(const char* name, const std::string& value, long long lo, long long hi) {
  const Setting<HostConfig> host = with(name, value).host;
  const bool ok = host.error.empty();
  FUZZ_EXPECT(ok == inRange(value, lo, hi), std::string(name) + " takes its range");
  if (!ok) expectLine(host.error, name);
  const int devices = host.value.devices;
  FUZZ_EXPECT(0 <= devices && devices <= 64, "there are at most 64 devices");
}

void tryDevice(const std::string& value) {
  const Setting<DeviceChoice> device = with("RATSEG_DEVICE", value).device;
  const bool ok = device.error.empty();
  const bool known = value.empty() || value == "auto" || value == "cuda" || value == "host";
  FUZZ_EXPECT(ok == known, "RATSEG_DEVICE takes its three words");
  if (!ok) expectLine(device.error, "RATSEG_DEVICE");
}

void tryIsa(const std::string& value) {
  const Setting<HostIsa> isa = with("RATSEG_ISA", value).isa;
  if (!isa.error.empty()) return expectLine(isa.error, "RATSEG_ISA");
  FUZZ_EXPECT(value.empty() || nameOf(isa.value) == value,
              "the instruction set is the one that was named");
}

void tryStrips(const char* name, const std::string& value, bool known) {
  const Setting<StripWish> strips = with(name, value).strips;
  const bool ok = strips.error.empty();
  FUZZ_EXPECT(ok == (value.empty() || known), std::string(name) + " takes its values");
  if (!ok) expectLine(strips.error, name);
}

// One that ends by an exception.
class ThrowingConsole final : public Console {
 public:
  std::ostream& out() override { return std::cout; }
  std::ostream& error() override { return std::cerr; }

 private:
  void doEnd() override { throw fuzz::Ended{1}; }
};

// A wrong value ends who needs it, with the line of the error.
void tryToNeed(const std::string& value) {
  const Setting<DeviceChoice> device = with("RATSEG_DEVICE", value).device;
  const fuzz::Captured captured;
  ThrowingConsole console;
  const ConsoleScope scope(console);
  bool ok = true;
  try {
    device.orEnd();
  } catch (const fuzz::Ended& ended) {
    ok = false;
    FUZZ_EXPECT(ended.status == 1, "a bad value ends the process with status 1");
    FUZZ_EXPECT(captured.err() == device.error + "\n", "the error is the setting's");
  }
  FUZZ_EXPECT(ok == device.error.empty(), "an error ends who needs the value, nothing else does");
}

// Digits of a number of at most three places, 0 for all else.
long long shortNumber(const std::string& value) {
  const bool digits = value.find_first_not_of("0123456789") == std::string::npos;
  return digits && !value.empty() && value.size() <= 3 ? std::stoll(value) : 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (const std::string& value : fuzz::splitAtZeros({reinterpret_cast<const char*>(data), size})) {
    tryHost("RATSEG_HOST_DEVICES", value, 0, 64);
    tryHost("RATSEG_HOST_PEER", value, 0, 1);
    tryHost("RATSEG_HOST_MEMORY", value, 1, 1LL << 30);
    tryDevice(value);
    tryToNeed(value);
    tryIsa(value);
    const long long k = shortNumber(value);
    tryStrips("RATSEG_STRIP_ROWS", value, k >= 1 && k <= 64);
    tryStrips("RATSEG_STRIP_PIXELS", value, k == 1 || k == 2);
    tryStrips("RATSEG_STRIP_THREADS", value, k == 32 || k == 64 || k == 128);
  }
  return 0;
}
