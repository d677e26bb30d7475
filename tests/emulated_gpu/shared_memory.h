#ifndef RATSEG_TESTS_EMULATED_GPU_SHARED_MEMORY_H
#define RATSEG_TESTS_EMULATED_GPU_SHARED_MEMORY_H

// The shared memory of the block that runs: all thread-local variables of the program, since
// __shared__ means thread_local here, and among them the dynamic part.

#include <cstddef>
#include <vector>

namespace emulated_gpu {

// While a grid runs the variables are the grid's; afterwards they hold what they held before.
class SharedMemory {
 public:
  explicit SharedMemory(std::size_t dynamicBytes);
  ~SharedMemory();
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  // Fills it with NaN, threadIdx and the like included.
  void renew();
  // It is a fault when something was written behind the dynamic part.
  void check() const;

 private:
  struct Part {
    char* first = nullptr;
    std::size_t bytes = 0;
  };
  static Part find();

  char* dynamic_;
  std::size_t bytes_;
  Part parts_[2];  // before and behind the dynamic part
  std::vector<char> saved_[2];
};

}  // namespace emulated_gpu

#endif
