// Speed of the iteration, against the machine's own memory bandwidth measured in the same run.
//
//   ratseg_bench [-device auto|cuda|host] [-engine plain|fused|auto] [--whole STEPS] [--noise]
//                [--accelerate] [--json FILE] [WxHxN ...]
//
// Ends with status 1 when the device has no room for a size; the others are measured all the same.
// With --whole it solves each size once in so many iterations and names set-up, transfers, the
// iteration and the file of the labeling apart. The problem is a picture of noisy regions; with
// --noise its costs are independent random numbers. --accelerate measures the accelerated
// iteration.
//
// Prints, per size and engine: pixel-label-iterations per second (median of several runs, with the
// spread), microseconds per iteration, the bandwidth at 36 bytes per pixel-label-iteration, and its
// ratio to the limit of the device's memory (bandwidth.h), which is measured between the runs and
// has its spread printed. For the fused engine on the host the plainest total-variation loop
// (peers/total_variation.h) runs in turn with it. RATSEG_ISA chooses the fused engine's instruction
// set on the host.

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/fused_host/host_sweep.h"
#include "algorithms/rat_segments/alg/rat_seg.h"
#include "app/usage_wanted.h"
#include "app/version/version.h"
#include "bandwidth.h"
#include "device/runtime.h"
#include "device/selection.h"
#include "peers/total_variation.h"
#include "util/fileio.h"
#include "wave_picture.h"

using namespace namespace_ratseg;

namespace {

constexpr int kRepeats = 7;
constexpr double kBytesPerStep = 36.0;
constexpr std::size_t kSome = 50;  // iterations before the measured ones
constexpr float kLambda = 5.0f;

struct Size {
  std::size_t w, h, n;
};

struct Job {
  std::vector<Size> sizes;
  std::vector<int> engines;
  std::string json;
  std::size_t wholeSteps = 0;
  bool noise = false;
  bool accelerate = false;
};

// A solver and the arrays of one problem.
struct Problem {
  RatSeg solver;
  std::vector<float> rho, weight, ratios, sigmas;
};

// Figures that were measured several times.
struct Spread {
  double median = 0.0, least = 0.0, greatest = 0.0;

  Spread() = default;
  explicit Spread(const std::vector<double>& values)
      : median(namespace_ratseg::median(values)),
        least(*std::min_element(values.begin(), values.end())),
        greatest(*std::max_element(values.begin(), values.end())) {}
};

struct Measurement {
  Spread iteration;    // seconds
  Spread peer;         // seconds of an iteration of the plain loop; 0 where it was not run
  Spread limit;        // bytes per second
  double check = 0.0;  // seconds of one check of the certified stop
};

void setParams(Params& par, const Size& size, int engine, const Job& job) {
  par.w = size.w;
  par.h = size.h;
  par.n = size.n;
  par.lambda = kLambda;
  par.mu = 500.0f;
  par.eps = 10.0f;
  par.engine = engine;
  par.accelerate = job.accelerate;
}

// Without the memory report, which is not wanted here. False when the device has no room.
bool allocate(RatSeg& solver) {
  std::cout.setstate(std::ios::failbit);
  const bool ok = solver.alloc();
  std::cout.clear();
  return ok;
}

// Costs that have nothing to do with each other: nearly every pixel ends up between many labels,
// which is the slowest that a solver's projection can meet.
std::vector<float> randomCosts(const Size& size) {
  std::mt19937 generator(1);
  std::vector<float> rho(size.w * size.h * size.n);
  for (float& x : rho) x = 10.0f * static_cast<float>(generator() >> 8) * 0x1p-24f;
  return rho;
}

void fillArrays(Problem& p, const Size& size, bool noise) {
  p.rho =
      noise ? randomCosts(size) : wavePictureCosts(drawWavePicture(size.w, size.h, size.n), size.n);
  p.weight.assign(size.w * size.h, 0.8f);
  p.ratios.assign(size.n, size.n > 1 ? 1.0f / static_cast<float>(size.n - 1) : 1.0f);
  p.sigmas.assign(size.n, 0.02f);
}

void upload(Problem& p) {
  const std::size_t n = p.ratios.size();
  p.solver.setRatios(p.ratios.data(), p.sigmas.data(), n - 1, nullptr, nullptr);
  p.solver.setDataterm(p.rho.data());
  p.solver.setWeight(p.weight.data());
}

double secondsOfRun(RatSeg& solver, std::size_t steps) {
  Params& par = solver.getParams();
  par.Nsteps = steps;
  par.outModulo = steps + 1;
  const double start = secondsNow();
  solver.run();
  return secondsNow() - start;
}

bool hasPeer(int engine, const Job& job) {
  return backend().isHost() && engine == Params::engine_fused && !job.accelerate;
}

// The seconds of one iteration. In each repeat the solver, the loop that it is compared with and
// the memory take turns, so that a machine whose speed changes changes all three.
Measurement measureIteration(const Size& size, int engine, const Job& job, Bandwidth& memory) {
  Problem p;
  setParams(p.solver.getParams(), size, engine, job);
  if (!allocate(p.solver)) return {};
  fillArrays(p, size, job.noise);
  upload(p);
  const double once = secondsOfRun(p.solver, 3) / 3.0;
  const bool slow = once > 0.3;
  const int repeats = slow ? 3 : kRepeats;
  // Past the start, where more projections are needed; a run's own set-up hardly counts then.
  const std::size_t warm = once < 0.1 ? kSome : 2;
  const double each = secondsOfRun(p.solver, warm) / static_cast<double>(warm);
  const double most = backend().isHost() ? 2000.0 : 50000.0;
  const auto steps = static_cast<std::size_t>(std::clamp(0.4 / each, slow ? 3.0 : 10.0, most));
  const auto measureSteps = [&](std::size_t count) {
    return secondsOfRun(p.solver, count) / static_cast<double>(count);
  };
  std::unique_ptr<TotalVariationLoop> peer;
  if (hasPeer(engine, job)) {
    peer = std::make_unique<TotalVariationLoop>(size.w, size.h, size.n, p.rho, kLambda);
    for (std::size_t k = 0; k < warm; ++k) peer->iterate();
  }
  std::vector<double> times, peerTimes, rates;
  for (int r = 0; r < repeats; ++r) {
    times.push_back(measureSteps(steps));
    if (peer) {
      const double start = secondsNow();
      for (std::size_t k = 0; k < steps; ++k) peer->iterate();
      peerTimes.push_back((secondsNow() - start) / static_cast<double>(steps));
    }
    rates.push_back(memory.measureOnce());
  }
  peer.reset();
  Params& par = p.solver.getParams();
  par.tolerance = 1e-30f;  // never met
  par.certifyModulo = 1;
  const std::size_t checks = std::clamp<std::size_t>(steps / 10, slow ? 1 : 3, 200);
  std::vector<double> checked;
  for (int r = 0; r < repeats; ++r) checked.push_back(measureSteps(checks));
  p.solver.free();
  Measurement m;
  m.iteration = Spread(times);
  if (!peerTimes.empty()) m.peer = Spread(peerTimes);
  m.limit = Spread(rates);
  m.check = median(checked) - m.iteration.median;
  return m;
}

// One solve from set-up to the file of the labeling, each part's seconds on a line of its own.
bool measureWhole(const Size& size, int engine, const Job& job) {
  Problem p;
  setParams(p.solver.getParams(), size, engine, job);
  fillArrays(p, size, job.noise);
  std::vector<float> u(p.rho.size());
  const auto part = [](const char* name, auto&& body) {
    const double start = secondsNow();
    const bool ok = body();
    if (ok) std::printf("  %-26s %9.3f s\n", name, secondsNow() - start);
    std::fflush(stdout);
    return ok;
  };
  bool ok = part("set-up", [&] { return allocate(p.solver); });
  if (!ok) return false;
  part("transfer to the device", [&] { return upload(p), true; });
  part("iterations", [&] { return secondsOfRun(p.solver, job.wholeSteps), true; });
  part("transfer from the device", [&] { return p.solver.getSolution(u.data()), true; });
  const std::string file = "ratseg_bench_labeling.gz";
  ok = part("file of the labeling", [&] {
    std::vector<int> labels(size.w * size.h);
    for (std::size_t k = 0; k < u.size(); ++k) {
      if (u[k] > 0.5f) labels[k % labels.size()] = static_cast<int>(k / labels.size());
    }
    return FileIO::saveArray(file, labels.data(), labels.size());
  });
  std::remove(file.c_str());
  p.solver.free();
  return ok;
}

std::string engineName(int engine, const Job& job) {
  std::string name = engine == Params::engine_fused ? "fused" : "auto";
  if (backend().isHost()) name = "fused " + std::string(hostSweep().isa);
  if (engine == Params::engine_plain) name = "plain";
  return job.accelerate ? name + " accelerated" : name;
}

// Lines on standard output; returns the same as a JSON object, or nothing when the device has no
// room.
std::string measure(const Size& size, int engine, const Job& job, Bandwidth& memory) {
  const Measurement m = measureIteration(size, engine, job, memory);
  const Spread& t = m.iteration;
  if (t.median == 0.0) return "";
  const double pli = static_cast<double>(size.w * size.h * size.n);
  const double gbs = kBytesPerStep * pli / t.median;
  std::printf(
      "%5zux%-5zu x%-4zu %-18s %9.1f M pli/s (%.1f to %.1f)  %9.1f us  %7.2f GB/s  ratio %.2f\n",
      size.w, size.h, size.n, engineName(engine, job).c_str(), pli / t.median * 1e-6,
      pli / t.greatest * 1e-6, pli / t.least * 1e-6, t.median * 1e6, gbs * 1e-9,
      gbs / m.limit.median);
  std::printf("    limit meanwhile: %.1f GB/s (%.1f to %.1f)\n", m.limit.median * 1e-9,
              m.limit.least * 1e-9, m.limit.greatest * 1e-9);
  if (m.peer.median > 0.0) {
    std::printf("    plain total variation: %.1f M pli/s (%.1f to %.1f); this is %.2f times that\n",
                pli / m.peer.median * 1e-6, pli / m.peer.greatest * 1e-6, pli / m.peer.least * 1e-6,
                m.peer.median / t.median);
  }
  const double perCheck = m.check / t.median;
  std::printf(
      "    a check of the certified stop: %.1f iterations, %.2f %% of a run with the default\n",
      perCheck, 100.0 * perCheck / static_cast<double>(Params().certifyModulo));
  std::fflush(stdout);
  std::ostringstream json;
  json << "{\"w\": " << size.w << ", \"h\": " << size.h << ", \"n\": " << size.n
       << ", \"engine\": \"" << engineName(engine, job) << "\", \"seconds\": " << t.median
       << ", \"seconds_least\": " << t.least << ", \"seconds_greatest\": " << t.greatest
       << ", \"seconds_per_check\": " << m.check << ", \"pli_per_second\": " << pli / t.median
       << ", \"limit_bytes_per_second\": " << m.limit.median
       << ", \"limit_least\": " << m.limit.least << ", \"limit_greatest\": " << m.limit.greatest
       << ", \"peer_seconds\": " << m.peer.median
       << ", \"ratio_to_limit\": " << gbs / m.limit.median << "}";
  return json.str();
}

bool parseSize(const std::string& text, Size& size) {
  int used = 0;
  return std::sscanf(text.c_str(), "%zux%zux%zu%n", &size.w, &size.h, &size.n, &used) == 3 &&
         static_cast<std::size_t>(used) == text.size() && size.w * size.h * size.n > 0;
}

bool parseCount(const std::string& text, std::size_t& count) {
  int used = 0;
  return std::sscanf(text.c_str(), "%zu%n", &count, &used) == 1 &&
         static_cast<std::size_t>(used) == text.size() && count > 0;
}

bool parseArguments(int argc, char** argv, Job& job) {
  const std::map<std::string, int> engineNumbers = {{"plain", Params::engine_plain},
                                                    {"fused", Params::engine_fused},
                                                    {"auto", Params::engine_auto}};
  for (int k = 1; k < argc; ++k) {
    const std::string word = argv[k];
    const std::string value = k + 1 < argc ? argv[k + 1] : "";
    DeviceChoice choice = DeviceChoice::automatic;
    Size size = {};
    if (word == "-device" && parseDeviceChoice(value, choice)) {
      chooseBackend(choice, std::cerr);
      ++k;
    } else if (word == "-engine" && engineNumbers.count(value) != 0) {
      job.engines.push_back(engineNumbers.at(value));
      ++k;
    } else if (word == "--whole" && parseCount(value, job.wholeSteps)) {
      ++k;
    } else if (word == "--noise") {
      job.noise = true;
    } else if (word == "--accelerate") {
      job.accelerate = true;
    } else if (word == "--json" && !value.empty()) {
      job.json = value;
      ++k;
    } else if (parseSize(word, size)) {
      job.sizes.push_back(size);
    } else {
      std::cerr
          << "ERROR: expected -device auto|cuda|host, -engine plain|fused|auto, --whole STEPS, "
             "--noise, --accelerate, --json FILE or WxHxN, but found \""
          << word << "\"" << std::endl;
      return false;
    }
  }
  if (job.sizes.empty()) {
    job.sizes = {{64, 64, 3}, {512, 512, 5}, {1024, 1024, 8}, {2048, 2048, 8}, {1024, 1024, 64}};
  }
  if (job.engines.empty()) job.engines = {Params::engine_plain, Params::engine_fused};
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (versionWanted(argc, argv)) {
    printVersion("ratseg_bench");
    return 0;
  }
  Job job;
  if (!parseArguments(argc, argv, job)) return 1;
  int count = 0;
  if (cudaGetDeviceCount(&count) != cudaSuccess || count == 0) {
    std::cerr << "ERROR: no device" << std::endl;
    return 1;
  }
  cudaDeviceProp prop;
  cudaGetDeviceProperties(&prop, 0);
  std::unique_ptr<Bandwidth> memory;
  if (backend().isHost()) {
    memory = std::make_unique<HostBandwidth>();
  } else {
    memory = std::make_unique<DeviceBandwidth>();
  }
  std::vector<double> rates;
  for (int r = 0; r < kRepeats; ++r) rates.push_back(memory->measureOnce());
  const Spread limit(rates);
  std::printf("device: %s, limit %.1f GB/s (%.1f to %.1f)\n", prop.name, limit.median * 1e-9,
              limit.least * 1e-9, limit.greatest * 1e-9);
  std::string list;
  bool roomForAll = true;
  for (const Size& size : job.sizes) {
    for (int engine : job.engines) {
      if (job.wholeSteps > 0) {
        std::printf("%zux%zu x%zu %s, %zu iterations:\n", size.w, size.h, size.n,
                    engineName(engine, job).c_str(), job.wholeSteps);
        if (!measureWhole(size, engine, job)) roomForAll = false;
        continue;
      }
      const std::string json = measure(size, engine, job, *memory);
      if (json.empty()) roomForAll = false;
      if (!json.empty()) list += (list.empty() ? "\n    " : ",\n    ") + json;
    }
  }
  const int status = roomForAll ? 0 : 1;
  if (job.json.empty()) return status;
  std::ofstream out(job.json);
  out << "{\n  \"device\": \"" << prop.name << "\",\n  \"limit_bytes_per_second\": " << limit.median
      << ",\n  \"results\": [" << list << "\n  ]\n}\n";
  if (out.flush()) return status;
  std::cerr << "ERROR: cannot write \"" << job.json << "\"" << std::endl;
  return 1;
}
