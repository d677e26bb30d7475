#ifndef RATSEG_DEVICE_HOST_HOST_MEMORY_H
#define RATSEG_DEVICE_HOST_HOST_MEMORY_H

#include <cstddef>

namespace namespace_ratseg {

// Memory of at least that many bytes (more than 0), at a multiple of 256 bytes; null when there is
// none. To be released by releaseHostMemory with the same number of bytes.
//
// Large blocks come from the system as zeros, and a page of theirs takes no room before it is
// written, nor is it placed: it belongs to the part of the machine whose thread writes it first.
// They begin at a huge page and ask for huge pages: a sweep walks through more rows at a time than
// there are entries for small pages.
void* allocateHostMemory(std::size_t bytes);

// The same, all bytes zero. Large blocks are left as they come.
void* allocateZeroedHostMemory(std::size_t bytes);

void releaseHostMemory(void* memory, std::size_t bytes);

}  // namespace namespace_ratseg

#endif
