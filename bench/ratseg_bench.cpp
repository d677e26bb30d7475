// Speed of the iteration, against the machine's own memory bandwidth measured in the same run.
//
//   ratseg_bench [-device auto|cuda|host] [WxHxN ...]
//
// Prints, per size: pixel-label-iterations per second (median of several runs, with the spread),
// microseconds per iteration, the bandwidth at 36 bytes per pixel-label-iteration, and its ratio to
// an in-place a = a s + b over an array far larger than the caches (on the host), or to a copy
// within device memory (on a GPU), read and written bytes counted.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "device/host/host_launch.h"
#include "device/runtime.h"
#include "device/selection.h"

using namespace namespace_ratseg;

namespace {

constexpr int kRepeats = 7;
constexpr double kBytesPerStep = 36.0;

struct Size {
  std::size_t w, h, n;
};

double secondsNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Bytes per second, read and written.
double measureBandwidth() {
  constexpr std::size_t kFloats = std::size_t{64} << 20;
  const double bytes = 2.0 * kFloats * sizeof(float);
  std::vector<double> rates;
  if (backend().isHost()) {
    std::vector<float> a(kFloats, 1.0f);
    constexpr std::size_t kPiece = 16384;
    for (int r = 0; r < kRepeats; ++r) {
      const double start = secondsNow();
      parallelFor(kFloats / kPiece, kFloats, [&](std::size_t piece) {
        float* p = a.data() + piece * kPiece;
        for (std::size_t k = 0; k < kPiece; ++k) p[k] = p[k] * 0.999f + 0.001f;
      });
      rates.push_back(bytes / (secondsNow() - start));
    }
    return median(rates);
  }
  void* a = nullptr;
  void* b = nullptr;
  cudaMalloc(&a, kFloats * sizeof(float));
  cudaMalloc(&b, kFloats * sizeof(float));
  for (int r = 0; r < kRepeats; ++r) {
    constexpr int kCopies = 20;
    cudaMemcpy(b, a, kFloats * sizeof(float), cudaMemcpyDeviceToDevice);
    cudaDeviceSynchronize();
    const double start = secondsNow();
    for (int c = 0; c < kCopies; ++c) {
      cudaMemcpy(b, a, kFloats * sizeof(float), cudaMemcpyDeviceToDevice);
    }
    cudaDeviceSynchronize();
    rates.push_back(kCopies * bytes / (secondsNow() - start));
  }
  cudaFree(a);
  cudaFree(b);
  return median(rates);
}

struct Measurement {
  double median = 0.0, least = 0.0, greatest = 0.0;  // seconds per iteration
};

// The seconds of one iteration on random costs that leave most pixels with one or two labels, as
// real data terms do.
Measurement measureIteration(const Size& size) {
  RatSeg solver;
  Params& par = solver.getParams();
  par.w = size.w;
  par.h = size.h;
  par.n = size.n;
  par.lambda = 5.0f;
  par.mu = 500.0f;
  par.eps = 10.0f;
  std::cout.setstate(std::ios::failbit);  // the memory report is not wanted here
  const bool ok = solver.alloc();
  std::cout.clear();
  if (!ok) return {};

  std::mt19937 generator(1);
  const std::size_t pixels = size.w * size.h;
  std::vector<float> rho(pixels * size.n);
  for (float& x : rho) x = 10.0f * static_cast<float>(generator() >> 8) * 0x1p-24f;
  std::vector<float> weight(pixels, 0.8f);
  const float share = size.n > 1 ? 1.0f / static_cast<float>(size.n - 1) : 1.0f;
  std::vector<float> ratios(size.n, share);
  std::vector<float> sigmas(size.n, 0.02f);
  solver.setRatios(ratios.data(), sigmas.data(), size.n - 1, nullptr, nullptr);
  solver.setDataterm(rho.data());
  solver.setWeight(weight.data());

  const auto run = [&](std::size_t steps) {
    par.Nsteps = steps;
    par.outModulo = steps + 1;
    const double start = secondsNow();
    solver.run();
    return (secondsNow() - start) / static_cast<double>(steps);
  };
  const double once = run(3);
  const auto steps = static_cast<std::size_t>(std::clamp(0.4 / once, 3.0, 2000.0));
  run(std::min<std::size_t>(steps, 50));  // past the start, where more projections are needed
  std::vector<double> times;
  for (int r = 0; r < kRepeats; ++r) times.push_back(run(steps));
  solver.free();
  return {median(times), *std::min_element(times.begin(), times.end()),
          *std::max_element(times.begin(), times.end())};
}

void printLine(const Size& size, double bandwidth) {
  const Measurement m = measureIteration(size);
  if (m.median == 0.0) return;
  const double pli = static_cast<double>(size.w * size.h * size.n);
  const double gbs = kBytesPerStep * pli / m.median * 1e-9;
  std::printf("%5zux%-5zu x%-4zu %9.1f M pli/s (%.1f to %.1f)  %9.1f us  %7.2f GB/s  ratio %.2f\n",
              size.w, size.h, size.n, pli / m.median * 1e-6, pli / m.greatest * 1e-6,
              pli / m.least * 1e-6, m.median * 1e6, gbs, gbs * 1e9 / bandwidth);
  std::fflush(stdout);
}

bool parseSize(const std::string& text, Size& size) {
  int used = 0;
  return std::sscanf(text.c_str(), "%zux%zux%zu%n", &size.w, &size.h, &size.n, &used) == 3 &&
         static_cast<std::size_t>(used) == text.size() && size.w * size.h * size.n > 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Size> sizes;
  for (int k = 1; k < argc; ++k) {
    const std::string word = argv[k];
    DeviceChoice choice = DeviceChoice::automatic;
    Size size = {};
    if (word == "-device" && k + 1 < argc && parseDeviceChoice(argv[k + 1], choice)) {
      chooseBackend(choice, std::cerr);
      ++k;
    } else if (parseSize(word, size)) {
      sizes.push_back(size);
    } else {
      std::cerr << "ERROR: expected -device auto|cuda|host or WxHxN, but found \"" << word << "\""
                << std::endl;
      return 1;
    }
  }
  if (sizes.empty())
    sizes = {{64, 64, 3}, {512, 512, 5}, {1024, 1024, 8}, {2048, 2048, 8}, {1024, 1024, 64}};
  int count = 0;
  if (cudaGetDeviceCount(&count) != cudaSuccess || count == 0) {
    std::cerr << "ERROR: no device" << std::endl;
    return 1;
  }
  cudaDeviceProp prop;
  cudaGetDeviceProperties(&prop, 0);
  const double bandwidth = measureBandwidth();
  std::printf("device: %s, in-place bandwidth %.1f GB/s\n", prop.name, bandwidth * 1e-9);
  for (const Size& size : sizes) printLine(size, bandwidth);
  return 0;
}
