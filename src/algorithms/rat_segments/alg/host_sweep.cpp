#include "algorithms/rat_segments/alg/host_sweep.h"

#include <cstdlib>
#include <cstring>
#include <iostream>

namespace namespace_ratseg {

namespace isa_baseline {
extern const HostSweep sweep;
}
namespace isa_avx2 {
extern const HostSweep sweep;
}
namespace isa_avx512 {
extern const HostSweep sweep;
}

std::vector<const HostSweep*> usableHostSweeps() {
  std::vector<const HostSweep*> sweeps = {&isa_baseline::sweep};
#if RATSEG_X86
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
    sweeps.push_back(&isa_avx2::sweep);
  }
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq")) {
    sweeps.push_back(&isa_avx512::sweep);
  }
#endif
  return sweeps;
}

const HostSweep* findHostSweep(const std::vector<const HostSweep*>& sweeps, const std::string& name,
                               std::string& error) {
  std::string names;
  for (const HostSweep* sweep : sweeps) {
    if (name == sweep->isa) return sweep;
    names += (names.empty() ? "" : ", ") + std::string(sweep->isa);
  }
  error = "ERROR: RATSEG_ISA must be one that this program has and this processor runs (" + names +
          "), but is \"" + name + "\"";
  return nullptr;
}

const HostSweep& hostSweep() {
  const std::vector<const HostSweep*> sweeps = usableHostSweeps();
  const char* wanted = std::getenv("RATSEG_ISA");
  if (wanted == nullptr || *wanted == '\0') return *sweeps.back();
  std::string error;
  const HostSweep* found = findHostSweep(sweeps, wanted, error);
  if (found == nullptr) {
    std::cerr << error << std::endl;
    std::exit(1);
  }
  return *found;
}

void splitRow(float2* row, std::size_t w, float* scratch) {
  float* parts = &row->x;
  for (std::size_t x = 0; x < w; ++x) scratch[x] = row[x].y;
  for (std::size_t x = 0; x < w; ++x) parts[x] = parts[2 * x];
  std::memcpy(parts + w, scratch, w * sizeof(float));
}

void joinRow(float2* row, std::size_t w, float* scratch) {
  float* parts = &row->x;
  std::memcpy(scratch, parts + w, w * sizeof(float));
  for (std::size_t x = w; x-- > 0;) parts[2 * x] = parts[x];
  for (std::size_t x = 0; x < w; ++x) parts[2 * x + 1] = scratch[x];
}

}  // namespace namespace_ratseg
