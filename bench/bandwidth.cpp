#include "bandwidth.h"

#include <algorithm>
#include <chrono>
#include <cstddef>

#include "device/host/host_launch.h"
#include "device/runtime.h"

namespace namespace_ratseg {

namespace {

constexpr std::size_t kFloats = std::size_t{64} << 20;
constexpr double kBytes = 2.0 * kFloats * sizeof(float);

}  // namespace

double secondsNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

HostBandwidth::HostBandwidth() : array_(kFloats, 1.0f) { measureOnce(); }

double HostBandwidth::measureOnce() {
  constexpr std::size_t kPiece = 16384;
  const double start = secondsNow();
  parallelFor(kFloats / kPiece, kFloats, [&](std::size_t piece) {
    float* p = array_.data() + piece * kPiece;
    for (std::size_t k = 0; k < kPiece; ++k) p[k] = p[k] * 0.999f + 0.001f;
  });
  return kBytes / (secondsNow() - start);
}

DeviceBandwidth::DeviceBandwidth() {
  cudaMalloc(&a_, kFloats * sizeof(float));
  cudaMalloc(&b_, kFloats * sizeof(float));
  copy(3);
}

DeviceBandwidth::~DeviceBandwidth() {
  cudaFree(a_);
  cudaFree(b_);
}

double DeviceBandwidth::copy(int times) {
  const double start = secondsNow();
  for (int c = 0; c < times; ++c) {
    cudaMemcpy(b_, a_, kFloats * sizeof(float), cudaMemcpyDeviceToDevice);
  }
  cudaDeviceSynchronize();
  return times * kBytes / (secondsNow() - start);
}

double DeviceBandwidth::measureOnce() {
  constexpr int kTimes = 20;
  return copy(kTimes);
}

}  // namespace namespace_ratseg
