#ifndef RATSEG_ALG_PLAIN_CHECKED_STEPS_H
#define RATSEG_ALG_PLAIN_CHECKED_STEPS_H

#include <mutex>

#include "util/cudadefs.h"

namespace namespace_ratseg {

// Call sites of the solver are reported under one path with a line number, to which each file adds
// its own thousands.
inline constexpr const char* kImplPath = "src/algorithms/rat_segments/alg/rat_seg_impl";
inline constexpr unsigned long kStepLines = 1000;       // plain_steps.cpp
inline constexpr unsigned long kTransferLines = 2000;   // rat_seg_impl_transfer.cpp
inline constexpr unsigned long kStripLines = 3000;      // strip_engine.cpp
inline constexpr unsigned long kCertifierLines = 4000;  // certifier.cpp
inline constexpr unsigned long kFiniteLines = 5000;     // rat_seg_impl_finite.cpp
inline constexpr unsigned long kRunLines = 6000;        // rat_seg_impl_run.cpp
inline constexpr unsigned long kStateLines = 7000;      // solver_state.cpp

// Held while a solver writes to standard output, so that lines of several threads do not mix.
inline std::mutex standardOutputMutex;

inline void check(unsigned long line) { cuda_check(kImplPath, line); }

}  // namespace namespace_ratseg

#endif
