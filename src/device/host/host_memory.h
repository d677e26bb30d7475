#ifndef RATSEG_DEVICE_HOST_HOST_MEMORY_H
#define RATSEG_DEVICE_HOST_HOST_MEMORY_H

#include <cstddef>

namespace namespace_ratseg {

// Memory of at least that many bytes (more than 0), at a multiple of 256 bytes; null when there is
// none. To be released by releaseHostMemory with the same number of bytes.
//
// Large blocks come from the system as zeros. The system provides each page at its first write, in
// the memory nearest to the thread that writes it. They are aligned to huge pages and ask for them:
// a sweep walks through more rows at a time than the TLB has entries for small pages.
void* allocateHostMemory(std::size_t bytes);

// The same, all bytes zero. Large blocks need no clearing.
void* allocateZeroedHostMemory(std::size_t bytes);

void releaseHostMemory(void* memory, std::size_t bytes);

}  // namespace namespace_ratseg

#endif
