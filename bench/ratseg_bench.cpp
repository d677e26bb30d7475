// Speed of the iteration, against the machine's own memory bandwidth measured in the same run.
//
//   ratseg_bench [-device auto|cuda|host] [-engine plain|auto] [--json FILE] [WxHxN ...]
//
// Prints, per size and engine: pixel-label-iterations per second (median of several runs, with the
// spread), microseconds per iteration, the bandwidth at 36 bytes per pixel-label-iteration, and its
// ratio to the limit: an in-place a = a s + b over an array far larger than the caches (on the
// host), or a copy within device memory (on a GPU), read and written bytes counted. RATSEG_ISA
// chooses the fused engine's instruction set on the host.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/host_sweep.h"
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

struct Job {
  std::vector<Size> sizes;
  std::vector<int> engines;
  std::string json;
};

struct Measurement {
  double median = 0.0, least = 0.0, greatest = 0.0;  // seconds per iteration
};

double secondsNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

constexpr std::size_t kLimitFloats = std::size_t{64} << 20;
constexpr double kLimitBytes = 2.0 * kLimitFloats * sizeof(float);

double hostBandwidth() {
  std::vector<float> a(kLimitFloats, 1.0f);
  std::vector<double> rates;
  constexpr std::size_t kPiece = 16384;
  for (int r = 0; r < kRepeats; ++r) {
    const double start = secondsNow();
    parallelFor(kLimitFloats / kPiece, kLimitFloats, [&](std::size_t piece) {
      float* p = a.data() + piece * kPiece;
      for (std::size_t k = 0; k < kPiece; ++k) p[k] = p[k] * 0.999f + 0.001f;
    });
    rates.push_back(kLimitBytes / (secondsNow() - start));
  }
  return median(rates);
}

double deviceBandwidth() {
  void* a = nullptr;
  void* b = nullptr;
  cudaMalloc(&a, kLimitFloats * sizeof(float));
  cudaMalloc(&b, kLimitFloats * sizeof(float));
  const auto copy = [&](int times) {
    const double start = secondsNow();
    for (int c = 0; c < times; ++c) {
      cudaMemcpy(b, a, kLimitFloats * sizeof(float), cudaMemcpyDeviceToDevice);
    }
    cudaDeviceSynchronize();
    return times * kLimitBytes / (secondsNow() - start);
  };
  copy(3);
  std::vector<double> rates;
  for (int r = 0; r < kRepeats; ++r) rates.push_back(copy(20));
  cudaFree(a);
  cudaFree(b);
  return median(rates);
}

// The seconds of one iteration on random costs, which leave most pixels with one or two labels as
// real data terms do.
Measurement measureIteration(const Size& size, int engine) {
  RatSeg solver;
  Params& par = solver.getParams();
  par.w = size.w;
  par.h = size.h;
  par.n = size.n;
  par.lambda = 5.0f;
  par.mu = 500.0f;
  par.eps = 10.0f;
  par.engine = engine;
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
  run(std::clamp<std::size_t>(steps, 5, 50));  // past the start, where more projections are needed
  std::vector<double> times;
  for (int r = 0; r < kRepeats; ++r) times.push_back(run(steps));
  solver.free();
  return {median(times), *std::min_element(times.begin(), times.end()),
          *std::max_element(times.begin(), times.end())};
}

std::string engineName(int engine) {
  if (engine == Params::engine_plain) return "plain";
  return backend().isHost() ? "fused " + std::string(hostSweep().isa) : "auto";
}

// One line on standard output; returns the same as a JSON object, or nothing when the device has no
// room.
std::string measure(const Size& size, int engine, double bandwidth) {
  const Measurement m = measureIteration(size, engine);
  if (m.median == 0.0) return "";
  const double pli = static_cast<double>(size.w * size.h * size.n);
  const double gbs = kBytesPerStep * pli / m.median;
  std::printf(
      "%5zux%-5zu x%-4zu %-14s %9.1f M pli/s (%.1f to %.1f)  %9.1f us  %7.2f GB/s  ratio %.2f\n",
      size.w, size.h, size.n, engineName(engine).c_str(), pli / m.median * 1e-6,
      pli / m.greatest * 1e-6, pli / m.least * 1e-6, m.median * 1e6, gbs * 1e-9, gbs / bandwidth);
  std::fflush(stdout);
  std::ostringstream json;
  json << "{\"w\": " << size.w << ", \"h\": " << size.h << ", \"n\": " << size.n
       << ", \"engine\": \"" << engineName(engine) << "\", \"seconds\": " << m.median
       << ", \"seconds_least\": " << m.least << ", \"seconds_greatest\": " << m.greatest
       << ", \"pli_per_second\": " << pli / m.median << ", \"ratio_to_limit\": " << gbs / bandwidth
       << "}";
  return json.str();
}

bool parseSize(const std::string& text, Size& size) {
  int used = 0;
  return std::sscanf(text.c_str(), "%zux%zux%zu%n", &size.w, &size.h, &size.n, &used) == 3 &&
         static_cast<std::size_t>(used) == text.size() && size.w * size.h * size.n > 0;
}

bool parseArguments(int argc, char** argv, Job& job) {
  for (int k = 1; k < argc; ++k) {
    const std::string word = argv[k];
    const std::string value = k + 1 < argc ? argv[k + 1] : "";
    DeviceChoice choice = DeviceChoice::automatic;
    Size size = {};
    if (word == "-device" && parseDeviceChoice(value, choice)) {
      chooseBackend(choice, std::cerr);
      ++k;
    } else if (word == "-engine" && (value == "plain" || value == "auto")) {
      job.engines.push_back(value == "plain" ? Params::engine_plain : Params::engine_auto);
      ++k;
    } else if (word == "--json" && !value.empty()) {
      job.json = value;
      ++k;
    } else if (parseSize(word, size)) {
      job.sizes.push_back(size);
    } else {
      std::cerr << "ERROR: expected -device auto|cuda|host, -engine plain|auto, --json FILE or "
                   "WxHxN, but found \""
                << word << "\"" << std::endl;
      return false;
    }
  }
  if (job.sizes.empty()) {
    job.sizes = {{64, 64, 3}, {512, 512, 5}, {1024, 1024, 8}, {2048, 2048, 8}, {1024, 1024, 64}};
  }
  if (job.engines.empty()) job.engines = {Params::engine_plain, Params::engine_auto};
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Job job;
  if (!parseArguments(argc, argv, job)) return 1;
  int count = 0;
  if (cudaGetDeviceCount(&count) != cudaSuccess || count == 0) {
    std::cerr << "ERROR: no device" << std::endl;
    return 1;
  }
  cudaDeviceProp prop;
  cudaGetDeviceProperties(&prop, 0);
  const double bandwidth = backend().isHost() ? hostBandwidth() : deviceBandwidth();
  std::printf("device: %s, limit %.1f GB/s\n", prop.name, bandwidth * 1e-9);
  std::string list;
  for (const Size& size : job.sizes) {
    for (int engine : job.engines) {
      const std::string json = measure(size, engine, bandwidth);
      if (!json.empty()) list += (list.empty() ? "\n    " : ",\n    ") + json;
    }
  }
  if (job.json.empty()) return 0;
  std::ofstream out(job.json);
  out << "{\n  \"device\": \"" << prop.name << "\",\n  \"limit_bytes_per_second\": " << bandwidth
      << ",\n  \"results\": [" << list << "\n  ]\n}\n";
  if (out.flush()) return 0;
  std::cerr << "ERROR: cannot write \"" << job.json << "\"" << std::endl;
  return 1;
}
