// exit_program HOW: ends while other threads compute, or with what nobody freed. Ends with status
// 0.

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "device/selection.h"
#include "util/TimerCUDA.h"
#include "util/cudaarray.h"

using namespace namespace_ratseg;

namespace {

std::atomic<int> solves = 0;
std::atomic<bool> computing = false;

void waitForSolves(int count) {
  while (solves < count) std::this_thread::yield();
}

// Made before anything of the library, and so destroyed after it: then threads still compute.
struct LastOfAll {
  ~LastOfAll() {
    if (computing) waitForSolves(solves + 4);
  }
} lastOfAll;

bool setUp(RatSeg& solver, std::vector<float>& costs) {
  Params& par = solver.getParams();
  par.w = 90;
  par.h = 70;
  par.n = 3;
  par.Nsteps = 4;
  par.outModulo = 2;
  if (!solver.alloc()) return false;
  costs.resize(par.w * par.h * par.n);
  for (std::size_t i = 0; i < costs.size(); ++i) costs[i] = static_cast<float>(i * 7 % 11);
  std::vector<float> shares = {0.4f, 0.6f, 0.0f};
  solver.setRatios(shares.data(), shares.data(), 2, nullptr, nullptr);
  solver.setDataterm(costs.data());
  return true;
}

void solve(bool freesIt) {
  RatSeg solver;
  std::vector<float> array;
  if (!setUp(solver, array)) std::abort();
  solver.run();
  solver.getSolution(array.data());
  if (freesIt) solver.free();
  ++solves;
}

void computeForEver() {
  computing = true;
  for (std::size_t k = 0;; ++k) solve(true);
}

// What is static and holds device memory; destroyed before lastOfAll, but after all that belongs to
// the main thread.
struct Static {
  RatSeg solver;
  cudaarray<float> array;
  TimerCUDA timer;
  ~Static() { solver.free(); }
};

void fillStatic() {
  static Static held;
  std::vector<float> costs;
  if (!setUp(held.solver, costs)) std::abort();
  held.solver.run();
  held.array.alloc(1000);
  held.timer.begin("all");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string how = argc == 2 ? argv[1] : "";
  if (how == "main_returns") {
    std::thread(computeForEver).detach();
    std::thread(computeForEver).detach();
    waitForSolves(3);
  } else if (how == "thread_exits") {
    std::thread(computeForEver).detach();
    std::thread([] {
      waitForSolves(3);
      std::exit(0);
    }).detach();
    computeForEver();
  } else if (how == "static_holds_memory") {
    fillStatic();
  } else if (how == "thread_forgets_to_free") {
    std::thread([] { solve(false); }).join();
    std::thread([] { solve(false); }).join();
  } else {
    std::cerr << "ERROR: expected main_returns, thread_exits, static_holds_memory or "
                 "thread_forgets_to_free"
              << std::endl;
    return 2;
  }
  return 0;
}
