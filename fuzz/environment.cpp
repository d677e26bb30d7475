// Values of environment variables, each ended by a zero byte: RATSEG_HOST_DEVICES,
// RATSEG_HOST_PEER, RATSEG_HOST_MEMORY, RATSEG_DEVICE, RATSEG_ISA and those of the strips.

#include <charconv>
#include <iostream>
#include <optional>

#include "algorithms/rat_segments/alg/strips_gpu/strip_shape.h"
#include "device/console.h"
#include "device/host/host_config.h"
#include "device/host/host_isa.h"
#include "device/selection.h"
#include "exit_throws.h"
#include "target.h"

namespace {

using namespace namespace_ratseg;

// Sets a variable for its life.
class Variable {
 public:
  Variable(const char* name, const std::string& value) : name_(name) {
    setenv(name, value.c_str(), 1);
  }
  ~Variable() { unsetenv(name_); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* name_;
};

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
  const Variable variable(name, value);
  HostConfig config;
  std::string error;
  const bool ok = HostConfig::fromEnvironment(config, error);
  FUZZ_EXPECT(ok == inRange(value, lo, hi), std::string(name) + " takes its range");
  if (!ok) expectLine(error, name);
  FUZZ_EXPECT(0 <= config.devices && config.devices <= 64, "there are at most 64 devices");
}

void tryDevice(const std::string& value) {
  const Variable variable("RATSEG_DEVICE", value);
  DeviceChoice choice = DeviceChoice::host;
  std::string error;
  const bool ok = deviceChoiceFromEnvironment(choice, error);
  const bool known = value.empty() || value == "auto" || value == "cuda" || value == "host";
  FUZZ_EXPECT(ok == known, "RATSEG_DEVICE takes its three words");
  if (!ok) expectLine(error, "RATSEG_DEVICE");
}

void tryIsa(const std::string& value) {
  const std::vector<HostIsa> isas = usableHostIsas();
  HostIsa found = HostIsa::baseline;
  std::string error;
  if (findHostIsa(isas, value, found, error)) {
    FUZZ_EXPECT(nameOf(found) == value, "the instruction set is the one that was named");
  } else {
    expectLine(error, "RATSEG_ISA");
  }
}

// One that ends by an exception.
class ThrowingConsole final : public Console {
 public:
  std::ostream& out() override { return std::cout; }
  std::ostream& error() override { return std::cerr; }

 private:
  void doEnd() override { throw fuzz::Ended{1}; }
};

void tryStrips(const char* name, const std::string& value, bool known) {
  const Variable variable(name, value);
  const fuzz::Captured captured;
  ThrowingConsole console;
  const ConsoleScope scope(console);
  bool ok = true;
  try {
    stripWishFromEnvironment();
  } catch (const fuzz::Ended& ended) {
    ok = false;
    FUZZ_EXPECT(ended.status == 1, "a bad value ends the process with status 1");
    const auto lines = fuzz::linesOf(captured.err());
    FUZZ_EXPECT(lines.size() == 1, "the error is one line");
    expectLine(lines[0], name);
  }
  FUZZ_EXPECT(ok == (value.empty() || known), std::string(name) + " takes its values");
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
    tryIsa(value);
    const long long k = shortNumber(value);
    tryStrips("RATSEG_STRIP_ROWS", value, k >= 1 && k <= 64);
    tryStrips("RATSEG_STRIP_PIXELS", value, k == 1 || k == 2);
    tryStrips("RATSEG_STRIP_THREADS", value, k == 32 || k == 64 || k == 128);
  }
  return 0;
}
