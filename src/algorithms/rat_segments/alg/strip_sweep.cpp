#include "algorithms/rat_segments/alg/strip_sweep.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string>

#include "device/cuda/cuda_backend.h"
#include "device/selection.h"

namespace namespace_ratseg {

namespace {

constexpr unsigned kMostThreads = 128;  // of a block that walks strips
constexpr unsigned kMostRows = 16;      // beyond it, repeated border rows cost next to nothing
constexpr std::size_t kThreadsPerProcessor = 256;  // that keep the memory busy
constexpr unsigned kTileRows = 8;
constexpr std::size_t kBlocksInSharedMemory = 3;  // fewer at a time do not keep the memory busy

std::size_t ceilDiv(std::size_t a, std::size_t b) { return (a + b - 1) / b; }

std::size_t processors(const cudaDeviceProp& device) {
  return static_cast<std::size_t>(std::max(device.multiProcessorCount, 1));
}

// Strips of rows so many that enough threads are left to keep the device busy.
unsigned stripRows(std::size_t threadsPerRow, std::size_t h, const cudaDeviceProp& device) {
  const std::size_t wanted = processors(device) * kThreadsPerProcessor;
  const std::size_t rows = threadsPerRow * h / wanted;
  return static_cast<unsigned>(std::clamp<std::size_t>(rows, 1, kMostRows));
}

int compiledLabels(std::size_t n) {
  if (n <= 8) return static_cast<int>(n);
  return n <= 12 ? 12 : kMostRegisterLabels;
}

StripShape registerShape(std::size_t w, std::size_t h, std::size_t n, const cudaDeviceProp& device,
                         const StripWish& wish) {
  StripShape s;
  s.labels = compiledLabels(n);
  const bool pairs = n <= 8 && w % 2 == 0;  // that start at even columns of every row
  s.pixels = pairs && wish.pixels != 1 ? 2 : 1;
  const std::size_t threadsPerRow = w / static_cast<std::size_t>(s.pixels);
  while (s.threads < kMostThreads && s.threads < threadsPerRow) s.threads *= 2;
  if (wish.threads > 0) s.threads = wish.threads;
  s.rows = wish.rows > 0 ? wish.rows : stripRows(threadsPerRow, h, device);
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
  const std::size_t room = device.sharedMemPerBlockOptin / kBlocksInSharedMemory;
  s.sharedScratch = true;
  while (s.tileRows > 2 && bytes() > room) s.tileRows /= 2;
  if (bytes() > room) {
    s.sharedScratch = false;
    s.tileRows = kTileRows;
    while (s.tileRows > 1 && bytes() > device.sharedMemPerBlock) s.tileRows /= 2;
  }
  s.threads = kTileColumns * s.tileRows;
  s.rows = s.tileRows;
  s.sharedBytes = bytes();
  s.mostBlocks = static_cast<unsigned>(processors(device)) * kTileBlocks;
  return s;
}

// The value of an environment variable, 0 when it is unset or empty.
template <class Allowed>
unsigned wished(const char* variable, const char* expected, Allowed&& allowed) {
  const char* text = std::getenv(variable);
  if (text == nullptr || *text == '\0') return 0;
  const std::string word = text;
  const bool digits = word.find_first_not_of("0123456789") == std::string::npos;
  const unsigned value = digits && word.size() <= 3 ? static_cast<unsigned>(std::stoi(word)) : 0;
  if (allowed(value)) return value;
  std::cerr << "ERROR: " << variable << " must be " << expected << ", but is \"" << word << "\""
            << std::endl;
  std::exit(1);
}

}  // namespace

StripWish stripWishFromEnvironment() {
  StripWish wish;
  wish.rows = wished("RATSEG_STRIP_ROWS", "a number from 1 to 64",
                     [](unsigned k) { return k >= 1 && k <= 64; });
  wish.pixels =
      wished("RATSEG_STRIP_PIXELS", "1 or 2", [](unsigned k) { return k == 1 || k == 2; });
  wish.threads = wished("RATSEG_STRIP_THREADS", "32, 64 or 128",
                        [](unsigned k) { return k == 32 || k == 64 || k == 128; });
  return wish;
}

StripShape stripShape(std::size_t w, std::size_t h, std::size_t n, const cudaDeviceProp& device,
                      const StripWish& wish) {
  return n <= kMostRegisterLabels ? registerShape(w, h, n, device, wish) : tileShape(n, device);
}

unsigned stripBlocks(const StripShape& s, std::size_t w, std::size_t rows) {
  if (s.labels == 0) {
    const std::size_t tiles = ceilDiv(w, kTileColumns) * ceilDiv(rows, s.tileRows);
    return static_cast<unsigned>(std::min<std::size_t>(tiles, s.mostBlocks));
  }
  const std::size_t columns = ceilDiv(w / static_cast<std::size_t>(s.pixels), s.threads);
  return static_cast<unsigned>(columns * ceilDiv(rows, s.rows));
}

StripKernels& stripKernels() {
  if constexpr (kBuiltWithCuda) {
    if (!backend().isHost()) return cudaStripKernels();
  }
  return hostStripKernels();
}

}  // namespace namespace_ratseg
