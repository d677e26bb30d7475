// What RatSeg does with arguments and parameters that it cannot use: one line, and nothing else.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "device/runtime.h"
#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr std::size_t kHuge = SIZE_MAX;

struct Output {
  std::string out, err;
  bool operator==(const Output&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Output& o) {
  return stream << "standard output \"" << o.out << "\", standard error \"" << o.err << "\"";
}

Output outputOf(const std::function<void()>& call) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  call();
  return {testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

std::size_t usedMemory() {
  std::size_t available = 0, total = 0;
  cudaMemGetInfo(&available, &total);
  return total - available;
}

// A solver of 6 x 5 pixels and 3 labels on a machine of two devices, with all that it needs, and
// colours for scribbles.
class Solver {
 public:
  Solver() : p(randomProblem(6, 5, 3)), colours(40, float4{0.5f, 0.5f, 0.5f, 1.0f}) {
    solver.getParams() = p.par;
    for (std::size_t i = 0; i < 3; ++i) lists[i] = colours.data() + i;
  }

  void allocAndSetUp() {
    ASSERT_TRUE(solver.alloc());
    solver.setRatios(p.ratios.data(), p.sigmas.data(), p.ind_bgr, nullptr, nullptr);
    solver.setDataterm(p.rho.data());
    solver.setWeight(p.weight.data());
  }

  std::vector<float> labeling() {
    std::vector<float> u(90, -1.0f);
    solver.getSolution_smooth(u.data());
    return u;
  }

  void setScribbles() { solver.setDataterm(colours.data(), lists, counts, 5.0f, 10.0f); }

  SolverProblem p;
  std::vector<float4> colours;
  float4* lists[3] = {};
  std::size_t counts[3] = {1, 2, 0};
  RatSeg solver;
};

struct Misuse {
  const char* name;
  std::function<void(Solver&)> call;
  const char* line;
};

std::ostream& operator<<(std::ostream& out, const Misuse& misuse) { return out << misuse.name; }

template <class Info>
std::string nameOf(const Info& info) {
  return info.param.name;
}

// --- calls on a solver that is ready ---

class MisusedCall : public testing::TestWithParam<Misuse> {};

TEST_P(MisusedCall, SaysWhyAndChangesNothing) {
  const HostMachine machine(hostConfig(2));
  Solver s;
  outputOf([&] { s.allocAndSetUp(); });
  const std::vector<float> before = s.labeling();
  EXPECT_EQ(outputOf([&] { GetParam().call(s); }),
            (Output{"", std::string("ERROR (") + GetParam().line + "\n"}));
  EXPECT_EQ(s.solver.getStatistics().iterations, 0u);
  s.solver.getParams() = s.p.par;
  EXPECT_EQ(s.labeling(), before);
  // Shares, data term and weight are those that it had, and it can be used as before.
  s.solver.run();
  EXPECT_EQ(s.labeling(), solve(s.p).u);
  s.solver.free();
}

INSTANTIATE_TEST_SUITE_P(
    NullArrays, MisusedCall,
    testing::Values(Misuse{"Ratios",
                           [](Solver& s) {
                             s.solver.setRatios(nullptr, s.p.sigmas.data(), 1, nullptr, nullptr);
                           },
                           "setRatios()): ratios must not be null"},
                    Misuse{"RatiosWithBounds",
                           [](Solver& s) {
                             float* bounds = s.p.sigmas.data();
                             s.solver.setRatios(nullptr, bounds, 1, bounds, bounds);
                           },
                           "setRatios()): ratios must not be null"},
                    Misuse{"Sigmas",
                           [](Solver& s) {
                             s.solver.setRatios(s.p.ratios.data(), nullptr, 1, nullptr, nullptr);
                           },
                           "setRatios()): sigmas must not be null"},
                    Misuse{"Dataterm", [](Solver& s) { s.solver.setDataterm(nullptr); },
                           "setDataterm()): rho must not be null"},
                    Misuse{"Weight", [](Solver& s) { s.solver.setWeight(nullptr); },
                           "setWeight()): weight must not be null"},
                    Misuse{"DatatermToRead", [](Solver& s) { s.solver.getDataterm(nullptr); },
                           "getDataterm()): rho must not be null"},
                    Misuse{"Solution", [](Solver& s) { s.solver.getSolution(nullptr); },
                           "getSolution()): uh must not be null"},
                    Misuse{"SmoothSolution",
                           [](Solver& s) { s.solver.getSolution_smooth(nullptr); },
                           "getSolution_smooth()): uh must not be null"}),
    [](const auto& misuse) { return nameOf(misuse); });

INSTANTIATE_TEST_SUITE_P(
    Scribbles, MisusedCall,
    testing::Values(
        Misuse{"NullImage",
               [](Solver& s) { s.solver.setDataterm(nullptr, s.lists, s.counts, 5.0f, 10.0f); },
               "setDataterm()): image must not be null"},
        Misuse{"NullLists",
               [](Solver& s) {
                 s.solver.setDataterm(s.colours.data(), nullptr, s.counts, 5.0f, 10.0f);
               },
               "setDataterm()): scribbles must not be null"},
        Misuse{"NullCounts",
               [](Solver& s) {
                 s.solver.setDataterm(s.colours.data(), s.lists, nullptr, 5.0f, 10.0f);
               },
               "setDataterm()): scribblesNum must not be null"},
        Misuse{"NullListOfALabelWithColours",
               [](Solver& s) {
                 s.lists[1] = nullptr;
                 s.setScribbles();
               },
               "setDataterm()): the scribbles of label 1 must not be null, since there are 2"},
        Misuse{"MoreColoursThanPixels",
               [](Solver& s) {
                 s.counts[2] = 31;
                 s.setScribbles();
               },
               "setDataterm()): a label must have at most 30 scribble colours, but label 2 has 31"},
        Misuse{"AsManyColoursAsCanBeCounted",
               [](Solver& s) {
                 s.counts[0] = kHuge;
                 s.setScribbles();
               },
               "setDataterm()): a label must have at most 30 scribble colours, but label 0 has "
               "18446744073709551615"},
        Misuse{"SigmaThatIsNoNumber",
               [](Solver& s) {
                 s.solver.setDataterm(s.colours.data(), s.lists, s.counts, kNaN, 10.0f);
               },
               "setDataterm()): sigma must be a number, but is nan"},
        Misuse{"ThrThatIsNoNumber",
               [](Solver& s) {
                 s.solver.setDataterm(s.colours.data(), s.lists, s.counts, 5.0f, kNaN);
               },
               "setDataterm()): thr must be a number, but is nan"}),
    [](const auto& misuse) { return nameOf(misuse); });

INSTANTIATE_TEST_SUITE_P(
    BackgroundLabel, MisusedCall,
    testing::Values(Misuse{"N",
                           [](Solver& s) {
                             s.solver.setRatios(s.p.sigmas.data(), s.p.ratios.data(), 3, nullptr,
                                                nullptr);
                           },
                           "setRatios()): the background label must be one of 0 to 2, but is 3"},
                    Misuse{"FarBeyond",
                           [](Solver& s) {
                             s.solver.setRatios(s.p.sigmas.data(), s.p.ratios.data(), kHuge,
                                                nullptr, nullptr);
                           },
                           "setRatios()): the background label must be one of 0 to 2, but is "
                           "18446744073709551615"}),
    [](const auto& misuse) { return nameOf(misuse); });

Misuse runWith(const char* name, void (*change)(Params&), const char* line) {
  return {name,
          [change](Solver& s) {
            change(s.solver.getParams());
            s.solver.run();
          },
          line};
}

constexpr const char* kSizes =
    "run()): w, h and n must stay as they were at alloc(), 6, 5 and 3, but are ";
const std::string kWidth0 = std::string(kSizes) + "0, 5 and 3";
const std::string kTaller = std::string(kSizes) + "6, 6 and 3";
const std::string kLabels0 = std::string(kSizes) + "6, 5 and 0";

INSTANTIATE_TEST_SUITE_P(
    Run, MisusedCall,
    testing::Values(runWith(
                        "NaNLambda", [](Params& par) { par.lambda = kNaN; },
                        "run()): lambda must be a number, but is nan"),
                    runWith(
                        "NaNMu", [](Params& par) { par.mu = kNaN; },
                        "run()): mu must be a number, but is nan"),
                    runWith(
                        "NaNEps", [](Params& par) { par.eps = kNaN; },
                        "run()): eps must be a number, but is nan"),
                    runWith(
                        "NaNTolerance", [](Params& par) { par.tolerance = kNaN; },
                        "run()): tolerance must be a number, but is nan"),
                    runWith(
                        "NaNStep", [](Params& par) { par.dt_multiplier = kNaN; },
                        "run()): dt_multiplier must be a finite number above 0, but is nan"),
                    runWith(
                        "InfiniteStep", [](Params& par) { par.dt_multiplier = kInfinity; },
                        "run()): dt_multiplier must be a finite number above 0, but is inf"),
                    runWith(
                        "NoStep", [](Params& par) { par.dt_multiplier = 0.0f; },
                        "run()): dt_multiplier must be a finite number above 0, but is 0"),
                    runWith(
                        "NegativeStep", [](Params& par) { par.dt_multiplier = -1.0f; },
                        "run()): dt_multiplier must be a finite number above 0, but is -1"),
                    runWith(
                        "WidthOf0AfterAlloc", [](Params& par) { par.w = 0; }, kWidth0.c_str()),
                    runWith(
                        "OtherHeightAfterAlloc", [](Params& par) { par.h = 6; }, kTaller.c_str()),
                    runWith(
                        "NoLabelsAfterAlloc", [](Params& par) { par.n = 0; }, kLabels0.c_str())),
    [](const auto& misuse) { return nameOf(misuse); });

// --- parameters of alloc() ---

struct BadAlloc {
  const char* name;
  std::function<void(Params&)> change;
  Output output;
};

std::ostream& operator<<(std::ostream& out, const BadAlloc& bad) { return out << bad.name; }

class RefusedAlloc : public testing::TestWithParam<BadAlloc> {};

TEST_P(RefusedAlloc, SaysWhyAndLeavesNothingAllocated) {
  const HostMachine machine(hostConfig(2));
  Solver s;
  outputOf([&] { s.allocAndSetUp(); });
  GetParam().change(s.solver.getParams());
  bool allocated = true;
  EXPECT_EQ(outputOf([&] { allocated = s.solver.alloc(); }), GetParam().output);
  EXPECT_FALSE(allocated);
  EXPECT_EQ(usedMemory(), 0u);
  int* devices = &s.solver.getParams().kind_prior;
  int count = -1;
  s.solver.getUsedDevices(devices, count);
  EXPECT_EQ(devices, nullptr);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(outputOf([&] { s.solver.run(); }).out, "ERROR (run()): Must call alloc() first\n");
  s.solver.free();

  s.solver.getParams() = s.p.par;
  outputOf([&] { s.allocAndSetUp(); });
  s.solver.run();
  EXPECT_EQ(s.labeling(), solve(s.p).u);
  s.solver.free();
}

Output sizes(const char* values) {
  return {"Using: 0\n",
          std::string("ERROR: w, h, n, threadsx and threadsy must be positive, but are ") + values +
              "\n"};
}

Output refused(const std::string& text) { return {"", "ERROR (alloc()): " + text + "\n"}; }

INSTANTIATE_TEST_SUITE_P(
    Parameters, RefusedAlloc,
    testing::Values(
        BadAlloc{"NoWidth", [](Params& p) { p.w = 0; }, sizes("0, 5, 3, 128 and 2")},
        BadAlloc{"NoHeight", [](Params& p) { p.h = 0; }, sizes("6, 0, 3, 128 and 2")},
        BadAlloc{"NoLabels", [](Params& p) { p.n = 0; }, sizes("6, 5, 0, 128 and 2")},
        BadAlloc{"NoThreadsX", [](Params& p) { p.threadsx = 0; }, sizes("6, 5, 3, 0 and 2")},
        BadAlloc{"NoThreadsY", [](Params& p) { p.threadsy = 0; }, sizes("6, 5, 3, 128 and 0")},
        BadAlloc{"TooManyThreads", [](Params& p) { p.threadsy = 9; },
                 refused("threadsx times threadsy must be at most 1024, but they are 128 and 9")},
        BadAlloc{"ThreadsThatCannotBeMultiplied",
                 [](Params& p) { p.threadsx = p.threadsy = std::size_t{1} << 32; },
                 refused("threadsx times threadsy must be at most 1024, but they are 4294967296 "
                         "and 4294967296")},
        BadAlloc{"PixelsThatCannotBeCounted", [](Params& p) { p.w = p.h = std::size_t{1} << 32; },
                 refused("w, h and n must give arrays that can be addressed, but are 4294967296, "
                         "4294967296 and 3")},
        BadAlloc{"LabelsThatCannotBeCounted", [](Params& p) { p.n = std::size_t{1} << 60; },
                 refused("w, h and n must give arrays that can be addressed, but are 6, 5 and "
                         "1152921504606846976")},
        BadAlloc{"RowsThatCannotBeCounted", [](Params& p) { p.h = kHuge; },
                 refused("w, h and n must give arrays that can be addressed, but are 6, "
                         "18446744073709551615 and 3")},
        BadAlloc{"UnknownDevice",
                 [](Params& p) {
                   p.gpu = {0, 2};
                 },
                 refused("gpu must hold device numbers from 0 to 1, but holds 2")},
        BadAlloc{"NegativeDevice", [](Params& p) { p.gpu = {-1}; },
                 refused("gpu must hold device numbers from 0 to 1, but holds -1")},
        BadAlloc{"PositiveNumberOfDevices", [](Params& p) { p.gpu_num = 2; },
                 Output{"", "ERROR: gpu_num must be 0 or negative, but is 2\n"}},
        BadAlloc{"MoreDevicesThanRows",
                 [](Params& p) {
                   p.h = 1;
                   p.gpu = {0, 1};
                 },
                 Output{"Using: 0, 1\n",
                        "ERROR: 1 image rows cannot be split over 2 devices in bands of 1 rows: "
                        "only the first 1 would get any\n"}}),
    [](const auto& bad) { return nameOf(bad); });

TEST(RefusedAllocs, AreAllThoseOfAMachineWithoutDevices) {
  const HostMachine machine(hostConfig(0));
  Solver s;
  bool allocated = true;
  EXPECT_EQ(outputOf([&] { allocated = s.solver.alloc(); }), (Output{"", "No CUDA Devices\n"}));
  EXPECT_FALSE(allocated);
  s.solver.getParams().gpu = {0};
  EXPECT_EQ(outputOf([&] { allocated = s.solver.alloc(); }),
            refused("gpu must hold device numbers, but there is no device"));
  EXPECT_FALSE(allocated);
  EXPECT_EQ(cudaPeekAtLastError(), cudaSuccess);
}

// --- calls before alloc() ---

class CallBeforeAlloc : public testing::TestWithParam<Misuse> {};

TEST_P(CallBeforeAlloc, DoesNothingWhateverItsArguments) {
  const HostMachine machine;
  Solver s;
  const Output output = outputOf([&] { GetParam().call(s); });
  EXPECT_EQ(output.out + output.err, GetParam().line);
  EXPECT_EQ(usedMemory(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, CallBeforeAlloc,
    testing::Values(
        Misuse{"SetRatios",
               [](Solver& s) { s.solver.setRatios(nullptr, nullptr, 77, nullptr, nullptr); },
               "ERROR (setRatios()): Must call alloc() first\n"},
        Misuse{"SetDataterm", [](Solver& s) { s.solver.setDataterm(nullptr); },
               "ERROR (setDataterm()): Must call alloc() first\n"},
        Misuse{"SetScribbles",
               [](Solver& s) { s.solver.setDataterm(nullptr, nullptr, nullptr, kNaN, kNaN); }, ""},
        Misuse{"SetWeight", [](Solver& s) { s.solver.setWeight(nullptr); },
               "ERROR (setWeight()): Must call alloc() first\n"},
        Misuse{"GetDataterm", [](Solver& s) { s.solver.getDataterm(nullptr); },
               "ERROR (setDataterm()): Must call alloc() first\n"},
        Misuse{"GetSolution", [](Solver& s) { s.solver.getSolution(nullptr); },
               "ERROR (getSolution()): uh must not be null\n"},
        Misuse{"GetSmoothSolution", [](Solver& s) { s.solver.getSolution_smooth(nullptr); },
               "ERROR (getSolution_smooth()): uh must not be null\n"},
        Misuse{"Run",
               [](Solver& s) {
                 s.solver.getParams().lambda = kNaN;
                 s.solver.run();
               },
               "ERROR (run()): Must call alloc() first\n"},
        Misuse{"Reinit", [](Solver& s) { s.solver.reinit(); }, ""},
        Misuse{"Free", [](Solver& s) { s.solver.free(); }, ""},
        Misuse{"EnergyGap", [](Solver& s) { s.solver.energy_gap(nullptr, nullptr); }, ""}),
    [](const auto& misuse) { return nameOf(misuse); });

// --- calls that may come twice ---

TEST(CallsThatComeTwice, AllocBeginsWithFree) {
  const HostMachine machine;
  Solver s;
  outputOf([&] { s.allocAndSetUp(); });
  const std::size_t used = usedMemory();
  outputOf([&] { s.allocAndSetUp(); });
  EXPECT_EQ(usedMemory(), used);
  EXPECT_EQ(outputOf([&] { s.solver.run(); }), (Output{"", ""}));
  EXPECT_EQ(s.labeling(), solve(s.p).u);
  EXPECT_EQ(outputOf([&] {
              s.solver.free();
              s.solver.free();
            }),
            (Output{"", ""}));
  EXPECT_EQ(usedMemory(), 0u);
}

TEST(CallsThatComeTwice, RunGoesOnWhereItEnded) {
  const HostMachine machine;
  Solver s;
  outputOf([&] { s.allocAndSetUp(); });
  s.solver.run();
  s.solver.run();
  EXPECT_EQ(s.solver.getStatistics().iterations, s.p.par.Nsteps);
  const std::vector<float> twice = s.labeling();
  SolverProblem longer = s.p;
  longer.par.Nsteps *= 2;
  longer.par.outModulo = 0;
  EXPECT_EQ(twice, solve(longer).u);
  s.solver.free();
}

TEST(RefusedRun, HasNoIterations) {
  const HostMachine machine;
  Solver s;
  outputOf([&] { s.allocAndSetUp(); });
  s.solver.run();
  EXPECT_EQ(s.solver.getStatistics().iterations, s.p.par.Nsteps);
  s.solver.getParams().mu = kNaN;
  outputOf([&] { s.solver.run(); });
  EXPECT_EQ(s.solver.getStatistics().iterations, 0u);
  s.solver.free();
}

// Bands of one device are computed as bands of two.
TEST(DeviceThatIsGivenTwice, HasTwoBands) {
  const HostMachine machine(hostConfig(2));
  SolverProblem p = randomProblem(6, 5, 3);
  EXPECT_EQ(solve(p, {1, 1}).u, solve(p, {0, 1}).u);
}

// --- what is computed, or ends the process, all the same ---

TEST(NegativeEps, IsComputedWithAndEachPixelStillGetsALabel) {
  const HostMachine machine;
  for (const int engine : {Params::engine_plain, Params::engine_fused, Params::engine_strips}) {
    for (const bool accelerate : {false, true}) {
      Solver s;
      s.solver.getParams().engine = engine;
      s.solver.getParams().accelerate = accelerate;
      s.solver.getParams().eps = -5.0f;
      outputOf([&] { s.allocAndSetUp(); });
      EXPECT_EQ(outputOf([&] { s.solver.run(); }), (Output{"", ""}));
      EXPECT_EQ(s.solver.getStatistics().iterations, s.p.par.Nsteps);
      std::vector<float> u(90);
      s.solver.getSolution(u.data());
      for (std::size_t k = 0; k < 30; ++k) EXPECT_EQ(u[k] + u[30 + k] + u[60 + k], 1.0f) << k;
      s.solver.free();
    }
  }
}

TEST(MoreLabelsThanABlockHasThreads, AreAnErrorOfTheDevice) {
  const HostMachine machine;
  SolverProblem p = randomProblem(2, 2, 1025);
  EXPECT_EXIT(
      {
        RatSeg solver;
        solver.getParams() = p.par;
        if (!solver.alloc()) std::exit(7);
        dup2(2, 1);
        solver.run();
      },
      testing::ExitedWithCode(1), "invalid configuration argument \\(9\\)");
}

}  // namespace
}  // namespace namespace_ratseg
