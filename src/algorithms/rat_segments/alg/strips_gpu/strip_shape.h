#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_SHAPE_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_SHAPE_H

#include <cstddef>

#include "device/ceil_div.h"
#include "device/environment.h"
#include "device/types.h"

namespace namespace_ratseg {

// The division of the sweep into blocks of threads.
//
// Up to kMaxRegisterLabels labels a warp walks down a strip of `rows` rows, with the values of all
// labels in registers and `pixels` adjacent columns per thread; a block has threads / 32 strips.
// With more labels a block works on tiles of 32 x tileRows pixels (or threads x 1), one after the
// other, with the values of all labels in shared memory, or in the rows that it will write where
// shared memory is too small to keep the device busy.
struct StripShape {
  int labels = 0;         // number that the kernel is compiled for; 0 = any
  int pixels = 1;         // per thread and row, 1 or 2
  unsigned threads = 32;  // of a block
  unsigned rows = 1;      // of a strip; of several bands' first rows too
  unsigned tileRows = 1;
  unsigned maxBlocks = 1;       // that work on tiles
  bool sharedScratch = false;   // values in shared memory
  std::size_t sharedBytes = 0;  // of a block
};

inline constexpr int kMaxRegisterLabels = 16;
inline constexpr unsigned kMaxStripThreads = 128;  // of a block that walks strips
inline constexpr unsigned kStripLanes = 32;        // of a warp
inline constexpr unsigned kTileColumns = 32;
inline constexpr unsigned kTileBlocks = 4;  // of tiles, at most at a time on a processor

// Blocks of kMaxStripThreads that a processor holds at a time: as many as leave each thread the
// registers that it needs without spilling (scripts/kernel_report.py).
constexpr int stripBlocksAtOnce(int labels) { return labels >= 6 ? 3 : 4; }

// Warps side by side on rows of that many threads. Neighbours have two lanes in common.
RATSEG_HD constexpr unsigned stripWarpsOfRow(unsigned threads) {
  constexpr unsigned kOwn = kStripLanes - 2;
  return threads <= kStripLanes ? 1 : ceilDiv(threads - 2, kOwn);
}

// The shape for bands of an image of w columns with at most h rows each.
StripShape stripShape(std::size_t w, std::size_t h, std::size_t n, const cudaDeviceProp& device,
                      const StripWish& wish = {});

// Blocks of a launch over that many rows, without the one of the shares.
unsigned stripBlocks(const StripShape& shape, std::size_t w, std::size_t rows);

}  // namespace namespace_ratseg

#endif
