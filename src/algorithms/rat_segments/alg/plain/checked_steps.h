#ifndef RATSEG_ALG_PLAIN_CHECKED_STEPS_H
#define RATSEG_ALG_PLAIN_CHECKED_STEPS_H

#include <mutex>

#include "util/cudadefs.h"

namespace namespace_ratseg {

// Call sites of the solver are reported under one path with a line number: 1-999 are lines of
// rat_seg_impl.cpp, 1001-1999 of rat_seg_impl_run.cpp, 2001-2999 of rat_seg_impl_transfer.cpp,
// 3001-3999 of strip_engine.cpp, 4001-4999 of certifier.cpp, 5001-5999 of rat_seg_impl_finite.cpp.
inline constexpr const char* kImplPath = "src/algorithms/rat_segments/alg/rat_seg_impl";
inline constexpr unsigned long kRunLines = 1000;
inline constexpr unsigned long kTransferLines = 2000;
inline constexpr unsigned long kStripLines = 3000;
inline constexpr unsigned long kCertifierLines = 4000;
inline constexpr unsigned long kFiniteLines = 5000;

// Held while a solver writes to standard output, so that lines of several threads do not mix.
inline std::mutex standardOutputMutex;

inline void check(unsigned long line) { cuda_check(kImplPath, line); }

}  // namespace namespace_ratseg

#endif
