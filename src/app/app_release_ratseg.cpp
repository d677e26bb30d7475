#include "app/app_release_ratseg.h"

#include <cstdio>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "app/certificate_report.h"
#include "app/hard_costs.h"
#include "app/inputs.h"
#include "app/labeling_shares.h"
#include "app/messages.h"
#include "app/option_file.h"
#include "app/options.h"
#include "app/process.h"
#include "app/progress.h"
#include "app/proportions.h"
#include "app/result_files.h"
#include "app/result_names.h"
#include "app/stage_times.h"
#include "app/usage_wanted.h"
#include "app/version/version.h"
#include "device/runtime.h"
#include "device/selection.h"
#include "util/TimerCUDA.h"
#include "util/available_memory.h"
#include "util/cmd.h"
#include "util/cudautil.h"

namespace namespace_ratseg {

namespace {

void printLabels(const std::string& file, const Proportions& proportions) {
  const std::size_t n = proportions.means.size();
  std::cout << "Labels: " << n << " (foreground labels: ";
  for (std::size_t i = 0; i + 1 < n; ++i) std::cout << (i > 0 ? ", " : "") << i;
  std::cout << "; background label: " << n - 1 << ")\n"
            << "Proportions: " << file << "\n";
  for (std::size_t i = 0; i + 1 < n; ++i) {
    char line[200];  // A float has at most 39 digits before the point.
    std::snprintf(line, sizeof line, "  ratios for fg label %i:  mean=%1.6f   sigma=%1.6f\n",
                  static_cast<int>(i), static_cast<double>(proportions.means[i]),
                  static_cast<double>(proportions.sigmas[i]));
    std::cout << line;
  }
  std::cout << std::flush;
}

void warnOfLeadingWord(int argc, const char* const* argv) {
  if (argc <= 1 || Cmd::isOption(argv[1])) return;
  warnOfOption(inQuotes(argv[1]) + " stands before the first option and is ignored");
}

// Ends the process when there is no device of that number, or when it cannot take the problem: the
// iteration updates all labels in one block of threads.
void checkDevice(int gpu, const Params& par) {
  const int count = CudaUtil::numDevices();
  if (gpu < 0 || gpu >= count) {
    fail("ERROR: -gpu must be a device number from 0 to " + std::to_string(count - 1) +
         ", but is " + std::to_string(gpu));
  }
  cudaDeviceProp prop;
  if (cudaGetDeviceProperties(&prop, gpu) != cudaSuccess || par.Nsteps == 0) return;
  if (par.n > static_cast<std::size_t>(prop.maxThreadsPerBlock)) {
    fail("ERROR: device " + std::to_string(gpu) + " takes at most " +
         std::to_string(prop.maxThreadsPerBlock) + " labels, but there are " +
         std::to_string(par.n));
  }
}

// Bytes that a run takes where the host computes, by the measurements that README names.
double hostBytes(const Params& par) {
  const double pixels = static_cast<double>(par.w) * static_cast<double>(par.h);
  return pixels * (22 * static_cast<double>(par.n) + 68);
}

// Ends the process where the host computes and would need more memory than the user allows; warns
// where it would need more than there is.
void checkHostMemory(const Params& par, const PictureLimits& limits) {
  if (!backend().isHost() || hostBytes(par) <= limits.bytes()) return;
  const std::string needed = "the run needs about " + memoryText(hostBytes(par)) +
                             " of memory on the host (" + sizeText(par.w, par.h, par.n) + "), but ";
  const std::string limit = memoryText(limits.bytes());
  if (limits.gib > 0) {
    fail("ERROR: " + needed + "at most " + limit + " are allowed (-max-memory)");
  }
  warn(needed + limit + " are available");
}

// Sets up the solver's memory, shares and data term; frees the data term, which the solver copies.
void setUpSolver(RatSeg& solver, Proportions& proportions, std::unique_ptr<float[]> dataterm) {
  if (!solver.alloc()) {
    if (backend().isHost()) {
      warn("the host computes, and its memory does not suffice: about " +
           memoryText(hostBytes(solver.getParams())) + " are needed");
    }
    fail("ERROR: could not allocate solver");
  }
  solver.setRatios(proportions.means.data(), proportions.sigmas.data(), solver.getParams().n - 1,
                   nullptr, nullptr);
  solver.setDataterm(dataterm.get());
}

void solve(RatSeg& solver, ProgressWanted progress) {
  Params& par = solver.getParams();
  std::cout << "Computing" << std::endl;
  par.outModulo = par.Nsteps + 1;  // no progress reports
  TimerCUDA timer(par.gpu.data(), static_cast<int>(par.gpu.size()));
  timer.begin("overall");
  runWithProgress(par, solver.getStatistics(), progress, [&solver] { solver.run(); });
  timer.end("overall");
  std::cout << "Computation time: " << timer.get("overall") << " s" << std::endl;
  if (par.tolerance > 0.0f) printCertificate(std::cerr, par, solver.getStatistics());
}

std::vector<int> solvedLabeling(RatSeg& solver, std::size_t pixels, std::size_t n) {
  const auto solution = std::make_unique_for_overwrite<float[]>(pixels * n);
  solver.getSolution(solution.get());
  return hardLabeling(solution.get(), pixels, n);
}

// Ends the process where warnings count as errors and there were any.
void failOnWarnings(const Options& options) {
  if (options.strict && warningCount() > 0) fail("ERROR: " + warningsAreErrors());
}

// Warns of what shows only at the end of a run.
void warnOfResult(const RatSeg& solver, const HardCosts& hardCosts,
                  const std::vector<int>& labeling) {
  if (!solver.getStatistics().finite) {
    warn("the computation met NaN or infinite values; the labeling means nothing");
  }
  hardCosts.warnOfLabeling(labeling);
}

// The labels' proportions; sets the size of the problem.
Proportions readLabels(const Options& options, const Image& image, Params& par) {
  par.w = static_cast<std::size_t>(image.w);
  par.h = static_cast<std::size_t>(image.h);
  Proportions proportions = readProportions(options.proportions);
  par.n = proportions.means.size();
  printLabels(options.proportions, proportions);
  checkHostMemory(par, options.limits);
  return proportions;
}

// Everything from the options on.
void segment(Cmd& cmd) {
  RatSeg solver;
  Params& par = solver.getParams();
  const Options options = readOptions(cmd, par);
  for (const std::string& file : resultFiles(options.outprefix)) {
    removeLeftovers(file);
  }

  StageTimes times;
  times.begin("reading the image");
  const Image image = loadImage(options.image, options.limits);
  Proportions proportions = readLabels(options, image, par);
  times.begin("reading the data term");
  std::unique_ptr<float[]> dataterm = loadDataterm(options.dataterm, image, par.n);
  const HardCosts hardCosts(dataterm.get(), image.count(), par.n);

  par.gpu.push_back(options.gpu);
  checkDevice(options.gpu, par);
  times.begin("memory and data-term upload");
  setUpSolver(solver, proportions, std::move(dataterm));
  times.begin("edge weight");
  const std::unique_ptr<float[]> weight = edgeWeight(image, options.weightcoeff);
  solver.setWeight(weight.get());
  failOnWarnings(options);
  times.begin("iteration");
  solve(solver, options.progress);

  times.begin("download");
  const std::vector<int> labeling = solvedLabeling(solver, image.count(), par.n);
  times.begin("writing");
  writeResultFiles(options.outprefix,
                   {image.w, image.h, par.n, labeling, image.pixels.get(), weight.get()});
  const bool balanced = par.mu != 0.0f && par.Nsteps > 0;
  printShares(std::cerr, labeling, proportions, balanced);
  if (options.timing) times.print(std::cerr);
  warnOfResult(solver, hardCosts, labeling);
  repeatOptionWarnings();
  failOnWarnings(options);
}

}  // namespace

App_ReleaseRatSeg::App_ReleaseRatSeg(int argc, char** argv) {
  try {
    setProgramName("ratseg");
    if (versionWanted(argc, argv)) {
      printVersion("ratseg", qtVersions());
      return;
    }
    const bool usage = usageWanted(argc, argv);
    const std::string optionFile = findOptionFile(argc > 0 ? argv[0] : "", !usage);
    Cmd cmd(argc, argv, optionFile, nullptr, 0);
    chooseDevice(cmd);
    if (!CudaUtil::hasCuda()) {
      fail("ERROR: No CUDA devices found (or CUDA not installed)");
    }
    if (usage) {
      printUsage();
    } else {
      warnOfLeadingWord(argc, argv);
      segment(cmd);
    }
  } catch (const std::bad_alloc&) {
    endForLackOfMemory();
  }
}

}  // namespace namespace_ratseg
