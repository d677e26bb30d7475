// The fused engine against the plain one, on every instruction set that this processor runs.

#include "algorithms/rat_segments/alg/fused_host/host_engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

#include "device/host/flush_denormals.h"
#include "support/engines.h"
#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

using testing::HasSubstr;

float largestDifference(const std::vector<float>& a, const std::vector<float>& b) {
  float largest = a.size() == b.size() ? 0.0f : FLT_MAX;
  for (std::size_t k = 0; k < std::min(a.size(), b.size()); ++k) {
    const float difference = std::abs(a[k] - b[k]);
    largest = std::isnan(difference) ? FLT_MAX : std::max(largest, difference);
  }
  return largest;
}

class HostEngineOnEveryIsa : public testing::TestWithParam<HostIsa> {
 protected:
  static void expectAgreement(const SolverProblem& p, const std::vector<int>& gpu = {}) {
    const SolverResult plain = solvePlain(p, gpu);
    const SolverResult fused = solveFused(p, hostSweep(GetParam()), gpu);
    EXPECT_LE(largestDifference(plain.u, fused.u), 5e-5f);
    EXPECT_LE(largestDifference(plain.a, fused.a), 1e-5f);
    EXPECT_LE(largestDifference(plain.gamma, fused.gamma), 1e-4f);
    const auto scale = static_cast<float>(p.par.w * p.par.h);
    EXPECT_LE(largestDifference(plain.sum_u, fused.sum_u), 1e-5f * scale);
  }
};

// 1 x 1, one row, one column, one lane more and less than a vector, many labels, in one and in
// several blocks of columns.
TEST_P(HostEngineOnEveryIsa, AgreesWithThePlainEngineOnAwkwardSizes) {
  const HostMachine machine;
  const std::vector<std::vector<std::size_t>> sizes = {
      {1, 1, 3},   {70, 1, 3}, {1, 70, 3},   {2, 2, 2},    {3, 5, 1},   {15, 9, 4},
      {16, 9, 4},  {17, 9, 4}, {31, 9, 2},   {32, 9, 2},   {33, 9, 2},  {48, 9, 2},
      {130, 7, 5}, {9, 8, 70}, {597, 43, 3}, {150, 5, 20}, {7, 3, 1024}};
  for (const auto& size : sizes) {
    SCOPED_TRACE(testing::Message() << size[0] << "x" << size[1] << "x" << size[2]);
    expectAgreement(randomProblem(size[0], size[1], size[2], 7));
  }
}

TEST_P(HostEngineOnEveryIsa, AgreesWithThePlainEngineForEveryPriorAndParameter) {
  const HostMachine machine;
  SolverProblem p = randomProblem(37, 21, 4, 2);
  for (int kind = 0; kind <= 3; ++kind) {
    SCOPED_TRACE(testing::Message() << "kind of prior " << kind);
    p.par.kind_prior = kind;
    p.par.mu = kind == Params::kind_prior_lowerBound ? 1.0f : 100.0f;
    expectAgreement(p);
  }
  for (const float lambda : {0.0f, 0.3f, FLT_MAX}) {
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

TEST_P(HostEngineOnEveryIsa, AgreesWithThePlainEngineForEveryWeight) {
  const HostMachine machine;
  SolverProblem p = randomProblem(37, 21, 4, 2);
  for (std::size_t k = 0; k < p.weight.size(); ++k) {
    if (k % 5 == 0) p.weight[k] = 0.0f;
    if (k % 7 == 0) p.weight[k] = FLT_MAX;
  }
  expectAgreement(p);
  p.weight.clear();
  expectAgreement(p);
}

// Weights whose squares are denormal numbers or 0.
TEST_P(HostEngineOnEveryIsa, AgreesWithThePlainEngineForTinyWeights) {
  const HostMachine machine;
  SolverProblem p = randomProblem(37, 21, 4, 2);
  for (const float weight : {1e-19f, 1e-20f, 1e-21f, 1e-22f, 1e-30f}) {
    SCOPED_TRACE(testing::Message() << "weights of " << weight);
    for (float& x : p.weight) x = weight * (0.5f + x);
    expectAgreement(p);
    p.weight.assign(p.weight.size(), 0.5f);
  }
}

// A negative radius is no bound.
TEST_P(HostEngineOnEveryIsa, AgreesWithThePlainEngineForNegativeLambdaAndWeight) {
  const HostMachine machine;
  SolverProblem p = randomProblem(37, 21, 4, 2);
  p.weight[40] = -0.5f;
  expectAgreement(p);
  p.par.lambda = -1.0f;
  expectAgreement(p);
}

// Beside costs of 1e8 the 1 that labels sum to is less than the rounding.
TEST_P(HostEngineOnEveryIsa, HugeCostsLeaveTheCheapestLabel) {
  const HostMachine machine;
  constexpr std::size_t w = 37, h = 21, n = 4;
  for (const float scale : {1e7f, 1e9f, 1e12f, 1e30f}) {
    SCOPED_TRACE(testing::Message() << "costs of " << scale);
    SolverProblem p = randomProblem(w, h, n, 2);
    for (float& x : p.rho) x = scale * (1.0f + 0.1f * x);
    const std::vector<float> u = solveFused(p, hostSweep(GetParam())).u;
    for (std::size_t k = 0; k < w * h; ++k) {
      std::size_t best = 0;
      for (std::size_t i = 1; i < n; ++i) {
        if (p.rho[i * w * h + k] < p.rho[best * w * h + k]) best = i;
      }
      for (std::size_t i = 0; i < n; ++i) {
        ASSERT_EQ(u[i * w * h + k], i == best ? 1.0f : 0.0f) << "pixel " << k << " label " << i;
      }
    }
  }
}

// The square of 1e-21 is a denormal number, whose reciprocal some processors take for infinite.
TEST_P(HostEngineOnEveryIsa, TinyDualValuesAreHeldAtZeroByARadiusOfZero) {
  constexpr std::size_t w = 45;
  std::vector<float> u(2 * w, 0.5f), p(4 * w, 1e-21f), rho(w);
  SweepBand b;
  b.u = b.u_bar = u.data();
  b.p = p.data();
  b.rho = rho.data();
  b.w = w;
  b.h = b.ymax = b.n = 1;
  b.dualStep = 0.5f;
  std::vector<float> scratch(hostSweep(GetParam()).scratchFloats(w, 1));
  b.lambda = 1.0f;
  hostSweep(GetParam()).dualRow(b, 0, scratch.data());
  EXPECT_EQ(p, std::vector<float>(4 * w, 1e-21f));
  b.lambda = 0.0f;
  hostSweep(GetParam()).dualRow(b, 0, scratch.data());
  for (std::size_t k = 2 * w; k < 4 * w; ++k) ASSERT_EQ(p[k], 0.0f) << k;
}

TEST_P(HostEngineOnEveryIsa, AgreesWithThePlainEngineForForcedAndForbiddenLabels) {
  const HostMachine machine;
  SolverProblem p = randomProblem(37, 21, 4, 2);
  for (std::size_t k = 0; k < p.rho.size(); ++k) {
    if (k % 5 == 0) p.rho[k] = FLT_MAX;
    if (k % 7 == 0) p.rho[k] = -FLT_MAX;
  }
  for (std::size_t i = 0; i < 4; ++i) p.rho[i * 37 * 21 + 100] = FLT_MAX;  // every label forbidden
  expectAgreement(p);
}

TEST_P(HostEngineOnEveryIsa, AgreesWithThePlainEngineOnSeveralBands) {
  const HostMachine machine(hostConfig(3));
  expectAgreement(randomProblem(37, 41, 4, 2), {0, 1});
  expectAgreement(randomProblem(37, 41, 4, 2), {2, 0, 1});
  expectAgreement(randomProblem(37, 3, 4, 2), {0, 1, 2});
  expectAgreement(randomProblem(37, 41, 4, 2), {0, 0, 0, 0});
}

TEST_P(HostEngineOnEveryIsa, FindsTheStoredCases) {
  const std::vector<std::string> names = referenceCaseNames();
  if (names.empty()) GTEST_SKIP() << "no folder " << referenceCaseFolder();
  const HostMachine machine;
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const ReferenceCase c = loadReferenceCase(name);
    EXPECT_LE(largestDifference(solveFused(problemFromCase(c), hostSweep(GetParam())).u, c.u),
              1e-4f);
  }
}

TEST_P(HostEngineOnEveryIsa, ThreadsChangeNothing) {
  const HostMachine machine;
  SolverProblem p = randomProblem(131, 97, 5, 3);
  const SolverResult once = solveFused(p, hostSweep(GetParam()));
  const int usual = hostThreads();
  for (const int threads : {1, 2, 5}) {
    omp_set_num_threads(threads);
    EXPECT_EQ(solveFused(p, hostSweep(GetParam())).u, once.u) << threads << " threads";
  }
  omp_set_num_threads(usual);
}

INSTANTIATE_TEST_SUITE_P(Isa, HostEngineOnEveryIsa, testing::ValuesIn(usableHostIsas()),
                         [](const auto& named) { return std::string(nameOf(named.param)); });

TEST(HostEngine, IsUsedByDefaultAndNotWhenThePlainEngineIsAskedFor) {
  HostMachine machine;
  SolverProblem p = randomProblem(20, 20, 3);
  std::vector<std::string> names;
  machine.backend.setObserver([&](const HostBackend::Call& call) { names.push_back(call.name); });
  solve(p);
  EXPECT_THAT(names, testing::Contains("ratseg_sweep"));
  EXPECT_THAT(names, testing::Not(testing::Contains("ratseg_prim_u")));
  names.clear();
  solvePlain(p);
  EXPECT_THAT(names, testing::Not(testing::Contains("ratseg_sweep")));
  EXPECT_THAT(names, testing::Contains("ratseg_prim_u"));
  machine.backend.setObserver({});
}

// The copy engine's rows differ from the kernels', so bands without peer access take the plain one.
TEST(HostEngine, NeedsPeerAccessBetweenBands) {
  const auto canRun = [](int devices, bool peer) {
    const HostMachine machine(hostConfig(devices, peer));
    SolverProblem p = randomProblem(8, 12, 2);
    for (int d = 0; d < devices; ++d) p.par.gpu.push_back(d);
    RatSegImpl solver(p.par);
    setUp(solver, p);
    const bool can = HostEngine::canRun(solver);
    solver.free();
    return can;
  };
  EXPECT_TRUE(canRun(1, true));
  EXPECT_TRUE(canRun(1, false));
  EXPECT_TRUE(canRun(3, true));
  EXPECT_FALSE(canRun(2, false));
}

// A run leaves p as the plain engine does, so runs of both kinds may follow each other.
TEST(HostEngine, RunsOfBothEnginesMayFollowEachOther) {
  const HostMachine machine;
  SolverProblem p = randomProblem(19, 13, 3);
  p.par.Nsteps = 15;
  SolverProblem twice = p;
  twice.par.Nsteps = 30;
  twice.par.outModulo = 31;
  const SolverResult expected = solvePlain(twice);
  for (const int first : {Params::engine_auto, Params::engine_plain}) {
    p.par.engine = first;
    RatSegImpl solver(p.par);
    setUp(solver, p);
    solver.run();
    p.par.engine = first == Params::engine_plain ? Params::engine_auto : Params::engine_plain;
    solver.run();
    EXPECT_LE(largestDifference(resultOf(solver).u, expected.u), 1e-5f);
    solver.free();
  }
}

// Also from components across the right and the lower border, which no update reads.
TEST(HostEngine, StartsFromAnyDualField) {
  const HostMachine machine;
  SolverProblem p = randomProblem(19, 13, 3);
  p.par.Nsteps = 3;
  std::vector<std::vector<float>> u;
  for (const int engine : {Params::engine_plain, Params::engine_auto}) {
    p.par.engine = engine;
    RatSegImpl solver(p.par);
    setUp(solver, p);
    gpudata& g = solver.arrays[0];
    // The same for all labels would cancel in the projection.
    for (std::size_t k = 0; k < g.NOffset; ++k) {
      const auto number = static_cast<float>(k * 7 % 31);
      g.p.get_ptr()[k] = {0.02f * number - 0.3f, 0.3f - 0.01f * number};
    }
    solver.run();
    u.push_back(resultOf(solver).u);
    solver.free();
  }
  EXPECT_LE(largestDifference(u[0], u[1]), 1e-5f);
}

// Rows of two labels in turn: the vertical components are clamped in every iteration, which shrinks
// the horizontal ones, from just above the denormal numbers on.
TEST(HostEngine, LeavesNoDenormalNumbersInTheDualField) {
  if (!FlushDenormals::kWorks) GTEST_SKIP() << "no such mode on this processor";
  const HostMachine machine;
  SolverProblem p = randomProblem(40, 24, 2);
  p.par.kind_prior = Params::kind_prior_none;
  p.par.Nsteps = 5;
  for (std::size_t k = 0; k < p.rho.size(); ++k) {
    p.rho[k] = (k / p.par.w + k / (p.par.w * p.par.h)) % 2 == 0 ? 0.0f : 100.0f;
  }
  const auto denormalsAfter = [&](int engine) {
    p.par.engine = engine;
    RatSegImpl solver(p.par);
    setUp(solver, p);
    gpudata& g = solver.arrays[0];
    std::fill(g.p.get_ptr(), g.p.get_ptr() + g.NOffset, float2{2e-38f, 0.0f});
    solver.run();
    const auto count = std::count_if(g.p.get_ptr(), g.p.get_ptr() + g.NOffset, [](float2 v) {
      return std::fpclassify(v.x) == FP_SUBNORMAL || std::fpclassify(v.y) == FP_SUBNORMAL;
    });
    solver.free();
    return count;
  };
  EXPECT_GT(denormalsAfter(Params::engine_plain), 100) << "the problem is none";
  EXPECT_EQ(denormalsAfter(Params::engine_auto), 0);
}

TEST(HostSweep, IsThatOfTheInstructionSet) {
  for (const HostIsa isa : usableHostIsas()) EXPECT_STREQ(hostSweep(isa).isa, nameOf(isa));
}

TEST(SplitRows, SeparateComponentsAndJoinThemAgain) {
  for (const std::size_t w : {1u, 2u, 7u, 33u}) {
    std::vector<float2> row(w);
    for (std::size_t x = 0; x < w; ++x) {
      row[x] = {static_cast<float>(x), -1.0f - static_cast<float>(x)};
    }
    std::vector<float> scratch(w);
    splitRow(row.data(), w, scratch.data());
    const float* parts = &row[0].x;
    for (std::size_t x = 0; x < w; ++x) {
      EXPECT_EQ(parts[x], static_cast<float>(x));
      EXPECT_EQ(parts[w + x], -1.0f - static_cast<float>(x));
    }
    joinRow(row.data(), w, scratch.data());
    for (std::size_t x = 0; x < w; ++x) {
      EXPECT_EQ(row[x].x, static_cast<float>(x));
      EXPECT_EQ(row[x].y, -1.0f - static_cast<float>(x));
    }
  }
}

}  // namespace
}  // namespace namespace_ratseg
