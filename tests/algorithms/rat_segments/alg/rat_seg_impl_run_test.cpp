// The iteration: what is launched when and where, with which arguments, and what is printed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg_impl.h"
#include "device/runtime.h"
#include "support/machine.h"
#include "support/solver_problem.h"
#include "util/cudadefs.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

// The calls of a machine as "device:name"; passes of the summation are joined into one "sum" per
// label, and a device that waits for what another one has queued is "device:after other".
class Trace {
 public:
  explicit Trace(HostMachine& machine) {
    machine.backend.setObserver([this](const HostBackend::Call& call) { record(call); });
  }
  std::vector<std::string> calls;
  std::vector<HostBackend::Call> full;

 private:
  void record(const HostBackend::Call& call) {
    full.push_back(call);
    const bool sum = call.name.rfind("cuda_sum_kernel", 0) == 0;
    const bool after = call.name == "cudaStreamWaitEvent";
    const std::string name = after ? "after " + std::to_string(call.awaited) : call.name;
    calls.push_back(std::to_string(call.device) + ":" + (sum ? "sum" : name));
  }
};

// The calls of one run of one iteration.
std::vector<std::string> traceOfOneStep(int devices, bool peer, int kind_prior) {
  HostMachine machine(hostConfig(devices, peer));
  SolverProblem p = randomProblem(4, 6, 2);
  p.par.engine = Params::engine_plain;
  p.par.kind_prior = kind_prior;
  p.par.Nsteps = 1;
  p.par.outModulo = 2;
  p.par.gpu.clear();
  for (int d = 0; d < devices; ++d) p.par.gpu.push_back(d);
  RatSegImpl solver(p.par);
  setUp(solver, p);
  Trace trace(machine);
  solver.run();
  machine.backend.setObserver({});
  solver.free();
  return trace.calls;
}

TEST(RatSegImplRun, OneDeviceRunsTheKernelsInOrder) {
  EXPECT_THAT(traceOfOneStep(1, true, Params::kind_prior_upperBound),
              ElementsAre("0:ratseg_dual_p", "0:sum", "0:sum", "0:ratseg_dual_gamma",
                          "0:ratseg_dual_alphabeta__upperBound", "0:ratseg_prim_a__upperBound",
                          "0:ratseg_prim_u", "0:cudaDeviceSynchronize"));
}

TEST(RatSegImplRun, TheKindOfPriorChoosesItsKernels) {
  const auto prior = [](int kind) {
    const auto calls = traceOfOneStep(1, true, kind);
    return std::vector<std::string>(calls.begin() + 4, calls.end() - 2);
  };
  EXPECT_THAT(prior(Params::kind_prior_none), ElementsAre("0:ratseg_prim_a__gamma"));
  EXPECT_THAT(prior(17), ElementsAre("0:ratseg_prim_a__gamma"));
  EXPECT_THAT(prior(-1), ElementsAre("0:ratseg_prim_a__gamma"));
  EXPECT_THAT(prior(Params::kind_prior_interval),
              ElementsAre("0:ratseg_dual_alphabeta__interval", "0:ratseg_prim_a__interval"));
  EXPECT_THAT(prior(Params::kind_prior_lowerBound),
              ElementsAre("0:ratseg_dual_alphabeta__lowerBound", "0:ratseg_prim_a__lowerBound"));
}

// A kernel that reads another device's memory starts after what that device has queued.
TEST(RatSegImplRun, DevicesWithPeerAccessExchangeByKernels) {
  EXPECT_THAT(
      traceOfOneStep(3, true, Params::kind_prior_none),
      ElementsAre("0:ratseg_dual_p", "1:ratseg_dual_p", "2:ratseg_dual_p",  //
                  "1:after 0", "1:ratseg_copyLastToFirst",                  //
                  "2:after 1", "2:ratseg_copyLastToFirst",                  //
                  "0:sum", "0:sum", "1:sum", "1:sum", "2:sum", "2:sum",     //
                  "0:after 1", "0:computeSumU_sumKernel",                   //
                  "0:after 2", "0:computeSumU_sumKernel",                   //
                  "0:ratseg_dual_gamma",                                    //
                  "1:after 0", "1:ratseg_copyGamma",                        //
                  "2:after 0", "2:ratseg_copyGamma",                        //
                  "0:ratseg_prim_a__gamma",                                 //
                  "0:ratseg_prim_u", "1:ratseg_prim_u", "2:ratseg_prim_u",  //
                  "0:after 1", "0:ratseg_copyFirstToLast",                  //
                  "1:after 2", "1:ratseg_copyFirstToLast",                  //
                  "0:cudaDeviceSynchronize", "1:cudaDeviceSynchronize", "2:cudaDeviceSynchronize"));
}

TEST(RatSegImplRun, DevicesWithoutPeerAccessExchangeByCopies) {
  EXPECT_THAT(
      traceOfOneStep(3, false, Params::kind_prior_none),
      ElementsAre("0:ratseg_dual_p", "1:ratseg_dual_p", "2:ratseg_dual_p",         //
                  "1:cudaMemcpyPeer", "1:cudaMemcpyPeer",                          // per label
                  "2:cudaMemcpyPeer", "2:cudaMemcpyPeer",                          //
                  "0:sum", "0:sum", "1:sum", "1:sum", "2:sum", "2:sum",            //
                  "0:cudaMemcpy", "1:cudaMemcpy", "2:cudaMemcpy", "0:cudaMemcpy",  //
                  "0:ratseg_dual_gamma", "1:cudaMemcpyPeer", "2:cudaMemcpyPeer",   //
                  "0:ratseg_prim_a__gamma",                                        //
                  "0:ratseg_prim_u", "1:ratseg_prim_u", "2:ratseg_prim_u",         //
                  "0:cudaMemcpyPeer", "0:cudaMemcpyPeer",                          //
                  "1:cudaMemcpyPeer", "1:cudaMemcpyPeer",                          //
                  "0:cudaDeviceSynchronize", "1:cudaDeviceSynchronize", "2:cudaDeviceSynchronize"));
}

// The calls of one step of two devices of which only one reaches the other.
std::vector<std::string> traceOneWay(int reaching, int reached) {
  HostMachine machine(hostConfig(2));
  SolverProblem p = randomProblem(4, 6, 1);
  p.par.engine = Params::engine_plain;
  p.par.kind_prior = Params::kind_prior_none;
  p.par.Nsteps = 1;
  p.par.outModulo = 2;
  p.par.gpu = {0, 1};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  solver.canAccess_array[reaching * 2 + reached] = false;  // of reached to reaching
  EXPECT_TRUE(solver.canAccess(reaching, reached));
  EXPECT_FALSE(solver.canAccess(reached, reaching));
  Trace trace(machine);
  solver.run();
  machine.backend.setObserver({});
  solver.free();
  return trace.calls;
}

TEST(RatSegImplRun, EachExchangeAsksForTheAccessThatItNeeds) {
  EXPECT_THAT(traceOneWay(1, 0), ElementsAre("0:ratseg_dual_p", "1:ratseg_dual_p",            //
                                             "1:after 0", "1:ratseg_copyLastToFirst",         //
                                             "0:sum", "1:sum",                                //
                                             "0:cudaMemcpy", "1:cudaMemcpy", "0:cudaMemcpy",  //
                                             "0:ratseg_dual_gamma",                           //
                                             "1:after 0", "1:ratseg_copyGamma",               //
                                             "0:ratseg_prim_a__gamma",                        //
                                             "0:ratseg_prim_u", "1:ratseg_prim_u",            //
                                             "0:cudaMemcpyPeer",                              //
                                             "0:cudaDeviceSynchronize", "1:cudaDeviceSynchronize"));
  EXPECT_THAT(traceOneWay(0, 1), ElementsAre("0:ratseg_dual_p", "1:ratseg_dual_p",       //
                                             "1:cudaMemcpyPeer",                         //
                                             "0:sum", "1:sum",                           //
                                             "0:after 1", "0:computeSumU_sumKernel",     //
                                             "0:ratseg_dual_gamma", "1:cudaMemcpyPeer",  //
                                             "0:ratseg_prim_a__gamma",                   //
                                             "0:ratseg_prim_u", "1:ratseg_prim_u",       //
                                             "0:after 1", "0:ratseg_copyFirstToLast",    //
                                             "0:cudaDeviceSynchronize", "1:cudaDeviceSynchronize"));
}

// Bands on one device are in its order already.
TEST(RatSegImplRun, BandsOfOneDeviceDoNotWaitForEachOther) {
  HostMachine machine(hostConfig(1));
  SolverProblem p = randomProblem(4, 6, 2);
  p.par.engine = Params::engine_plain;
  p.par.Nsteps = 2;
  p.par.outModulo = 3;
  p.par.gpu = {0, 0, 0};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  Trace trace(machine);
  solver.run();
  machine.backend.setObserver({});
  EXPECT_THAT(trace.calls, testing::Not(testing::Contains("0:after 0")));
  EXPECT_THAT(trace.calls, testing::Contains("0:ratseg_copyLastToFirst").Times(4));
  solver.free();
}

// The calls of a run that no check follows. Between two calls there is a check of the first and,
// where the device changes, one of selecting the second's.
std::vector<std::string> uncheckedCalls(int devices, bool peer, int kind_prior, bool report) {
  HostMachine machine(hostConfig(devices, peer));
  SolverProblem p = randomProblem(4, 6, 2);
  p.par.engine = Params::engine_plain;
  p.par.kind_prior = kind_prior;
  p.par.Nsteps = 1;
  p.par.outModulo = report ? 1 : 2;
  for (int d = 0; d < devices; ++d) p.par.gpu.push_back(d);
  RatSegImpl solver(p.par);
  setUp(solver, p);
  std::vector<std::string> unchecked;
  std::string previous;
  int device = 0;
  int last = lastcalls_pos;
  const auto expectChecks = [&](int count) {
    const int checks = (lastcalls_pos - last + kLastCalls) % kLastCalls;
    if (!previous.empty() && checks < count) unchecked.push_back(previous);
    last = lastcalls_pos;
  };
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    expectChecks(call.device != device ? 2 : 1);
    device = call.device;
    previous = call.name;
  });
  CaptureStdout();
  solver.run();
  GetCapturedStdout();
  std::cout << std::defaultfloat;
  expectChecks(1);
  machine.backend.setObserver({});
  for (const auto& [file, line] : lastcalls) {
    EXPECT_EQ(file, "src/algorithms/rat_segments/alg/rat_seg_impl");
  }
  solver.free();
  return unchecked;
}

TEST(RatSegImplRun, EveryCallIsFollowedByACheck) {
  using testing::IsEmpty;
  for (int kind = 0; kind <= 3; ++kind) {
    EXPECT_THAT(uncheckedCalls(3, true, kind, false), IsEmpty()) << "kind " << kind;
    EXPECT_THAT(uncheckedCalls(3, false, kind, false), IsEmpty()) << "kind " << kind;
  }
  EXPECT_THAT(uncheckedCalls(1, true, Params::kind_prior_none, true), IsEmpty());
}

TEST(RatSegImplRun, OtherDevicesGetGammaAndNothingElseOfTheShares) {
  for (const bool peer : {true, false}) {
    const HostMachine machine(hostConfig(2, peer));
    SolverProblem p = randomProblem(9, 8, 3);
    p.par.gpu = {0, 1};
    RatSegImpl solver(p.par);
    setUp(solver, p);
    solver.run();
    const gpudata& first = solver.arrays[0];
    const gpudata& other = solver.arrays[1];
    EXPECT_EQ(toHost(other.gamma), toHost(first.gamma));
    EXPECT_NE(toHost(first.gamma), std::vector<float>(3));
    for (const auto* array : {&other.a, &other.a_bar, &other.alpha, &other.beta}) {
      EXPECT_EQ(toHost(*array), std::vector<float>(3));
    }
    solver.free();
  }
}

TEST(RatSegImplRun, LaunchShapesAreThoseOfTheBand) {
  HostMachine machine(hostConfig(2));
  SolverProblem p = randomProblem(300, 9, 5);
  p.par.engine = Params::engine_plain;
  p.par.Nsteps = 1;
  p.par.outModulo = 2;
  p.par.gpu = {0, 1};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  Trace trace(machine);
  solver.run();
  std::size_t seen = 0;
  for (const HostBackend::Call& call : trace.full) {
    const LaunchShape& s = call.shape;
    std::ostringstream text;
    text << s.grid.x << "x" << s.grid.y << "x" << s.grid.z << " " << s.block.x << "x" << s.block.y
         << "x" << s.block.z << " " << s.sharedBytes;
    const std::string rows = call.device == 0 ? "3" : "2";  // 5 and 4 rows in blocks of 2
    if (call.name == "ratseg_dual_p") {
      EXPECT_EQ(text.str(), "3x" + rows + "x1 128x2x1 0");
    } else if (call.name == "ratseg_prim_u") {
      EXPECT_EQ(text.str(), "3x" + rows + "x1 128x2x1 5120");
    } else if (call.name == "ratseg_copyLastToFirst" || call.name == "ratseg_copyFirstToLast") {
      EXPECT_EQ(text.str(), "3x5x1 128x1x1 0");
    } else if (call.name == "ratseg_dual_gamma" || call.name == "ratseg_copyGamma" ||
               call.name == "computeSumU_sumKernel" || call.name == "ratseg_prim_a__upperBound") {
      EXPECT_EQ(text.str(), "1x1x1 5x1x1 0");
    } else {
      continue;
    }
    ++seen;
  }
  EXPECT_EQ(seen, 2u + 2u + 2u + 4u);
  machine.backend.setObserver({});
  solver.free();
}

TEST(RatSegImplRun, SharesAreTheWorkOfOneThreadPerLabelOfTheFirstDevice) {
  HostMachine machine(hostConfig(2));
  SolverProblem p = randomProblem(9, 8, 5);
  p.par.engine = Params::engine_plain;
  p.par.Nsteps = 1;
  p.par.outModulo = 2;
  p.par.gpu = {0, 1};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  for (int kind = 0; kind <= 3; ++kind) {
    SCOPED_TRACE(testing::Message() << "kind of prior " << kind);
    p.par.kind_prior = kind;
    Trace trace(machine);
    solver.run();
    machine.backend.setObserver({});
    int seen = 0;
    for (const HostBackend::Call& call : trace.full) {
      if (call.name != "ratseg_dual_gamma" && call.name.rfind("ratseg_dual_alphabeta", 0) != 0 &&
          call.name.rfind("ratseg_prim_a", 0) != 0) {
        continue;
      }
      SCOPED_TRACE(call.name);
      ++seen;
      EXPECT_EQ(call.device, 0);
      EXPECT_EQ(call.shape.grid.x * call.shape.grid.y * call.shape.grid.z, 1u);
      EXPECT_EQ(call.shape.block.x, 5u);
      EXPECT_EQ(call.shape.block.y * call.shape.block.z, 1u);
      EXPECT_EQ(call.shape.sharedBytes, 0u);
    }
    EXPECT_EQ(seen, kind == Params::kind_prior_none ? 2 : 3);
  }
  solver.free();
}

// Only one row per label crosses each boundary, and nothing waits inside an iteration.
TEST(RatSegImplRun, NothingWaitsInsideAnIterationWithPeerAccess) {
  HostMachine machine(hostConfig(2));
  SolverProblem p = randomProblem(16, 8, 3);
  p.par.engine = Params::engine_plain;
  p.par.Nsteps = 10;
  p.par.outModulo = 11;
  p.par.gpu = {0, 1};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  Trace trace(machine);
  solver.run();
  machine.backend.setObserver({});
  for (std::size_t k = 0; k + 2 < trace.calls.size(); ++k) {
    ASSERT_EQ(trace.calls[k].find("cuda", 2), std::string::npos) << trace.calls[k];
  }
  solver.free();
}

TEST(RatSegImplRun, EveryPeriodWaitsAtTheTopOfItsStep) {
  HostMachine machine;
  SolverProblem p = randomProblem(4, 6, 2);
  p.par.engine = Params::engine_plain;
  p.par.Nsteps = 5;
  p.par.outModulo = 2;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  Trace trace(machine);
  CaptureStdout();
  solver.run();
  GetCapturedStdout();
  std::cout << std::defaultfloat;
  machine.backend.setObserver({});
  std::string order;
  for (const std::string& call : trace.calls) {
    if (call == "0:ratseg_dual_p") order += "(";
    if (call == "0:ratseg_prim_u") order += ")";
    if (call == "0:cudaDeviceSynchronize") order += "wait";
  }
  EXPECT_EQ(order, "()wait()()wait()()wait");
  solver.free();
}

TEST(RatSegImplRun, NoStepsStillWaitForAllDevices) {
  HostMachine machine(hostConfig(2));
  SolverProblem p = randomProblem(4, 4, 2);
  p.par.engine = Params::engine_plain;
  p.par.Nsteps = 0;
  p.par.gpu = {0, 1};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  Trace trace(machine);
  solver.run();
  EXPECT_THAT(trace.calls, ElementsAre("0:cudaDeviceSynchronize", "1:cudaDeviceSynchronize"));
  machine.backend.setObserver({});
  solver.free();
}

TEST(RatSegImplRun, ConstAlphaFollowsTheKindOfPrior) {
  const HostMachine machine;
  SolverProblem p = randomProblem(5, 4, 3);
  p.par.Nsteps = 1;
  p.par.outModulo = 2;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  for (const auto& [kind, expected] :
       std::vector<std::pair<int, float>>{{Params::kind_prior_interval, 20.0f},
                                          {Params::kind_prior_lowerBound, 1.0f},
                                          {Params::kind_prior_upperBound, 20.0f},
                                          {Params::kind_prior_none, 1.0f}}) {
    solver.par.kind_prior = kind;
    solver.run();
    EXPECT_EQ(solver.constAlpha, expected) << "kind " << kind;
  }
  solver.free();
}

TEST(RatSegImplRun, AnyKindOfWeightButNoneMeansTheWeightArray) {
  const HostMachine machine(hostConfig(2));
  SolverProblem p = randomProblem(5, 4, 3);
  p.par.Nsteps = 0;
  p.par.gpu = {0, 1};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  for (const int kind : {1, 7, -1, 0}) {
    solver.kind_weight = kind;
    solver.run();
    for (int d = 0; d < 2; ++d) {
      const gpudata& g = solver.arrays[d];
      EXPECT_EQ(g.weightHat, kind != 0 ? g.weight.get_ptr() : nullptr) << "kind " << kind;
    }
  }
  solver.free();
}

TEST(RatSegImplRun, WithoutSetWeightTheWeightIsOne) {
  const HostMachine machine;
  SolverProblem p = randomProblem(9, 8, 3);
  p.weight.clear();
  const SolverResult absent = solve(p);
  p.weight.assign(9 * 8, 1.0f);
  EXPECT_EQ(absent.u, solve(p).u);
  p.weight.assign(9 * 8, 0.5f);
  EXPECT_NE(absent.u, solve(p).u);
}

TEST(RatSegImplRun, BeforeAllocIsReported) {
  Params par;
  RatSegImpl solver(par);
  CaptureStdout();
  solver.run();
  EXPECT_EQ(GetCapturedStdout(), "ERROR (run()): Must call alloc() first\n");
}

// cancel is cleared at the start and read at the top of each iteration.
TEST(RatSegImplRun, CancelStopsBeforeTheNextIteration) {
  HostMachine machine;
  SolverProblem p = randomProblem(7, 6, 3);
  p.par.engine = Params::engine_plain;
  p.par.Nsteps = 3;
  p.par.outModulo = 100;
  const std::vector<float> expected = solve(p).u;

  p.par.Nsteps = 50;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  p.par.cancel = true;  // from before: cleared
  int done = 0;
  int waits = 0;
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    if (call.name == "ratseg_prim_u" && ++done == 3) p.par.cancel = true;
    if (call.name == "cudaDeviceSynchronize") ++waits;
  });
  CaptureStdout();
  solver.run();
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(done, 3);
  EXPECT_EQ(waits, 2);  // on leaving the loop and at the end
  EXPECT_EQ(resultOf(solver).u, expected);
  machine.backend.setObserver({});
  solver.free();
}

TEST(RatSegImplRun, ACancelledStepPrintsNothingEvenWhenItIsDue) {
  HostMachine machine;
  SolverProblem p = randomProblem(7, 6, 2);
  p.par.engine = Params::engine_plain;
  p.par.Nsteps = 50;
  p.par.outModulo = 2;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  int done = 0;
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    if (call.name == "ratseg_prim_u" && ++done == 3) p.par.cancel = true;
  });
  CaptureStdout();
  solver.run();
  const std::string out = GetCapturedStdout();
  std::cout << std::defaultfloat;
  EXPECT_THAT(out, testing::StartsWith("Step 2 of 50\n"));
  EXPECT_THAT(out, testing::Not(testing::HasSubstr("Step 4")));
  EXPECT_EQ(done, 3);
  machine.backend.setObserver({});
  solver.free();
}

TEST(RatSegImplRun, CancelWhileADueStepWaitsStopsThatStep) {
  HostMachine machine;
  SolverProblem p = randomProblem(7, 6, 2);
  p.par.engine = Params::engine_plain;
  p.par.Nsteps = 50;
  p.par.outModulo = 2;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  int done = 0;
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    if (call.name == "ratseg_prim_u") ++done;
    if (call.name == "cudaDeviceSynchronize") p.par.cancel = true;
  });
  CaptureStdout();
  solver.run();
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(done, 1);
  machine.backend.setObserver({});
  solver.free();
}

// One run's standard output.
std::string outputOf(SolverProblem p, std::size_t Nsteps, std::size_t outModulo) {
  const HostMachine machine;
  p.par.Nsteps = Nsteps;
  p.par.outModulo = outModulo;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  CaptureStdout();
  solver.run();
  std::string out = GetCapturedStdout();
  std::cout << std::defaultfloat;
  solver.free();
  return out;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(RatSegImplReport, EveryPeriodPrintsAStepLineAndOneLinePerLabel) {
  const auto lines = linesOf(outputOf(randomProblem(6, 5, 3), 5, 2));
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(lines[0], "Step 2 of 5");
  EXPECT_EQ(lines[1].substr(0, 5), "  a0=");
  EXPECT_EQ(lines[2].substr(0, 5), "  a1=");
  EXPECT_EQ(lines[3].substr(0, 5), "  a2=");
  EXPECT_EQ(lines[4], "Step 4 of 5");
}

TEST(RatSegImplReport, APeriodOfTheWholeRunPrintsNoStepLine) {
  const auto lines = linesOf(outputOf(randomProblem(6, 5, 3), 4, 4));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].substr(0, 5), "  a0=");
}

TEST(RatSegImplReport, ALongerPeriodThanTheRunPrintsNothing) {
  EXPECT_EQ(outputOf(randomProblem(6, 5, 3), 4, 5), "");
}

// Shares that agree with the labeling, so that gamma stays 0 and the step changes no share.
TEST(RatSegImplReport, LinesOfKnownShares) {
  const HostMachine machine(hostConfig(2));
  for (const std::vector<int>& gpu : {std::vector<int>{0}, {1, 0}}) {
    SCOPED_TRACE(testing::Message() << gpu.size() << " bands");
    SolverProblem p = randomProblem(5, 2, 3);
    p.par.kind_prior = Params::kind_prior_none;
    p.ratios = {0.25f, 0.75f, 0.0f};
    p.sigmas = {0.05f, 0.0f, 0.0f};
    p.par.Nsteps = p.par.outModulo = 1;
    p.par.gpu = gpu;
    RatSegImpl solver(p.par);
    setUp(solver, p);
    gpudata& g = solver.arrays[0];
    const float shares[] = {0.3f, 0.45f, 0.4f};
    const float alpha[] = {-1.5f, 2.0f, 0.0f};
    const float beta[] = {0.0f, -0.25f, 0.0f};
    g.a.copyFromHost(shares);
    g.a_bar.copyFromHost(shares);
    g.alpha.copyFromHost(alpha);
    g.beta.copyFromHost(beta);
    std::vector<float> u_bar(g.NOffset);
    u_bar[0] = 3.0f;
    u_bar[g.NOmegaOffset] = 4.5f;
    u_bar[2 * g.NOmegaOffset] = 4.0f;
    g.u_bar.copyFromHost(u_bar.data());
    CaptureStdout();
    solver.run();
    const std::string out = GetCapturedStdout();
    EXPECT_TRUE(std::cout.flags() & std::ios::fixed) << "the notation is left as it is";
    std::cout << std::defaultfloat;
    // bound of label 0 is 15, less what single precision loses; label 1 has no spread
    EXPECT_EQ(out,
              "  a0=0.300000, sum_u=0.300000,  gamma= 0.000000,    q=0.500000, q0=0.250000, "
              "s0=0.050000,  (q-q0)/s0= 5.000000, bound= 14.999999,  alpha=-1.500000, beta= "
              "0.000000\n"
              "  a1=0.450000, sum_u=0.450000,  gamma= 0.000000,    q=0.750000, q0=0.750000, "
              "s0=0.000000,  (q-q0)/s0=-inf, bound= inf,  alpha= 2.000000, beta=-0.250000\n"
              "  a2=0.400000, sum_u=0.400000,  gamma= 0.000000\n");
    solver.free();
  }
}

// Each array gets its value just before its turn, and loses it behind it.
TEST(RatSegImplReport, ArraysAreCopiedInOrder) {
  HostMachine machine;
  SolverProblem p = randomProblem(1, 1, 2);
  p.par.engine = Params::engine_plain;
  p.par.kind_prior = Params::kind_prior_none;
  p.par.Nsteps = p.par.outModulo = 1;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  gpudata& g = solver.arrays[0];
  float* const arrays[] = {g.sum_u, g.a, g.gamma, g.alpha, g.beta, g.ratios, g.sigmas};
  const auto fill = [](float* array, float first) {
    array[0] = first;
    array[1] = 0.5f;
  };
  std::size_t turn = 0;
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    if (call.name != "cudaMemcpy" || turn >= std::size(arrays)) return;
    fill(arrays[turn], -9.0f);
    if (++turn < std::size(arrays)) fill(arrays[turn], static_cast<float>(turn));
  });
  CaptureStdout();
  solver.run();
  const std::string out = GetCapturedStdout();
  std::cout << std::defaultfloat;
  machine.backend.setObserver({});
  EXPECT_THAT(out, testing::HasSubstr("  a0=1.000000, sum_u="));
  EXPECT_THAT(out, testing::Not(testing::HasSubstr("sum_u=-9.000000")));
  EXPECT_THAT(out, testing::HasSubstr(",  gamma= 2.000000,    q=2.000000, q0=5.000000, "
                                      "s0=6.000000,  (q-q0)/s0=-0.500000,"));
  EXPECT_THAT(out, testing::HasSubstr(",  alpha= 3.000000, beta= 4.000000\n"));
  EXPECT_EQ(turn, std::size(arrays));
  solver.free();
}

TEST(RatSegImplReport, ABlankStandsBeforeMinusZeroButNotBeforeWhatIsNotANumber) {
  const HostMachine machine;
  SolverProblem p = randomProblem(5, 2, 2);
  p.par.kind_prior = Params::kind_prior_none;
  p.par.Nsteps = p.par.outModulo = 1;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  const float alpha[] = {std::numeric_limits<float>::quiet_NaN(), 0.0f};
  const float beta[] = {-0.0f, 0.0f};
  solver.arrays[0].alpha.copyFromHost(alpha);
  solver.arrays[0].beta.copyFromHost(beta);
  CaptureStdout();
  solver.run();
  EXPECT_THAT(GetCapturedStdout(), testing::HasSubstr(",  alpha=nan, beta= -0.000000\n"));
  std::cout << std::defaultfloat;
  solver.free();
}

TEST(RatSegImplReport, EveryLineIsFlushed) {
  class Counted : public std::stringbuf {
   public:
    std::size_t flushed = 0;  // lines that were out when the stream was flushed

   protected:
    int sync() override {
      const std::string text = str();
      const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
      flushed += !text.empty() && text.back() == '\n' && lines > flushed ? 1 : 0;
      return 0;
    }
  };
  const HostMachine machine;
  SolverProblem p = randomProblem(5, 2, 3);
  p.par.Nsteps = p.par.outModulo = 1;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  Counted counted;
  std::streambuf* const before = std::cout.rdbuf(&counted);
  solver.run();
  std::cout.rdbuf(before);
  std::cout << std::defaultfloat;
  EXPECT_EQ(counted.flushed, 3u);
  solver.free();
}

TEST(RatSegImplReport, AnArrayThatIsNotAllocatedIsSaidAndReportedAsZero) {
  const HostMachine machine;
  SolverProblem p = randomProblem(5, 2, 2);
  p.par.kind_prior = Params::kind_prior_none;
  p.par.Nsteps = p.par.outModulo = 1;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  solver.arrays[0].alpha.free();
  CaptureStdout();
  testing::internal::CaptureStderr();
  solver.run();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: (cudaarray.copyToHost(T*)): source array not allocated\n");
  EXPECT_THAT(GetCapturedStdout(), testing::HasSubstr(",  alpha= 0.000000, beta="));
  std::cout << std::defaultfloat;
  solver.free();
}

// Shares that the report can be checked on by hand: a run whose one iteration leaves them as they
// are is not to be had, so the report's own run starts from values and is computed again here.
TEST(RatSegImplReport, LinesShowTheSharesInSixDecimals) {
  const HostMachine machine;
  SolverProblem p = randomProblem(6, 5, 3);
  p.ratios = {0.25f, 0.75f, 0.0f};
  p.sigmas = {0.05f, 0.1f, 0.0f};
  p.par.Nsteps = p.par.outModulo = 7;
  RatSegImpl solver(p.par);
  setUp(solver, p);
  CaptureStdout();
  solver.run();
  const auto lines = linesOf(GetCapturedStdout());
  std::cout << std::defaultfloat;
  const SolverResult r = resultOf(solver);
  solver.free();

  ASSERT_EQ(lines.size(), 3u);
  for (std::size_t i = 0; i < 3; ++i) {
    const auto padded = [](float x) { return x >= 0.0f ? " " : ""; };
    char expected[400];
    int length = std::snprintf(expected, sizeof expected, "  a%zu=%.6f, sum_u=%.6f,  gamma=%s%.6f",
                               i, r.a[i], r.sum_u[i] / 30.0f, padded(r.gamma[i]), r.gamma[i]);
    if (i < 2) {
      const float B = 1.0f - r.a[2];
      const float z = (r.a[i] / B - p.ratios[i]) / p.sigmas[i];
      const float t = (r.a[i] - B * p.ratios[i]) / p.sigmas[i];
      const float bound = t * t / B;
      std::snprintf(expected + length, sizeof expected - static_cast<std::size_t>(length),
                    ",    q=%.6f, q0=%.6f, s0=%.6f,  (q-q0)/s0=%s%.6f, bound=%s%.6f,  "
                    "alpha=%s%.6f, beta=%s%.6f",
                    r.a[i] / B, p.ratios[i], p.sigmas[i], padded(z), z, padded(bound), bound,
                    padded(r.alpha[i]), r.alpha[i], padded(r.beta[i]), r.beta[i]);
    }
    EXPECT_EQ(lines[i], expected);
  }
}

// A solver on two or three bands whose p and u_bar hold, at every element, a number that tells the
// band, the label, the stored row and the column.
class HaloTest : public testing::TestWithParam<int> {
 protected:
  static constexpr std::size_t w = 4, n = 2;

  static float tag(int band, std::size_t label, std::size_t row, std::size_t x) {
    return static_cast<float>(band * 1000 + static_cast<int>(label * 100 + row * 10 + x));
  }

  void start(bool peer) {
    solver_.reset();
    machine_.reset();
    machine_ = std::make_unique<HostMachine>(hostConfig(GetParam(), peer));
    problem_ = randomProblem(w, static_cast<std::size_t>(3 * GetParam() - 1), n);
    for (int d = 0; d < GetParam(); ++d) problem_.par.gpu.push_back(d);
    solver_ = std::make_unique<RatSegImpl>(problem_.par);
    setUp(*solver_, problem_);
    for (int d = 0; d < GetParam(); ++d) {
      gpudata& g = solver_->arrays[d];
      std::vector<float> u(g.NOffset);
      std::vector<float2> p(g.NOffset);
      forEach(g, [&](std::size_t k, std::size_t i, std::size_t row, std::size_t x) {
        u[k] = tag(d, i, row, x);
        p[k] = {tag(d, i, row, x), -tag(d, i, row, x)};
      });
      g.u_bar.copyFromHost(u.data());
      g.p.copyFromHost(p.data());
    }
  }

  void TearDown() override {
    if (solver_ != nullptr) solver_->free();
  }

  // body(index, label, stored row, column) for all elements of a band's plane with its halo row.
  template <class Body>
  static void forEach(const gpudata& g, Body&& body) {
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t row = 0; row <= g.h; ++row) {
        for (std::size_t x = 0; x < w; ++x) body(i * g.NOmegaOffset + row * w + x, i, row, x);
      }
    }
  }

  std::unique_ptr<HostMachine> machine_;
  SolverProblem problem_;
  std::unique_ptr<RatSegImpl> solver_;
};

TEST_P(HaloTest, KernelCopiesTheLastRowOfPFromTheBandAbove) {
  start(true);
  solver_->copyExtraRegions_p();
  for (int d = 0; d < GetParam(); ++d) {
    const gpudata& g = solver_->arrays[d];
    forEach(g, [&](std::size_t k, std::size_t i, std::size_t row, std::size_t x) {
      const bool halo = d > 0 && row == 0;
      const float expected = halo ? tag(d - 1, i, solver_->arrays[d - 1].h, x) : tag(d, i, row, x);
      ASSERT_EQ(g.p.get(k).x, expected);
      ASSERT_EQ(g.p.get(k).y, -expected);
    });
  }
}

// The copy engine addresses row h-1 where the kernel addresses row h.
TEST_P(HaloTest, CopyEngineCopiesTheRowBeforeTheLastOfP) {
  start(false);
  solver_->copyExtraRegions_p();
  for (int d = 0; d < GetParam(); ++d) {
    const gpudata& g = solver_->arrays[d];
    forEach(g, [&](std::size_t k, std::size_t i, std::size_t row, std::size_t x) {
      const bool halo = d > 0 && row == 0;
      const float expected =
          halo ? tag(d - 1, i, solver_->arrays[d - 1].h - 1, x) : tag(d, i, row, x);
      ASSERT_EQ(g.p.get(k).x, expected);
      ASSERT_EQ(g.p.get(k).y, -expected);
    });
  }
}

TEST_P(HaloTest, KernelFillsTheHaloRowOfUBarFromTheBandBelow) {
  start(true);
  solver_->copyExtraRegions_u();
  for (int d = 0; d < GetParam(); ++d) {
    const gpudata& g = solver_->arrays[d];
    forEach(g, [&](std::size_t k, std::size_t i, std::size_t row, std::size_t x) {
      const bool halo = d + 1 < GetParam() && row == g.h;
      ASSERT_EQ(g.u_bar.get(k), halo ? tag(d + 1, i, 0, x) : tag(d, i, row, x));
    });
  }
}

// The copy engine overwrites the last own row instead of the halo row.
TEST_P(HaloTest, CopyEngineFillsTheLastOwnRowOfUBar) {
  start(false);
  solver_->copyExtraRegions_u();
  for (int d = 0; d < GetParam(); ++d) {
    const gpudata& g = solver_->arrays[d];
    forEach(g, [&](std::size_t k, std::size_t i, std::size_t row, std::size_t x) {
      const bool filled = d + 1 < GetParam() && row == g.h - 1;
      ASSERT_EQ(g.u_bar.get(k), filled ? tag(d + 1, i, 0, x) : tag(d, i, row, x));
    });
  }
}

TEST_P(HaloTest, SumsOfAllBandsWithoutHaloRowsAreGatheredOnTheFirstDevice) {
  for (const bool peer : {true, false}) {
    SCOPED_TRACE(peer ? "peer access" : "no peer access");
    start(peer);
    solver_->computeSumU__save_on_gpu0();
    std::vector<float> expected(n);
    for (int d = 0; d < GetParam(); ++d) {
      std::vector<float> own(n);
      const gpudata& g = solver_->arrays[d];
      forEach(g, [&](std::size_t, std::size_t i, std::size_t row, std::size_t x) {
        if (row < g.h) own[i] += tag(d, i, row, x);
      });
      for (std::size_t i = 0; i < n; ++i) expected[i] += own[i];
      if (d > 0) {
        EXPECT_EQ(toHost(g.sum_u), own) << "device " << d << " keeps its part";
      }
    }
    EXPECT_EQ(toHost(solver_->arrays[0].sum_u), expected);
    solver_->free();
  }
}

// Of three bands one reaches the first device by a kernel, the other by copies.
TEST(RatSegImplSums, OnlyBandsOutOfReachGoThroughTheHost) {
  HostMachine machine(hostConfig(3));
  SolverProblem p = randomProblem(4, 6, 2);
  p.par.gpu = {0, 1, 2};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  for (int d = 0; d < 3; ++d) {
    gpudata& g = solver.arrays[d];
    std::vector<float> u(g.NOffset);
    u[0] = static_cast<float>(1 + d);
    u[g.NOmegaOffset] = static_cast<float>(10 * (1 + d));
    g.u_bar.copyFromHost(u.data());
  }
  for (const int outOfReach : {1, 2}) {
    for (int d = 1; d < 3; ++d) solver.canAccess_array[d * 3 + 0] = d != outOfReach;
    Trace trace(machine);
    solver.computeSumU__save_on_gpu0();
    machine.backend.setObserver({});
    const std::string kernel = std::to_string(3 - outOfReach);
    const std::string copied = std::to_string(outOfReach);
    EXPECT_THAT(trace.calls, ElementsAre("0:sum", "0:sum", "1:sum", "1:sum", "2:sum", "2:sum",  //
                                         "0:after " + kernel, "0:computeSumU_sumKernel",        //
                                         "0:cudaMemcpy", copied + ":cudaMemcpy", "0:cudaMemcpy"));
    EXPECT_EQ(toHost(solver.arrays[0].sum_u), (std::vector<float>{6, 60}));
  }
  solver.free();
}

INSTANTIATE_TEST_SUITE_P(Bands, HaloTest, testing::Values(1, 2, 3));

// With peer access the bands leave no trace; without it the copy engine's rows do.
TEST(RatSegImplBands, PeerAccessMakesBandsSeamless) {
  SolverProblem p = randomProblem(23, 17, 4, 5);
  p.par.Nsteps = 60;
  p.par.outModulo = 61;
  const auto largestDifference = [](const SolverResult& a, const SolverResult& b) {
    float largest = 0.0f;
    for (std::size_t k = 0; k < a.u.size(); ++k) {
      largest = std::max(largest, std::abs(a.u[k] - b.u[k]));
    }
    return largest;
  };
  SolverResult one;
  {
    const HostMachine machine;
    one = solve(p);
  }
  const HostMachine joined(hostConfig(4, true));
  EXPECT_LE(largestDifference(one, solve(p, {0, 1})), 1e-5f);
  EXPECT_LE(largestDifference(one, solve(p, {0, 1, 2, 3})), 1e-5f);
  const HostMachine separate(hostConfig(4, false));
  EXPECT_GT(largestDifference(one, solve(p, {0, 1})), 1e-3f);
}

// The environment is read when the solver is made.
TEST(RatSegImplRunDeathTest, DoesNotReadTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const HostMachine machine;
        SolverProblem p = randomProblem(8, 8, 2);
        p.par.tolerance = 1e-6f;
        RatSegImpl solver(p.par);
        setUp(solver, p);
        for (const char* name : {"RATSEG_ISA", "RATSEG_STRIP_ROWS", "RATSEG_HOST_DEVICES"}) {
          setenv(name, "nonsense", 1);
        }
        for (const int engine : {Params::engine_fused, Params::engine_strips}) {
          p.par.engine = engine;
          solver.run();
        }
        std::exit(solver.statistics.iterations == p.par.Nsteps ? 0 : 2);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace namespace_ratseg
