#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_LAUNCH_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_LAUNCH_H

// The launches of the strip engine (strip_engine.h): one iteration of a band's rows in one kernel.
// The arithmetic is in strip_kernels.h, the formulas in docs/math.md, sections 6.3 to 6.7.

#include <cstddef>
#include <functional>
#include <memory>

#include "algorithms/rat_segments/alg/strips_gpu/strip_shape.h"
#include "device/launchers.h"
#include "device/types.h"

namespace namespace_ratseg {

// The rows of one launch and what they read and write. Planes as in labeling_kernels.h; no output
// array is an input array. All pointers are device pointers.
struct StripBand {
  const float* u = nullptr;      // labeling, halo row filled
  const float* uPrev = nullptr;  // labeling of the iteration before, halo row filled
  float* uNext = nullptr;        // receives the labeling
  const float2* p = nullptr;     // dual field
  float2* pNext = nullptr;       // receives the dual field; its halo row must be computed already
  const float* rho = nullptr;
  const float* weight = nullptr;      // null = 1 everywhere
  const float* gamma = nullptr;       // of this iteration
  unsigned w = 0, h = 0, n = 0;       // columns, the band's own rows, labels
  unsigned rowBegin = 0, rowEnd = 0;  // rows of this launch
  unsigned rows = 1;                  // of a strip
  bool first = true, last = true;     // true if the band has the image's first, last row
  bool edgeDone = false;              // pNext of the band's last row is computed already
  float lambda = 0.0f;
  float dualStep = 0.0f;    // sigma / 2
  float primalStep = 0.0f;  // tau / (constGamma / N + 4)
  float coupling = 0.0f;    // constGamma / N
  float theta_bar = 1.0f;
  float* partials = nullptr;  // n x blocks sums of the over-relaxed labeling, one column per block
  unsigned firstBlock = 0;    // the launch's first column
  unsigned blocks = 0;        // columns
};

// The proportion prior of one iteration on the first device: its dual step and the primal step of
// the shares, as prior_kernels.h has them.
struct StripShares {
  float *a = nullptr, *a_bar = nullptr, *alpha = nullptr, *beta = nullptr;
  float *ratios = nullptr, *sigmas = nullptr, *mins = nullptr, *maxs = nullptr;
  float* gamma = nullptr;  // of this iteration
  int kind_prior = 0;
  float mu = 0.0f, eps = 0.0f, constGamma = 0.0f, constAlpha = 0.0f;
  std::size_t ind_bgr = 0, n = 0;
  float tau = 1.0f, sigma = 1.0f, theta_bar = 1.0f;
};

// The work after all blocks have written their sums: adds them up for the band and, if gammaNext is
// set, computes the multipliers of the next iteration, which need the sums of the whole image.
struct StripFinish {
  const float* partials = nullptr;
  unsigned blocks = 0, n = 0;
  float* sum = nullptr;  // n
  float* gamma = nullptr;
  float* gammaNext = nullptr;
  float* a_bar = nullptr;
  float constGamma = 0.0f, sigma = 0.0f;
  std::size_t NOmega = 0;       // pixels of the image
  unsigned* counter = nullptr;  // 0 between launches
};

// A recorded sequence of launches.
class StripReplay {
 public:
  virtual ~StripReplay() = default;
  virtual void launch(cudaStream_t stream) = 0;
};

// The launches, on the current device of one backend and in order on their stream. A launch that
// the device refuses leaves its error pending.
class StripKernels {
 public:
  // uPrev from u_bar, in place: the labeling before u that the extrapolation came from.
  virtual void ratseg_strip_enter(float* u_bar, const float* u, float theta_bar,
                                  std::size_t count) = 0;
  // u and u_bar from the last two labelings; each of the four may be one of the others.
  virtual void ratseg_strip_leave(float* u, float* u_bar, const float* fresh, const float* old,
                                  float theta_bar, std::size_t count) = 0;

  // The dual step of the band's last row alone.
  virtual void ratseg_strip_edge(const StripShape& shape, cudaStream_t stream,
                                 const StripBand& band) = 0;

  // Dual and primal step of the band's rows, with their sums. shares, when not null, takes its step
  // beside them; finish, when not null, follows when all blocks are done.
  virtual void ratseg_strip_sweep(const StripShape& shape, cudaStream_t stream,
                                  const StripBand& band, const StripShares* shares,
                                  const StripFinish* finish) = 0;

  virtual void ratseg_strip_finish(cudaStream_t stream, const StripFinish& finish) = 0;

  // Records what steps() launches on the stream, and on others that steps() orders with it, without
  // running it. Returns null, with no error pending and nothing run, where recording fails.
  virtual std::unique_ptr<StripReplay> record(cudaStream_t stream,
                                              const std::function<void()>& steps) = 0;

  // The launchers of each backend; cuda() exists only in builds with that backend. The host has
  // none unless ofHost is set, as tests do: on the host the other fused engine is faster.
  static StripKernels& host() { return *ofHost; }
  static StripKernels& cuda();
  static inline StripKernels* ofHost = nullptr;

  // True if the current backend has launchers.
  static bool areThere() { return ofHost != nullptr || !backend().isHost(); }

 protected:
  ~StripKernels() = default;  // never destroyed: threads may launch while the process ends
};

// The launchers of the current backend.
inline StripKernels& stripKernels() { return currentLaunchers<StripKernels>(); }

}  // namespace namespace_ratseg

#endif
