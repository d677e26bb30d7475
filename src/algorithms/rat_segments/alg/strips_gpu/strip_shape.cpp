#include "algorithms/rat_segments/alg/strips_gpu/strip_shape.h"

#include <algorithm>

#include "device/ceil_div.h"

namespace namespace_ratseg {

namespace {

constexpr unsigned kMaxRows = 24;       // beyond it, repeated border rows cost next to nothing
constexpr std::size_t kSchedulers = 4;  // of a processor; each issues the instructions of its warps
constexpr std::size_t kWarpsToWait = 2;  // that a scheduler keeps going while one waits for memory
constexpr unsigned kTileRows = 8;
constexpr std::size_t kBlocksInSharedMemory = 3;  // fewer at a time do not keep the memory busy
constexpr std::size_t kReservedBytes = 1024;  // of shared memory, which each block takes besides

std::size_t processors(const cudaDeviceProp& device) {
  return static_cast<std::size_t>(std::max(device.multiProcessorCount, 1));
}

// Roughly how long that many strips take, in turns of one warp and row. A scheduler has as many
// turns per row as it holds warps, and waits for memory when they are few. Each strip begins with
// the row above it.
std::size_t turns(std::size_t strips, std::size_t rows, std::size_t schedulers,
                  std::size_t warpsAtOnce) {
  const auto ofWave = [](std::size_t warps) { return std::max(warps, kWarpsToWait); };
  const std::size_t waves = strips / (schedulers * warpsAtOnce);
  const std::size_t rest = strips % (schedulers * warpsAtOnce);
  const std::size_t last = rest > 0 ? ofWave(ceilDiv(rest, schedulers)) : 0;
  return (rows + 1) * (waves * ofWave(warpsAtOnce) + last);
}

int compiledLabels(std::size_t n) {
  if (n <= 8) return static_cast<int>(n);
  return n <= 12 ? 12 : kMaxRegisterLabels;
}

StripShape registerShape(std::size_t w, std::size_t h, std::size_t n, const cudaDeviceProp& device,
                         const StripWish& wish) {
  const std::size_t schedulers = kSchedulers * processors(device);
  StripShape s;
  s.labels = compiledLabels(n);
  // Pairs start at even columns of every row. Where single pixels leave schedulers idle they are
  // done sooner.
  const bool pairs = n <= 8 && w % 2 == 0;
  const bool busy = stripWarpsOfRow(static_cast<unsigned>(w)) * h > schedulers;
  s.pixels = pairs && (wish.pixels == 2 || (wish.pixels == 0 && busy)) ? 2 : 1;

  const auto threadsOfRow = static_cast<unsigned>(w / static_cast<std::size_t>(s.pixels));
  const std::size_t warpsOfRow = stripWarpsOfRow(threadsOfRow);
  const auto warpsAtOnce = static_cast<std::size_t>(stripBlocksAtOnce(s.labels)) *
                           (kMaxStripThreads / kStripLanes) / kSchedulers;
  const auto turnsWith = [&](unsigned rows) {
    return turns(warpsOfRow * ceilDiv(h, rows), rows, schedulers, warpsAtOnce);
  };
  for (unsigned rows = 2; rows <= kMaxRows; ++rows) {
    if (turnsWith(rows) < turnsWith(s.rows)) s.rows = rows;
  }
  if (wish.rows > 0) s.rows = wish.rows;

  // Blocks for all processors before blocks of more than one warp.
  const std::size_t strips = warpsOfRow * ceilDiv(h, s.rows);
  const auto blocks = [&] { return ceilDiv(strips * kStripLanes, s.threads); };
  while (s.threads < kMaxStripThreads && blocks() > processors(device)) s.threads *= 2;
  if (wish.threads > 0) s.threads = wish.threads;
  return s;
}

// A block's values of all labels in shared memory where several blocks find room beside each other;
// otherwise only the sums of its warps.
StripShape tileShape(std::size_t n, const cudaDeviceProp& device) {
  StripShape s;
  s.labels = 0;
  s.tileRows = kTileRows;
  const auto bytes = [&] {
    const std::size_t values = s.sharedScratch ? std::size_t{kTileColumns} * s.tileRows : 0;
    return sizeof(float) * n * (values + s.tileRows);
  };
  const std::size_t ofProcessor = device.sharedMemPerBlockOptin + kReservedBytes;
  const auto fits = [&] { return bytes() + kReservedBytes <= ofProcessor / kBlocksInSharedMemory; };
  s.sharedScratch = true;
  while (s.tileRows > 2 && !fits()) s.tileRows /= 2;
  if (!fits()) {
    s.sharedScratch = false;
    s.tileRows = kTileRows;
    while (s.tileRows > 1 && bytes() > device.sharedMemPerBlock) s.tileRows /= 2;
  }
  s.threads = kTileColumns * s.tileRows;
  s.rows = s.tileRows;
  s.sharedBytes = bytes();
  const std::size_t atOnce =
      std::clamp<std::size_t>(ofProcessor / (s.sharedBytes + kReservedBytes), 1, kTileBlocks);
  s.maxBlocks = static_cast<unsigned>(processors(device) * atOnce);
  return s;
}

}  // namespace

StripShape stripShape(std::size_t w, std::size_t h, std::size_t n, const cudaDeviceProp& device,
                      const StripWish& wish) {
  return n <= kMaxRegisterLabels ? registerShape(w, h, n, device, wish) : tileShape(n, device);
}

unsigned stripBlocks(const StripShape& s, std::size_t w, std::size_t rows) {
  if (s.labels == 0) {
    const std::size_t tiles = ceilDiv(w, kTileColumns) * ceilDiv(rows, s.tileRows);
    return static_cast<unsigned>(std::min<std::size_t>(tiles, s.maxBlocks));
  }
  const auto threadsOfRow = static_cast<unsigned>(w / static_cast<std::size_t>(s.pixels));
  const std::size_t strips = stripWarpsOfRow(threadsOfRow) * ceilDiv(rows, s.rows);
  return static_cast<unsigned>(ceilDiv(strips * kStripLanes, s.threads));
}

}  // namespace namespace_ratseg
