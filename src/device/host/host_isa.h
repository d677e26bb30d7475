#ifndef RATSEG_DEVICE_HOST_HOST_ISA_H
#define RATSEG_DEVICE_HOST_HOST_ISA_H

// The instruction sets that hot loops on the host are compiled for, and the choice between them
// when the program runs. Each loop has a table of functions per instruction set, in namespaces
// isa_baseline, isa_avx2 and isa_avx512 (host_vectors.h), and a function that returns the one for a
// HostIsa.

#include <vector>

namespace namespace_ratseg {

enum class HostIsa { baseline, avx2, avx512 };

// "baseline", "avx2" or "avx512".
const char* nameOf(HostIsa isa);

// The instruction sets that this build contains and this processor runs, the plainest first.
std::vector<HostIsa> usableHostIsas();

// The best for this processor, or the one that the environment variable RATSEG_ISA names
// (environment.h; a name that is unknown or beyond the processor ends the process).
HostIsa hostIsa();

}  // namespace namespace_ratseg

#endif
