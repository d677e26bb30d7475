// Solvers of several threads of one process: what each computes and prints is what it computes and
// prints alone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "device/runtime.h"
#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

using testing::HasSubstr;

constexpr std::size_t kRepeats = 3;

// The relaxed and the hard labeling, one behind the other.
using Labelings = std::vector<float>;

void give(RatSeg& solver, SolverProblem& p) {
  solver.setRatios(p.ratios.data(), p.sigmas.data(), p.ind_bgr, nullptr, nullptr);
  solver.setDataterm(p.rho.data());
  solver.setWeight(p.weight.data());
}

Labelings labelingsOf(RatSeg& solver, const SolverProblem& p) {
  Labelings result(2 * p.rho.size());
  solver.getSolution_smooth(result.data());
  solver.getSolution(result.data() + p.rho.size());
  return result;
}

Labelings solveFromAllocToFree(SolverProblem p) {
  RatSeg solver;
  solver.getParams() = p.par;
  if (!solver.alloc()) return {};
  give(solver, p);
  solver.run();
  Labelings result = labelingsOf(solver, p);
  solver.free();
  return result;
}

// Problem k of a thread: each has its own size, so that blocks of memory are not alike. The first
// and the third are large enough for their loops to be spread over the host's threads.
SolverProblem problemOf(std::size_t k, int engine, int device) {
  const std::size_t widths[] = {97, 13, 64, 40};
  const std::size_t heights[] = {61, 21, 90, 33};
  SolverProblem p = randomProblem(widths[k], heights[k], 3 + k % 2, static_cast<unsigned>(k + 1));
  p.par.engine = engine;
  p.par.gpu = {device};
  p.par.kind_prior = static_cast<int>(3 - k);
  p.par.tolerance = k == 1 ? 1e-9f : 0.0f;
  return p;
}

// Calls body(k) in thread k of count, all at a time.
void inThreads(std::size_t count, const std::function<void(std::size_t)>& body) {
  std::latch start(static_cast<std::ptrdiff_t>(count));
  std::vector<std::thread> threads;
  for (std::size_t k = 0; k < count; ++k) {
    threads.emplace_back([&, k] {
      start.arrive_and_wait();
      body(k);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

std::string outputOf(const std::function<void()>& body) {
  testing::internal::CaptureStdout();
  body();
  return testing::internal::GetCapturedStdout();
}

struct Setting {
  const char* name;
  int engine;
  std::size_t threads;
  bool ownDevices;
};

std::ostream& operator<<(std::ostream& out, const Setting& setting) { return out << setting.name; }

class SolversInThreads : public testing::TestWithParam<Setting> {};

TEST_P(SolversInThreads, ComputeWhatTheyComputeOneAfterTheOther) {
  const Setting& setting = GetParam();
  const HostMachine machine(hostConfig(setting.ownDevices ? 4 : 1, true, 256));
  std::vector<SolverProblem> problems;
  std::vector<Labelings> expected;
  std::vector<std::vector<Labelings>> got(setting.threads);
  outputOf([&] {
    for (std::size_t k = 0; k < setting.threads; ++k) {
      const int device = setting.ownDevices ? static_cast<int>(k) : 0;
      problems.push_back(problemOf(k, setting.engine, device));
      expected.push_back(solveFromAllocToFree(problems[k]));
    }
    inThreads(setting.threads, [&](std::size_t k) {
      for (std::size_t i = 0; i < kRepeats; ++i) {
        got[k].push_back(solveFromAllocToFree(problems[k]));
      }
    });
  });
  for (std::size_t k = 0; k < setting.threads; ++k) {
    ASSERT_EQ(expected[k].size(), 2 * problems[k].rho.size());
    for (std::size_t i = 0; i < kRepeats; ++i) {
      EXPECT_EQ(got[k][i], expected[k]) << "thread " << k << ", solve " << i;
    }
  }
  for (int device = 0; device < (setting.ownDevices ? 4 : 1); ++device) {
    std::size_t available = 0, total = 0;
    cudaSetDevice(device);
    cudaMemGetInfo(&available, &total);
    EXPECT_EQ(available, total) << "all memory of device " << device << " is free again";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Engines, SolversInThreads,
    testing::Values(Setting{"TwoPlainOnOneDevice", Params::engine_plain, 2, false},
                    Setting{"TwoFusedOnOneDevice", Params::engine_fused, 2, false},
                    Setting{"TwoStripsOnOneDevice", Params::engine_strips, 2, false},
                    Setting{"FourPlainOnOneDevice", Params::engine_plain, 4, false},
                    Setting{"FourFusedOnOneDevice", Params::engine_fused, 4, false},
                    Setting{"FourStripsOnOneDevice", Params::engine_strips, 4, false},
                    Setting{"TwoPlainOnTheirOwnDevices", Params::engine_plain, 2, true},
                    Setting{"TwoFusedOnTheirOwnDevices", Params::engine_fused, 2, true},
                    Setting{"TwoStripsOnTheirOwnDevices", Params::engine_strips, 2, true},
                    Setting{"FourPlainOnTheirOwnDevices", Params::engine_plain, 4, true},
                    Setting{"FourFusedOnTheirOwnDevices", Params::engine_fused, 4, true},
                    Setting{"FourStripsOnTheirOwnDevices", Params::engine_strips, 4, true}),
    [](const auto& setting) { return std::string(setting.param.name); });

// Both have bands on both devices, and change the current one all the time.
TEST(BandsInThreads, OfTwoSolversShareTheDevices) {
  const HostMachine machine(hostConfig(3, false));
  outputOf([] {
    std::vector<SolverProblem> problems = {problemOf(0, Params::engine_auto, 0),
                                           problemOf(2, Params::engine_auto, 0)};
    problems[0].par.gpu = {2, 0, 1};
    problems[1].par.gpu = {0, 1, 2};
    const std::vector<Labelings> expected = {solveFromAllocToFree(problems[0]),
                                             solveFromAllocToFree(problems[1])};
    inThreads(2, [&](std::size_t k) {
      for (std::size_t i = 0; i < kRepeats; ++i) {
        EXPECT_EQ(solveFromAllocToFree(problems[k]), expected[k]);
      }
    });
  });
}

TEST(ScribblesInThreads, GiveTheDataTermsOfEachSolver) {
  const HostMachine machine;
  const auto dataterm = [](std::size_t k) {
    RatSeg solver;
    Params& par = solver.getParams();
    par.w = 60 + k;
    par.h = 50;
    par.n = 2;
    if (!solver.alloc()) return std::vector<float>();
    std::vector<float4> image(par.w * par.h);
    for (std::size_t i = 0; i < image.size(); ++i) {
      image[i] = {static_cast<float>(i % 251) / 251.0f, static_cast<float>(k) / 4.0f, 0.5f, 1.0f};
    }
    float4* scribbles[] = {image.data(), image.data() + 100};
    std::size_t counts[] = {40, 70 + k};
    solver.setDataterm(image.data(), scribbles, counts, 5.0f, 10.0f);
    std::vector<float> rho(image.size() * 2);
    solver.getDataterm(rho.data());
    solver.free();
    return rho;
  };
  outputOf([&] {
    const std::vector<std::vector<float>> expected = {dataterm(0), dataterm(1), dataterm(2)};
    inThreads(3, [&](std::size_t k) { EXPECT_EQ(dataterm(k), expected[k]); });
  });
}

TEST(ASolver, MayBeUsedByOneThreadAfterTheOther) {
  const HostMachine machine(hostConfig(2));
  outputOf([] {
    SolverProblem p = problemOf(0, Params::engine_auto, 1);
    const Labelings expected = solveFromAllocToFree(p);
    RatSeg solver;
    solver.getParams() = p.par;
    bool allocated = false;
    inThreads(1, [&](std::size_t) { allocated = solver.alloc(); });
    ASSERT_TRUE(allocated);
    give(solver, p);
    inThreads(1, [&](std::size_t) { solver.run(); });
    Labelings got;
    inThreads(1, [&](std::size_t) { got = labelingsOf(solver, p); });
    EXPECT_EQ(got, expected);
    solver.free();
  });
}

// A problem that reports every fifth of 20 iterations.
SolverProblem reportingProblem(std::size_t k) {
  SolverProblem p = problemOf(k, Params::engine_auto, 0);
  p.par.outModulo = 5;
  p.par.tolerance = 0.0f;
  return p;
}

// What run() of one problem prints.
std::string progressOf(SolverProblem p) {
  RatSeg solver;
  solver.getParams() = p.par;
  outputOf([&] { ASSERT_TRUE(solver.alloc()); });
  give(solver, p);
  std::string text = outputOf([&] { solver.run(); });
  solver.free();
  return text;
}

// Runs a solver of each problem in a thread of its own.
std::string progressInThreads(std::vector<SolverProblem> problems) {
  std::vector<RatSeg> solvers(problems.size());
  for (std::size_t k = 0; k < problems.size(); ++k) {
    solvers[k].getParams() = problems[k].par;
    outputOf([&] { EXPECT_TRUE(solvers[k].alloc()); });
    give(solvers[k], problems[k]);
  }
  std::string text =
      outputOf([&] { inThreads(problems.size(), [&](std::size_t k) { solvers[k].run(); }); });
  for (RatSeg& solver : solvers) solver.free();
  return text;
}

TEST(ProgressInThreads, OfOneSolverIsTheSameWhileOthersCompute) {
  const HostMachine machine;
  SolverProblem silent = problemOf(2, Params::engine_auto, 0);
  silent.par.Nsteps = 60;
  silent.par.outModulo = 0;
  const std::string alone = progressOf(reportingProblem(0));
  ASSERT_THAT(alone, HasSubstr("Step 20 of 20\n  a0="));
  EXPECT_EQ(progressInThreads({reportingProblem(0), silent, silent}), alone);
}

// The reports of a run, without the lines of their steps.
std::vector<std::string> reportsOf(const std::string& progress) {
  std::vector<std::string> reports;
  for (std::size_t at = progress.find("Step "); at != std::string::npos;) {
    const std::size_t next = progress.find("Step ", at + 1);
    const std::size_t first = progress.find('\n', at) + 1;
    reports.push_back(progress.substr(first, next == std::string::npos ? next : next - first));
    at = next;
  }
  return reports;
}

TEST(ProgressInThreads, OfSeveralSolversKeepsTheLinesOfAReportTogether) {
  const HostMachine machine;
  const std::vector<SolverProblem> problems = {reportingProblem(0), reportingProblem(2),
                                               reportingProblem(3)};
  const std::string together = progressInThreads(problems);
  std::size_t length = 0;
  for (const SolverProblem& p : problems) {
    const std::string alone = progressOf(p);
    length += alone.size();
    const std::vector<std::string> reports = reportsOf(alone);
    ASSERT_EQ(reports.size(), 4u);
    for (const std::string& report : reports) EXPECT_THAT(together, HasSubstr(report));
  }
  EXPECT_EQ(together.size(), length);
}

}  // namespace
}  // namespace namespace_ratseg
