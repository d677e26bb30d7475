#ifndef RATSEG_TESTS_EMULATED_GPU_THREADS_H
#define RATSEG_TESTS_EMULATED_GPU_THREADS_H

// The threads of a kernel. They run one at a time and give way where they wait for each other, in
// an order that changes from wait to wait; blocks run one after the other, in an order that changes
// from launch to launch. Code that needs a wait which it does not have so gives wrong results.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <source_location>
#include <string>

namespace emulated_gpu {

struct Index {
  unsigned x = 0, y = 0, z = 0;
};

// Runs a grid to its end. Shared memory holds NaN where a block starts; a write behind the dynamic
// part is a fault.
void runGrid(const Index& grid, const Index& block, std::size_t sharedBytes,
             const std::function<void()>& thread);

// ---- Called by the threads themselves

// Until all threads of the block are here. It is a fault when one has ended or waits elsewhere.
void waitForBlock(const std::source_location& here);

// Until all lanes of the mask are here; all give their bytes, at most eight. Returns 32 values of
// eight bytes, one per lane, which hold until the lane's next wait. It is a fault when a lane of
// the mask does not exist, has ended, waits for the block or gives another number of bytes.
const void* exchangeInWarp(unsigned mask, const void* value, std::size_t bytes);

unsigned lane();

// Ends the program with one line: it did what no GPU defines.
[[noreturn]] void fault(const std::string& what);

// The seeded random numbers of all orders: one of 0 ... count - 1.
std::size_t anyOf(std::size_t count);

}  // namespace emulated_gpu

#endif
