// The strip engine, on the host's devices: its launchers there run the blocks and threads of a GPU
// launch one after the other, so that indices, buffers and exchanges are those of a GPU.

#include "algorithms/rat_segments/alg/strips_gpu/strip_engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "algorithms/rat_segments/alg/choose_engine.h"
#include "algorithms/rat_segments/alg/fused_host/host_engine.h"
#include "device/runtime.h"
#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

float largestDifference(const std::vector<float>& a, const std::vector<float>& b) {
  float largest = a.size() == b.size() ? 0.0f : FLT_MAX;
  for (std::size_t k = 0; k < std::min(a.size(), b.size()); ++k) {
    const float difference = std::abs(a[k] - b[k]);
    largest = std::isnan(difference) ? FLT_MAX : std::max(largest, difference);
  }
  return largest;
}

void chooseWeight(RatSegImpl& solver) {
  for (int d = 0; d < solver.bands(); ++d) {
    gpudata& g = solver.arrays[d];
    g.weightHat = solver.kind_weight != RatSegImpl::kind_weight_none ? g.weight.get_ptr() : nullptr;
  }
}

std::unique_ptr<StripEngine> makeEngine(RatSegImpl& solver, const StripWish& wish = {}) {
  const float tau = solver.par.dt_multiplier;
  return StripEngine::make(solver, {tau, 1.0f / tau}, wish);
}

// With the steps that the run takes.
SolverResult solveWith(SolverProblem p, int engine, const std::vector<int>& gpu = {}) {
  p.par.engine = engine;
  return solve(p, gpu);
}

SolverResult solvePlain(SolverProblem p, const std::vector<int>& gpu = {}) {
  p.par.engine = Params::engine_plain;
  return solve(p, gpu);
}

SolverResult solveStrips(SolverProblem p, const std::vector<int>& gpu = {},
                         const StripWish& wish = {}) {
  p.par.gpu = gpu;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  chooseWeight(solver);
  makeEngine(solver, wish)->advance(p.par.Nsteps);
  SolverResult result = resultOf(solver);
  solver.free();
  return result;
}

void expectAgreement(const SolverProblem& p, const std::vector<int>& gpu = {},
                     const StripWish& wish = {}) {
  const SolverResult plain = solvePlain(p, gpu);
  const SolverResult strips = solveStrips(p, gpu, wish);
  EXPECT_LE(largestDifference(plain.u, strips.u), 5e-5f);
  EXPECT_LE(largestDifference(plain.a, strips.a), 1e-5f);
  EXPECT_LE(largestDifference(plain.gamma, strips.gamma), 1e-4f);
  EXPECT_LE(largestDifference(plain.alpha, strips.alpha), 1e-4f);
  EXPECT_LE(largestDifference(plain.beta, strips.beta), 1e-4f);
  const auto pixels = static_cast<float>(p.par.w * p.par.h);
  EXPECT_LE(largestDifference(plain.sum_u, strips.sum_u), 1e-5f * pixels);
}

// 1 x 1, one row, one column, odd and even widths around a block, every number of labels that a
// kernel is compiled for, and more.
TEST(StripEngine, AgreesWithThePlainEngineOnAwkwardSizes) {
  const HostMachine machine;
  const std::vector<std::vector<std::size_t>> sizes = {
      {1, 1, 3},   {2, 1, 1},    {70, 1, 3},  {1, 70, 3},  {2, 2, 2},   {3, 5, 1},   {16, 9, 4},
      {17, 9, 4},  {63, 9, 5},   {64, 9, 5},  {65, 9, 6},  {66, 9, 6},  {127, 5, 7}, {130, 7, 8},
      {257, 3, 2}, {258, 3, 2},  {40, 11, 9}, {31, 8, 12}, {33, 7, 13}, {34, 7, 16}, {33, 9, 17},
      {32, 8, 20}, {65, 17, 40}, {9, 8, 70},  {7, 3, 200}, {5, 3, 1024}};
  for (const auto& size : sizes) {
    SCOPED_TRACE(testing::Message() << size[0] << "x" << size[1] << "x" << size[2]);
    expectAgreement(randomProblem(size[0], size[1], size[2], 7));
  }
}

TEST(StripEngine, AgreesForStripsOfAnyNumberOfRows) {
  const HostMachine machine;
  for (const unsigned rows : {1u, 2u, 3u, 7u, 8u, 9u, 16u, 50u}) {
    SCOPED_TRACE(testing::Message() << rows << " rows");
    expectAgreement(randomProblem(38, 21, 4, 3), {}, {.rows = rows});
    expectAgreement(randomProblem(37, 21, 11, 3), {0, 0}, {.rows = rows});
  }
}

TEST(StripEngine, AgreesForBlocksAndThreadsOfAnySize) {
  const HostMachine machine;
  for (const unsigned pixels : {1u, 2u}) {
    for (const unsigned threads : {32u, 64u, 128u}) {
      SCOPED_TRACE(testing::Message() << pixels << " pixels, " << threads << " threads");
      const StripWish wish = {.rows = 4, .pixels = pixels, .threads = threads};
      expectAgreement(randomProblem(134, 21, 4, 3), {}, wish);
      expectAgreement(randomProblem(133, 21, 5, 3), {0, 0}, wish);
    }
  }
}

TEST(StripEngine, AgreesForEveryPriorAndParameter) {
  const HostMachine machine;
  SolverProblem p = randomProblem(37, 21, 4, 2);
  for (int kind = 0; kind <= 3; ++kind) {
    SCOPED_TRACE(testing::Message() << "kind of prior " << kind);
    p.par.kind_prior = kind;
    p.par.mu = kind == Params::kind_prior_lowerBound ? 1.0f : 100.0f;
    expectAgreement(p);
    expectAgreement(p, {0, 0});
  }
  for (const float lambda : {0.0f, 0.3f, FLT_MAX, -1.0f}) {
    SCOPED_TRACE(testing::Message() << "lambda " << lambda);
    p.par.lambda = lambda;
    expectAgreement(p);
  }
  p.par.lambda = 2.0f;
  p.par.dt_multiplier = 0.7f;
  expectAgreement(p);
  p.par.initLocalSolution = false;
  expectAgreement(p);
}

TEST(StripEngine, AgreesForEveryWeight) {
  const HostMachine machine;
  for (const std::size_t n : {4u, 18u}) {
    SolverProblem p = randomProblem(37, 21, n, 2);
    for (std::size_t k = 0; k < p.weight.size(); ++k) {
      if (k % 5 == 0) p.weight[k] = 0.0f;
      if (k % 7 == 0) p.weight[k] = FLT_MAX;
    }
    p.weight[40] = -0.5f;
    expectAgreement(p);
    p.weight.assign(p.weight.size(), 1e-21f);
    expectAgreement(p);
    p.weight.clear();
    expectAgreement(p);
  }
}

TEST(StripEngine, AgreesForForcedAndForbiddenLabels) {
  const HostMachine machine;
  for (const std::size_t n : {4u, 18u}) {
    SolverProblem p = randomProblem(37, 21, n, 2);
    for (std::size_t k = 0; k < p.rho.size(); ++k) {
      if (k % 5 == 0) p.rho[k] = FLT_MAX;
      if (k % 7 == 0) p.rho[k] = -FLT_MAX;
    }
    for (std::size_t i = 0; i < n; ++i) p.rho[i * 37 * 21 + 100] = FLT_MAX;  // all forbidden
    expectAgreement(p);
  }
}

TEST(StripEngine, AgreesOnSeveralBands) {
  const HostMachine machine(hostConfig(3));
  for (const std::size_t n : {4u, 19u}) {
    SCOPED_TRACE(testing::Message() << n << " labels");
    expectAgreement(randomProblem(37, 41, n, 2), {0, 1});
    expectAgreement(randomProblem(38, 41, n, 2), {2, 0, 1});
    expectAgreement(randomProblem(37, 3, n, 2), {0, 1, 2});
    expectAgreement(randomProblem(37, 41, n, 2), {0, 0, 0, 0});
  }
}

SolverProblem acceleratedProblem(std::size_t w, std::size_t h, std::size_t n, int kind) {
  SolverProblem p = randomProblem(w, h, n, 2);
  p.par.accelerate = true;
  p.par.kind_prior = kind;
  p.par.mu = 100.0f;
  p.par.outModulo = 1000;
  return p;
}

void expectSameRun(const SolverProblem& p, const std::vector<int>& gpu) {
  const SolverResult plain = solveWith(p, Params::engine_plain, gpu);
  const SolverResult strips = solveWith(p, Params::engine_strips, gpu);
  EXPECT_LE(largestDifference(plain.u, strips.u), 5e-5f);
  EXPECT_LE(largestDifference(plain.a, strips.a), 1e-5f);
  EXPECT_LE(largestDifference(plain.gamma, strips.gamma), 1e-4f);
  EXPECT_LE(largestDifference(plain.alpha, strips.alpha), 1e-4f);
  EXPECT_LE(largestDifference(plain.beta, strips.beta), 1e-4f);
}

// Every number of iterations up to ten: the arrays that the step writes ahead change roles.
TEST(StripEngine, AgreesOnAcceleratedRuns) {
  const HostMachine machine(hostConfig(3));
  for (const int kind : {Params::kind_prior_none, Params::kind_prior_upperBound}) {
    for (const std::size_t n : {1u, 2u, 4u, 19u}) {
      SolverProblem p = acceleratedProblem(38, 21, n, kind);
      for (std::size_t steps = 1; steps <= 10; ++steps) {
        SCOPED_TRACE(testing::Message() << "prior " << kind << ", " << n << " labels, " << steps);
        p.par.Nsteps = steps;
        expectSameRun(p, {0});
        expectSameRun(p, {0, 1});
        expectSameRun(p, {2, 0, 1});
      }
      p.par.Nsteps = 100;
      expectSameRun(p, {0, 0});
    }
  }
}

// The shares that a report and a check see are those of the iteration, not those computed ahead.
TEST(StripEngine, PublishesTheSharesOfAnAcceleratedRunInBetween) {
  const HostMachine machine;
  SolverProblem p = acceleratedProblem(19, 13, 3, Params::kind_prior_upperBound);
  p.par.Nsteps = 8;
  const SolverResult expected = solveWith(p, Params::engine_plain);
  p.par.gpu = {0};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  chooseWeight(solver);
  const float dt = 2.0f * p.par.dt_multiplier / p.par.lambda;
  const auto engine = StripEngine::make(solver, {1.25f * dt, 1.0f / dt});
  for (const std::size_t steps : {5u, 3u}) {
    engine->advance(steps);
    engine->publish();
  }
  EXPECT_LE(largestDifference(toHost(solver.arrays[0].a), expected.a), 1e-6f);
  EXPECT_LE(largestDifference(toHost(solver.arrays[0].a_bar), expected.a), 1e-6f);
  EXPECT_LE(largestDifference(toHost(solver.arrays[0].gamma), expected.gamma), 1e-6f);
  EXPECT_LE(largestDifference(toHost(solver.arrays[0].alpha), expected.alpha), 1e-6f);
  EXPECT_LE(largestDifference(toHost(solver.arrays[0].beta), expected.beta), 1e-6f);
}

TEST(StripEngine, FindsTheStoredCases) {
  const std::vector<std::string> names = referenceCaseNames();
  if (names.empty()) GTEST_SKIP() << "no folder " << referenceCaseFolder();
  const HostMachine machine(hostConfig(2));
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const ReferenceCase c = loadReferenceCase(name);
    EXPECT_LE(largestDifference(solveStrips(problemFromCase(c)).u, c.u), 1e-4f);
    if (c.h > 1) {
      EXPECT_LE(largestDifference(solveStrips(problemFromCase(c), {0, 1}).u, c.u), 1e-4f);
    }
  }
}

TEST(StripEngine, RunsRepeatThemselves) {
  const HostMachine machine(hostConfig(2));
  const SolverProblem p = randomProblem(131, 97, 5, 3);
  EXPECT_EQ(solveStrips(p).u, solveStrips(p).u);
  EXPECT_EQ(solveStrips(p, {0, 1}).u, solveStrips(p, {0, 1}).u);
}

// Also after every number of iterations, which leave the buffers in different roles.
TEST(StripEngine, LeavesTheSolverAsThePlainEngineDoes) {
  const HostMachine machine;
  for (std::size_t steps = 1; steps <= 7; ++steps) {
    SCOPED_TRACE(testing::Message() << steps << " steps");
    SolverProblem p = randomProblem(19, 13, 3);
    p.par.outModulo = 100;
    std::vector<SolverResult> results;
    for (const bool strips : {false, true}) {
      p.par.engine = Params::engine_plain;
      p.par.Nsteps = steps;
      RatSegImpl solver(p.par);
      setUp(solver, p);
      chooseWeight(solver);
      if (strips) {
        makeEngine(solver)->advance(steps);
      } else {
        solver.run();
      }
      p.par.Nsteps = 5;
      solver.run();
      results.push_back(resultOf(solver));
      solver.free();
    }
    EXPECT_LE(largestDifference(results[0].u, results[1].u), 1e-5f);
    EXPECT_LE(largestDifference(results[0].gamma, results[1].gamma), 1e-5f);
    EXPECT_LE(largestDifference(results[0].sum_u, results[1].sum_u), 1e-3f);
  }
}

// Also from components across the right and the lower border, which no update reads.
TEST(StripEngine, StartsFromAnyDualField) {
  const HostMachine machine;
  for (const std::size_t n : {3u, 18u}) {
    SolverProblem p = randomProblem(19, 13, n);
    p.par.Nsteps = 3;
    std::vector<std::vector<float>> u;
    for (const int engine : {Params::engine_plain, Params::engine_strips}) {
      p.par.engine = engine;
      RatSegImpl solver(p.par);
      setUp(solver, p);
      gpudata& g = solver.arrays[0];
      std::fill(g.p.get_ptr(), g.p.get_ptr() + g.NOffset, float2{0.3f, -0.2f});
      solver.run();
      u.push_back(resultOf(solver).u);
      solver.free();
    }
    EXPECT_LE(largestDifference(u[0], u[1]), 1e-5f) << n << " labels";
  }
}

TEST(StripEngine, PublishesInBetween) {
  const HostMachine machine(hostConfig(2));
  for (const std::vector<int>& gpu : {std::vector<int>{0}, std::vector<int>{0, 1}}) {
    SolverProblem p = randomProblem(19, 13, 3);
    p.par.gpu = gpu;
    p.par.Nsteps = 7;
    const SolverResult expected = solvePlain(p, gpu);
    RatSegImpl solver(p.par);
    setUp(solver, p);
    chooseWeight(solver);
    const auto engine = makeEngine(solver);
    engine->advance(7);
    engine->publish();
    EXPECT_LE(largestDifference(toHost(solver.arrays[0].gamma), expected.gamma), 1e-6f);
    EXPECT_LE(largestDifference(toHost(solver.arrays[0].sum_u), expected.sum_u), 1e-3f);
    EXPECT_LE(largestDifference(toHost(solver.arrays[0].a), expected.a), 1e-6f);
    engine->advance(4);
    engine->publish();
    p.par.Nsteps = 11;
    EXPECT_LE(largestDifference(toHost(solver.arrays[0].gamma), solvePlain(p, gpu).gamma), 1e-6f);
  }
}

TEST(StripEngine, NeedsPeerAccessBetweenBands) {
  const auto canRun = [](int devices, bool peer) {
    const HostMachine machine(hostConfig(devices, peer));
    SolverProblem p = randomProblem(8, 12, 2);
    for (int d = 0; d < devices; ++d) p.par.gpu.push_back(d);
    RatSegImpl solver(p.par);
    setUp(solver, p);
    const bool can = StripEngine::canRun(solver);
    solver.free();
    return can;
  };
  EXPECT_TRUE(canRun(1, true));
  EXPECT_TRUE(canRun(1, false));
  EXPECT_TRUE(canRun(3, true));
  EXPECT_FALSE(canRun(2, false));
}

// Without kernels for the host, as in the library, its own fused engine runs.
TEST(StripEngine, NeedsKernelsOfTheBackend) {
  const HostMachine machine;
  SolverProblem p = randomProblem(4, 6, 2);
  p.par.engine = Params::engine_strips;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  EXPECT_NE(dynamic_cast<StripEngine*>(chooseEngine(solver, {}).get()), nullptr);
  StripKernels* kernels = std::exchange(StripKernels::ofHost, nullptr);
  EXPECT_FALSE(StripEngine::canRun(solver));
  EXPECT_NE(dynamic_cast<HostEngine*>(chooseEngine(solver, {}).get()), nullptr);
  StripKernels::ofHost = kernels;
  EXPECT_TRUE(StripEngine::canRun(solver));
  solver.free();
}

TEST(StripEngine, NeedsABlockOfAThreadPerLabel) {
  const HostMachine machine;
  SolverProblem p = randomProblem(2, 2, 1025);
  RatSegImpl solver(p.par);
  setUp(solver, p);
  EXPECT_FALSE(StripEngine::canRun(solver));
  solver.free();
}

TEST(StripEngine, IsNotMadeWhereThereIsNoRoomForItsArrays) {
  const HostMachine machine(hostConfig(1, true, 8));
  SolverProblem p = randomProblem(256, 256, 3);
  RatSegImpl solver(p.par);
  setUp(solver, p);
  std::size_t before = 0, after = 0, whole = 0;
  cudaMemGetInfo(&before, &whole);
  EXPECT_EQ(makeEngine(solver), nullptr);
  EXPECT_EQ(cudaPeekAtLastError(), cudaSuccess);
  cudaMemGetInfo(&after, &whole);
  EXPECT_EQ(before, after);
  solver.free();
}

// Arrays of 5 MiB and some for the plain engine, 2.3 MiB more for this one.
TEST(StripEngine, IsNotMadeWhereItLeavesLessThan64MiB) {
  for (const auto& [memory, made] : {std::pair{71, false}, {74, true}}) {
    const HostMachine machine(hostConfig(1, true, memory));
    SolverProblem p = randomProblem(256, 256, 3);
    RatSegImpl solver(p.par);
    setUp(solver, p);
    std::size_t before = 0, after = 0, whole = 0;
    cudaMemGetInfo(&before, &whole);
    EXPECT_GE(before, std::size_t{64} << 20);
    EXPECT_EQ(makeEngine(solver) != nullptr, made);
    EXPECT_EQ(cudaPeekAtLastError(), cudaSuccess);
    cudaMemGetInfo(&after, &whole);
    if (!made) {
      EXPECT_EQ(before, after);
    }
    solver.free();
  }
}

TEST(StripEngine, QueuesStepsUpToTheNextReport) {
  Params par;
  par.Nsteps = 100;
  par.outModulo = 30;
  EXPECT_EQ(StripEngine::stepsAhead(par, 1), 24u);
  EXPECT_EQ(StripEngine::stepsAhead(par, 25), 5u);
  EXPECT_EQ(StripEngine::stepsAhead(par, 30), 1u);
  EXPECT_EQ(StripEngine::stepsAhead(par, 31), 24u);
  EXPECT_EQ(StripEngine::stepsAhead(par, 98), 3u);
  par.outModulo = 0;
  EXPECT_EQ(StripEngine::stepsAhead(par, 1), 24u);
  EXPECT_EQ(StripEngine::stepsAhead(par, 100), 1u);
}

// The numbers and the other words of a text.
struct Words {
  std::vector<float> numbers;
  std::string others;
};

Words wordsOf(const std::string& text) {
  Words words;
  for (std::size_t k = 0; k < text.size();) {
    const char* begin = text.c_str() + k;
    char* end = nullptr;
    const float value = std::strtof(begin, &end);
    if (end != begin && *begin != ' ' && *begin != '\n') {
      words.numbers.push_back(value);
      k += static_cast<std::size_t>(end - begin);
    } else {
      words.others += text[k++];
    }
  }
  return words;
}

TEST(StripEngine, ReportsWhatThePlainEngineReports) {
  const HostMachine machine(hostConfig(2));
  for (const std::vector<int>& gpu : {std::vector<int>{0}, std::vector<int>{0, 1}}) {
    std::vector<Words> texts;
    for (const int engine : {Params::engine_plain, Params::engine_strips}) {
      SolverProblem p = randomProblem(19, 13, 3);
      p.par.engine = engine;
      p.par.gpu = gpu;
      p.par.Nsteps = 60;
      p.par.outModulo = 7;
      RatSegImpl solver(p.par);
      setUp(solver, p);
      testing::internal::CaptureStdout();
      solver.run();
      texts.push_back(wordsOf(testing::internal::GetCapturedStdout()));
      solver.free();
    }
    EXPECT_EQ(texts[0].others, texts[1].others);
    EXPECT_GT(texts[0].numbers.size(), 100u);
    EXPECT_LE(largestDifference(texts[0].numbers, texts[1].numbers), 2e-3f);
  }
}

TEST(StripEngine, NoStepsChangeNothing) {
  const HostMachine machine;
  SolverProblem p = randomProblem(19, 13, 3);
  p.par.engine = Params::engine_strips;
  p.par.Nsteps = 0;
  const SolverResult result = solve(p);
  EXPECT_EQ(result.gamma, std::vector<float>(3));
  EXPECT_EQ(result.sum_u, std::vector<float>(3));
}

// What an iteration launches and copies, by name and device.
std::map<std::string, int> callsOf(int devices, std::size_t steps) {
  HostMachine machine(hostConfig(devices));
  SolverProblem p = randomProblem(16, 24, 3);
  for (int d = 0; d < devices; ++d) p.par.gpu.push_back(d);
  RatSegImpl solver(p.par);
  setUp(solver, p);
  chooseWeight(solver);
  std::map<std::string, int> calls;
  {
    const auto engine = makeEngine(solver, {.rows = 2});
    machine.backend.setObserver([&](const HostBackend::Call& call) { ++calls[call.name]; });
    engine->advance(steps);
    machine.backend.setObserver({});
  }
  solver.free();
  return calls;
}

TEST(StripEngine, OneBandTakesOneKernelPerIteration) {
  EXPECT_THAT(callsOf(1, 24), testing::ElementsAre(testing::Pair("ratseg_strip_sweep", 24)));
}

// Per iteration each boundary is crossed once by p and once by u, one launch for all labels; each
// further device has one sum gathered and gamma sent; nothing is copied by the host, and nothing
// waits but queues for each other.
TEST(StripEngine, BandsExchangeOneRowPerLabelAndBoundaryAndNothingWaits) {
  for (const int devices : {2, 3}) {
    constexpr int kSteps = 10;
    const int d = devices;
    EXPECT_THAT(callsOf(d, kSteps), testing::UnorderedElementsAre(
                                        testing::Pair("ratseg_strip_edge", kSteps * (d - 1)),
                                        testing::Pair("ratseg_strip_sweep", kSteps * 2 * d),
                                        testing::Pair("ratseg_copyLastToFirst", kSteps * (d - 1)),
                                        testing::Pair("ratseg_copyFirstToLast", kSteps * (d - 1)),
                                        testing::Pair("ratseg_strip_finish", kSteps * d),
                                        testing::Pair("computeSumU_sumKernel", kSteps * (d - 1)),
                                        testing::Pair("ratseg_dual_gamma", kSteps),
                                        testing::Pair("ratseg_copyGamma", kSteps * d),
                                        testing::Pair("cudaStreamWaitEvent",
                                                      kSteps * (2 * d + 4 * (d - 1)) +
                                                          2 * (d - 1))))  // at start and end
        << devices << " devices";
  }
}

}  // namespace
}  // namespace namespace_ratseg
