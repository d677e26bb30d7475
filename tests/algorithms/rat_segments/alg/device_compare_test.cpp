// The device under test against the host in one process: the same problems on both, the largest
// differences printed. The device's engines are the plain one and that of strips; where the device
// is the host, what they are compared with is its own fused engine. RATSEG_TEST_QUICK in the
// environment takes a tenth of the iterations, for devices that are slow.

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/strips_gpu/strip_engine.h"
#include "device/runtime.h"
#include "support/forwarding_backend.h"
#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

constexpr float kLargest = 2e-4f;
constexpr double kMean = 1e-6;

struct Difference {
  float largest = 0.0f;
  double mean = 0.0;
};

Difference differenceOf(const std::vector<float>& a, const std::vector<float>& b) {
  Difference d;
  if (a.size() != b.size() || a.empty()) return {FLT_MAX, FLT_MAX};
  for (std::size_t k = 0; k < a.size(); ++k) {
    const float difference = std::abs(a[k] - b[k]);
    if (std::isnan(difference)) return {FLT_MAX, FLT_MAX};
    d.largest = std::max(d.largest, difference);
    d.mean += static_cast<double>(difference);
  }
  d.mean /= static_cast<double>(a.size());
  return d;
}

const char* nameOf(int engine) { return engine == Params::engine_plain ? "plain" : "fused"; }

class DeviceCompare : public DeviceTest {
 protected:
  static std::vector<int> engines() { return {Params::engine_plain, Params::engine_strips}; }

  // Bands on one device and, where there are several, on two and three.
  static std::vector<std::vector<int>> bandings() {
    std::vector<std::vector<int>> lists = {{0}, {0, 0}, {0, 0, 0}};
    if (deviceCount() >= 2) lists.push_back({0, 1});
    if (deviceCount() >= 3) lists.push_back({2, 0, 1});
    return lists;
  }

  static bool takesATenth() { return std::getenv("RATSEG_TEST_QUICK") != nullptr; }

  static SolverResult solveWith(SolverProblem p, int engine, const std::vector<int>& gpu = {0},
                                const StripWish& wish = {}) {
    p.par.engine = engine;
    if (takesATenth()) p.par.Nsteps = (p.par.Nsteps + 9) / 10;
    return solve(p, gpu, wish);
  }

  // Without peer access bands on several devices exchange other rows than with it.
  static bool exchangesOtherRows(const std::vector<int>& gpu) {
    for (std::size_t d = 1; d < gpu.size(); ++d) {
      int can = 0;
      if (gpu[d] == gpu[d - 1]) continue;
      cudaDeviceCanAccessPeer(&can, gpu[d], gpu[d - 1]);
      if (can == 0) return true;
    }
    return false;
  }

  static SolverResult solveOnHost(const SolverProblem& p, const std::vector<int>& gpu, bool peer) {
    const HostMachine host(hostConfig(3, peer));
    return solveWith(p, Params::engine_auto, gpu);
  }

  // Solves on the host, then with every engine and each of these bandings on the device under test.
  static void compare(const std::string& name, const SolverProblem& p,
                      const std::vector<std::vector<int>>& cuts = bandings(),
                      const StripWish& wish = {}) {
    const SolverResult expected = solveOnHost(p, {0}, true);
    for (const std::vector<int>& gpu : cuts) {
      if (p.par.h < gpu.size() * 2) continue;
      const bool others = exchangesOtherRows(gpu);
      const SolverResult wanted = others ? solveOnHost(p, gpu, false) : expected;
      for (const int engine : engines()) {
        const Difference d = differenceOf(wanted.u, solveWith(p, engine, gpu, wish).u);
        std::printf("compare: %-24s %-5s on %-6s  largest %.2e  mean %.2e\n", name.c_str(),
                    nameOf(engine), listOf(gpu).c_str(), static_cast<double>(d.largest), d.mean);
        EXPECT_LE(d.largest, kLargest) << name;
        EXPECT_LE(d.mean, kMean) << name;
      }
    }
  }

  static SolverProblem problem(std::size_t w, std::size_t h, std::size_t n, unsigned seed,
                               std::size_t steps) {
    SolverProblem p = randomProblem(w, h, n, seed);
    p.par.Nsteps = steps;
    p.par.outModulo = steps + 1;
    return p;
  }

  static std::string listOf(const std::vector<int>& gpu) {
    std::string list;
    for (const int d : gpu) {
      if (!list.empty()) list += ',';
      list += std::to_string(d);
    }
    return list;
  }

  static std::string sizeOf(const SolverProblem& p) {
    return std::to_string(p.par.w) + "x" + std::to_string(p.par.h) + "x" + std::to_string(p.par.n);
  }
};

// Blocks of several warps and of one, many sums to add up, more tiles than blocks, scratch beyond
// what every kernel may have; and so many iterations that recorded ones are replayed.
TEST_F(DeviceCompare, EveryCutOfAnImage) {
  const std::vector<std::vector<std::size_t>> sizes = {
      {140, 10, 3, 500}, {21, 13, 3, 500}, {2, 700, 2, 30}, {100, 80, 17, 30}, {33, 9, 200, 30}};
  for (const std::vector<std::size_t>& s : sizes) {
    const SolverProblem p = problem(s[0], s[1], s[2], 10, s[3]);
    compare(sizeOf(p), p);
  }
  compare("2x700x2 in 700 blocks", problem(2, 700, 2, 10, 30), bandings(),
          {.rows = 1, .threads = 32});
}

// All streams of a recording come together again; otherwise the device refuses it, and iterations
// are launched one by one.
TEST_F(DeviceCompare, IterationsOfAllBandsAreReplayed) {
  if (onHost()) GTEST_SKIP() << "the host records nothing";
  for (const std::vector<int>& gpu : bandings()) {
    if (exchangesOtherRows(gpu)) continue;
    SolverProblem p = problem(40, 20, 3, 11, 1);
    p.par.gpu = gpu;
    RatSegImpl solver(p.par);
    setUp(solver, p);
    auto engine = StripEngine::make(solver, StepSizes());
    engine->advance(StripEngine::kStepsAtOnce);
    EXPECT_FALSE(engine->replayed()) << listOf(gpu);
    engine->advance(StripEngine::kStepsAtOnce);
    EXPECT_TRUE(engine->replayed()) << listOf(gpu);
    engine.reset();
    solver.free();
  }
}

// A run that is to stop would otherwise go on with all that is queued.
TEST_F(DeviceCompare, TheHostStaysTwoRecordingsAhead) {
  if (onHost()) GTEST_SKIP() << "the host records nothing";
  class CountsWaits final : public ForwardingBackend {
   public:
    using ForwardingBackend::ForwardingBackend;
    cudaError_t eventSynchronize(cudaEvent_t event) override {
      ++waits;
      return ForwardingBackend::eventSynchronize(event);
    }
    int waits = 0;
  };
  SolverProblem p = problem(40, 20, 3, 11, 1);
  p.par.gpu = {0};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  {
    const auto engine = StripEngine::make(solver, StepSizes());
    engine->advance(StripEngine::kStepsAtOnce);  // launched one by one
    CountsWaits counter(backend());
    const BackendScope scope(counter);
    for (int replays = 1; replays <= 6; ++replays) {
      engine->advance(StripEngine::kStepsAtOnce);
      EXPECT_EQ(counter.waits, std::max(replays - 2, 0)) << replays << " recordings queued";
    }
  }
  solver.free();
}

// Also when the iterations behind it are queued before anybody looks.
TEST_F(DeviceCompare, WhatIsPublishedStays) {
  std::vector<std::vector<float>> seen[2];
  for (const bool late : {false, true}) {
    SolverProblem p = problem(40, 20, 3, 11, 1);
    p.par.gpu = {0};
    p.weight.clear();
    RatSegImpl solver(p.par);
    setUp(solver, p);
    {
      const auto engine = StripEngine::make(solver, StepSizes());
      for (int round = 0; round < 20; ++round) {
        engine->advance(3);
        engine->publish();
        if (!late) seen[0].push_back(toHost(solver.arrays[0].gamma));
        engine->advance(2);
        if (late) seen[1].push_back(toHost(solver.arrays[0].gamma));
      }
    }
    solver.free();
  }
  EXPECT_EQ(seen[0], seen[1]);
}

TEST_F(DeviceCompare, StoredCases) {
  const std::vector<std::string> names = referenceCaseNames();
  if (names.empty()) GTEST_SKIP() << "no folder " << referenceCaseFolder();
  for (const std::string& name : names) compare(name, problemFromCase(loadReferenceCase(name)));
}

TEST_F(DeviceCompare, AThousandIterationsOfRandomProblems) {
  const std::vector<std::vector<std::size_t>> sizes = {{64, 48, 3}, {37, 29, 5}, {130, 21, 8}};
  for (std::size_t k = 0; k < sizes.size(); ++k) {
    const auto seed = static_cast<unsigned>(k + 1);
    const SolverProblem p = problem(sizes[k][0], sizes[k][1], sizes[k][2], seed, 1000);
    compare(sizeOf(p), p);
  }
}

TEST_F(DeviceCompare, EveryPrior) {
  SolverProblem p = problem(45, 33, 4, 5, 500);
  for (int kind = 0; kind <= 3; ++kind) {
    p.par.kind_prior = kind;
    p.par.mu = kind == Params::kind_prior_lowerBound ? 1.0f : 100.0f;
    compare("prior " + std::to_string(kind), p);
  }
}

TEST_F(DeviceCompare, AcceleratedRuns) {
  for (const bool many : {false, true}) {
    SolverProblem p = many ? problem(21, 14, 40, 5, 500) : problem(45, 33, 3, 5, 500);
    p.par.accelerate = true;
    p.par.mu = 100.0f;
    for (const int kind : {Params::kind_prior_none, Params::kind_prior_upperBound}) {
      p.par.kind_prior = kind;
      compare("accelerated, prior " + std::to_string(kind), p);
    }
  }
}

TEST_F(DeviceCompare, ForcedAndForbiddenLabels) {
  SolverProblem p = problem(41, 23, 5, 6, 200);
  for (std::size_t k = 0; k < p.rho.size(); ++k) {
    if (k % 5 == 0) p.rho[k] = FLT_MAX;
    if (k % 7 == 0) p.rho[k] = -FLT_MAX;
  }
  compare("forced and forbidden", p);
}

// More rows of blocks than a grid can have.
TEST_F(DeviceCompare, ATallImage) {
  const SolverProblem p = problem(1, 131075, 2, 12, 3);
  compare(sizeOf(p), p, {{0}});
}

TEST_F(DeviceCompare, From1To1024Labels) {
  for (const std::size_t n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 13, 16, 17, 31, 64, 200, 1024}) {
    const SolverProblem p = problem(19, 12, n, 7, 20);
    compare(sizeOf(p), p);
  }
}

// Little work for every kernel of both engines, for tools that slow launches down.
TEST_F(DeviceCompare, AFewStepsOfEveryKernel) {
  for (const std::size_t n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 17, 40, 300}) {
    for (const std::size_t w : {70, 33}) {
      const SolverProblem p = problem(w, 9, n, 8, 3);
      compare(sizeOf(p), p);
    }
  }
}

// Long enough for steps that are recorded and replayed.
TEST_F(DeviceCompare, AFewAcceleratedSteps) {
  SolverProblem p = problem(16, 9, 3, 8, 500);
  if (!takesATenth()) p.par.Nsteps = 50;
  p.par.accelerate = true;
  p.par.kind_prior = Params::kind_prior_upperBound;
  p.par.mu = 100.0f;
  compare("accelerated " + sizeOf(p), p);
}

TEST_F(DeviceCompare, RunsRepeatThemselvesToTheByte) {
  for (const auto& size : std::vector<std::vector<std::size_t>>{{150, 97, 5}, {61, 40, 20}}) {
    const SolverProblem p = problem(size[0], size[1], size[2], 9, 200);
    for (const int engine : engines()) {
      for (const std::vector<int>& gpu : bandings()) {
        const SolverResult first = solveWith(p, engine, gpu);
        const SolverResult second = solveWith(p, engine, gpu);
        EXPECT_EQ(0, std::memcmp(first.u.data(), second.u.data(), first.u.size() * sizeof(float)));
        EXPECT_EQ(first.a, second.a);
        EXPECT_EQ(first.gamma, second.gamma);
        EXPECT_EQ(first.sum_u, second.sum_u);
      }
    }
  }
}

// A problem larger than the device is refused with one line, and the next one runs.
TEST_F(DeviceCompare, AProblemLargerThanTheDeviceIsRefusedAndTheNextOneRuns) {
  std::size_t available = 0;
  std::size_t whole = 0;
  ASSERT_EQ(cudaMemGetInfo(&available, &whole), cudaSuccess);
  Params par;
  par.w = 1 << 20;
  par.h = whole / (sizeof(float) * par.w) + 1;
  par.n = 1;
  par.gpu = {0};
  RatSegImpl solver(par);
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  EXPECT_FALSE(solver.alloc());
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(testing::internal::GetCapturedStderr().rfind(
                "ERROR: Insufficient GPU memory (src/algorithms/rat_segments/alg/rat_seg_impl", 0),
            0u);
  compare("after a refusal", problem(20, 12, 3, 1, 20));
}

}  // namespace
}  // namespace namespace_ratseg
