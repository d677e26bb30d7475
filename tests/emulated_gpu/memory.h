#ifndef RATSEG_TESTS_EMULATED_GPU_MEMORY_H
#define RATSEG_TESTS_EMULATED_GPU_MEMORY_H

// The memory of the emulated GPUs. A program that touches it where a GPU's program could not dies
// with a segmentation fault: on the host outside of the runtime's calls, on a device without peer
// access, beyond an allocation's ends, after it was freed. What it writes beyond the ends on the
// same page is noticed when the allocation is freed. Memory holds NaN when it is new.

#include <cstddef>
#include <map>
#include <vector>

namespace emulated_gpu {

class Memory {
 public:
  Memory(int devices, std::size_t bytesPerDevice);

  // Null when the device has no room.
  void* allocate(int device, std::size_t bytes);
  // False when nothing starts there.
  bool free(void* p);

  std::size_t freeBytes(int device) const;
  std::size_t totalBytes() const { return most_; }

  // Whether all these bytes lie within one allocation, and of which device it is (-1: none).
  bool contains(const void* p, std::size_t bytes) const;
  int deviceOf(const void* p) const;
  // Whether it is, was or could become an address of a device's memory.
  bool isDeviceAddress(const void* p) const;

  // From now on the memory of these devices, and no other's, can be touched.
  void open(const std::vector<bool>& devices);
  void close() { open(std::vector<bool>(devices_.size(), false)); }

 private:
  struct Block {
    std::size_t bytes = 0;  // that were asked for
    char* pages = nullptr;
    std::size_t pageBytes = 0;
  };
  struct Device {
    char* arena = nullptr;
    std::size_t next = 0;  // addresses are not used twice
    std::size_t used = 0;
    std::map<char*, Block> blocks;
    bool isOpen = false;
  };

  static void protect(const Block& block, bool open);
  static void fillAround(const char* p, const Block& block);
  static bool isUntouchedAround(const char* p, const Block& block);

  std::size_t most_;
  std::vector<Device> devices_;
};

}  // namespace emulated_gpu

#endif
