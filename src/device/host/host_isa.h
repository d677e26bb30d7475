#ifndef RATSEG_DEVICE_HOST_HOST_ISA_H
#define RATSEG_DEVICE_HOST_HOST_ISA_H

// The instruction sets that hot loops on the host are compiled for, and the choice between them
// when the program runs. Each loop has a table of functions per instruction set, in namespaces
// isa_baseline, isa_avx2 and isa_avx512 (host_vectors.h), and a function that returns the one for a
// HostIsa.

#include <string>
#include <vector>

namespace namespace_ratseg {

enum class HostIsa { baseline, avx2, avx512 };

// "baseline", "avx2" or "avx512".
const char* nameOf(HostIsa isa);

// All that this build holds and this processor runs, the plainest first.
std::vector<HostIsa> usableHostIsas();

// Finds the one of that name among isas. False with one line in error when there is none.
bool findHostIsa(const std::vector<HostIsa>& isas, const std::string& name, HostIsa& found,
                 std::string& error);

// The best for this processor, or the one that the environment variable RATSEG_ISA names (a name
// that is unknown or beyond the processor: one line on standard error, and the process ends with
// status 1).
HostIsa hostIsa();

}  // namespace namespace_ratseg

#endif
