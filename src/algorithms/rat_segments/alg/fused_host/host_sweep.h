#ifndef RATSEG_ALG_FUSED_HOST_HOST_SWEEP_H
#define RATSEG_ALG_FUSED_HOST_HOST_SWEEP_H

// The fused engine's work on one image row of a band on the host: the same updates as
// ratseg_dual_p and ratseg_prim_u (labeling_kernels.h), in an order that touches each element once
// per iteration. Compiled for several instruction sets (host_sweep-inl.h, host_isa.h).
//
// While the fused engine runs, the rows of p are split: a row's w horizontal components, then its w
// vertical ones, in place of w pairs. splitRow and joinRow convert.

#include <cstddef>

#include "device/host/host_isa.h"
#include "device/types.h"

namespace namespace_ratseg {

// One band, its arrays laid out as in labeling_kernels.h but for the split rows of p, and the
// iteration's scalars.
struct SweepBand {
  float* u = nullptr;
  float* u_bar = nullptr;
  float* p = nullptr;  // rows split
  const float* rho = nullptr;
  const float* weight = nullptr;    // null = 1 everywhere
  const float* coupling = nullptr;  // gamma_i constGamma / N per label
  std::size_t w = 0, h = 0, ymin = 0, ymax = 0, n = 0;
  float lambda = 0.0f;
  float dualStep = 0.0f;    // sigma / 2
  float primalStep = 0.0f;  // tau / (constGamma / N + 4)
  float theta_bar = 0.0f;
  bool special = false;  // some costs forbid or force a label
};

struct HostSweep {
  const char* isa;  // "baseline", "avx2" or "avx512"

  // Floats of scratch that rows of w pixels and n labels need.
  std::size_t (*scratchFloats)(std::size_t w, std::size_t n);
  // The dual step of row y. Reads u_bar of rows y and y + 1.
  void (*dualRow)(const SweepBand& band, std::size_t y, float* scratch);
  // The primal step of row y, once the dual rows y and y - 1 are done; with dualToo after the dual
  // step of row y. rowSums[i] = sum of the row's new u_bar_i.
  void (*primalRow)(const SweepBand& band, std::size_t y, bool dualToo, float* rowSums,
                    float* scratch);
  // rowSums[i] = sum of row y of u_bar_i.
  void (*sumRow)(const SweepBand& band, std::size_t y, float* rowSums);
};

const HostSweep& hostSweep(HostIsa isa = hostIsa());

// Row by row, in place: pairs to components and back. scratch holds w floats.
void splitRow(float2* row, std::size_t w, float* scratch);
void joinRow(float2* row, std::size_t w, float* scratch);

}  // namespace namespace_ratseg

#endif
