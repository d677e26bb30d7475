#include "device/host/host_isa.h"

#include "device/console.h"
#include "device/quoted.h"

#include <cstdlib>
#include <iostream>

namespace namespace_ratseg {

const char* nameOf(HostIsa isa) {
  switch (isa) {
    case HostIsa::avx2:
      return "avx2";
    case HostIsa::avx512:
      return "avx512";
    default:
      return "baseline";
  }
}

std::vector<HostIsa> usableHostIsas() {
  std::vector<HostIsa> isas = {HostIsa::baseline};
#if RATSEG_X86
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
    isas.push_back(HostIsa::avx2);
  }
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq")) {
    isas.push_back(HostIsa::avx512);
  }
#endif
  return isas;
}

bool findHostIsa(const std::vector<HostIsa>& isas, const std::string& name, HostIsa& found,
                 std::string& error) {
  std::string names;
  for (const HostIsa isa : isas) {
    if (name == nameOf(isa)) {
      found = isa;
      return true;
    }
    names += (names.empty() ? "" : ", ") + std::string(nameOf(isa));
  }
  error = "ERROR: RATSEG_ISA must be one that this program has and this processor runs (" + names +
          "), but is " + inQuotes(name);
  return false;
}

HostIsa hostIsa() {
  const std::vector<HostIsa> isas = usableHostIsas();
  const char* wanted = std::getenv("RATSEG_ISA");
  if (wanted == nullptr || *wanted == '\0') return isas.back();
  HostIsa found = HostIsa::baseline;
  std::string error;
  if (!findHostIsa(isas, wanted, found, error)) {
    console().error() << error << std::endl;
    console().end();
  }
  return found;
}

}  // namespace namespace_ratseg
