// Checks that the iteration ended in finite numbers.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "algorithms/rat_segments/alg/rat_seg_impl.h"
#include "device/ceil_div.h"
#include "device/host/host_launch.h"
#include "device/runtime.h"
#include "device/selection.h"

namespace namespace_ratseg {

namespace {

constexpr std::size_t kChunk = 65536;  // floats that are looked at at a time

// The bits of a value but its sign: beyond those of infinity are NaN.
constexpr std::uint32_t kMagnitude = 0x7fffffff;
constexpr std::uint32_t kInfinity = 0x7f800000;
constexpr std::uint32_t kMaxNumber = kInfinity - 1;

bool anyBeyond(std::uint32_t magnitude, const float* values, std::size_t count) {
  std::uint32_t found = 0;
  for (std::size_t k = 0; k < count; ++k) {
    found |= static_cast<std::uint32_t>((std::bit_cast<std::uint32_t>(values[k]) & kMagnitude) >
                                        magnitude);
  }
  return found != 0;
}

bool anyBeyondOnHost(std::uint32_t magnitude, const float* values, std::size_t count) {
  std::vector<char> found(ceilDiv(count, kChunk));
  parallelFor(found.size(), count, [&](std::size_t c) {
    found[c] = anyBeyond(magnitude, values + c * kChunk, std::min(kChunk, count - c * kChunk));
  });
  return std::find(found.begin(), found.end(), 1) != found.end();
}

// In an array of the device that is selected.
bool anyBeyondOnDevice(std::uint32_t magnitude, const float* values, std::size_t count) {
  if (backend().isHost()) return anyBeyondOnHost(magnitude, values, count);
  std::vector<float> piece(std::min(count, 64 * kChunk));
  for (std::size_t done = 0; done < count; done += piece.size()) {
    const std::size_t part = std::min(piece.size(), count - done);
    cudaMemcpy(piece.data(), values + done, part * sizeof(float), cudaMemcpyDeviceToHost);
    check();
    if (anyBeyondOnHost(magnitude, piece.data(), part)) return true;
  }
  return false;
}

// Elements first to first + count of an array; one that is not allocated has none.
bool areFinite(const cudaarray<float>& array, std::size_t first, std::size_t count) {
  return !array.isAllocated() || !anyBeyondOnDevice(kMaxNumber, array.get_ptr() + first, count);
}

bool areFinite(const cudaarray<float2>& array, std::size_t first, std::size_t count) {
  return !array.isAllocated() ||
         !anyBeyondOnDevice(kMaxNumber, &(array.get_ptr() + first)->x, 2 * count);
}

bool areNumbers(const cudaarray<float>& array, std::size_t first, std::size_t count) {
  return !array.isAllocated() || !anyBeyondOnDevice(kInfinity, array.get_ptr() + first, count);
}

// The halo rows are other bands' rows.
bool labelIsFinite(const gpudata& g, std::size_t i, std::size_t w) {
  return areFinite(g.u, i * g.NOmegaOffset, g.NOmega) &&
         areFinite(g.p, i * g.NOmegaOffset + w, g.NOmega) &&
         areNumbers(g.rho, i * g.NOmega, g.NOmega);
}

}  // namespace

bool RatSegImpl::stateIsFinite() {
  for (int d = 0; d < bands(); ++d) {
    const gpudata& g = arrays[d];
    select(d);
    if (d == 0) {
      for (const cudaarray<float>* shares : {&g.a, &g.gamma, &g.alpha, &g.beta, &g.sum_u}) {
        if (!areFinite(*shares, 0, par.n)) return false;
      }
    }
    if (g.weightHat != nullptr && !areNumbers(g.weight, 0, g.NOmega)) return false;
    for (std::size_t i = 0; i < par.n; ++i) {
      if (!labelIsFinite(g, i, par.w)) return false;
    }
  }
  return true;
}

}  // namespace namespace_ratseg
