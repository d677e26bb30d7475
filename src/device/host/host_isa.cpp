#include "device/host/host_isa.h"

#include "device/environment.h"

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

HostIsa hostIsa() { return environment().isa.orEnd(); }

}  // namespace namespace_ratseg
