#include "algorithms/rat_segments/alg/rat_seg.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "device/runtime.h"
#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

TEST(Params, HoldsItsDefaults) {
  const Params p;
  EXPECT_EQ(p.w, 128u);
  EXPECT_EQ(p.h, 128u);
  EXPECT_EQ(p.n, 32u);
  EXPECT_EQ(p.Nsteps, 1000u);
  EXPECT_EQ(p.dt_multiplier, 1.0f);
  EXPECT_TRUE(p.initLocalSolution);
  EXPECT_FALSE(p.cancel);
  EXPECT_EQ(p.outModulo, 1000u);
  EXPECT_EQ(p.threadsx, 128u);
  EXPECT_EQ(p.threadsy, 2u);
  EXPECT_EQ(p.gpu_num, -1);
  EXPECT_TRUE(p.gpu.empty());
  EXPECT_EQ(p.lambda, 0.2f);
  EXPECT_EQ(p.kind_prior, 3);
  EXPECT_EQ(p.mu, 10000.0f);
  EXPECT_EQ(p.eps, 0.01f);
}

TEST(Params, FieldsHaveTheirTypesAndOrder) {
  using Size = std::size_t;
  static_assert(std::is_same_v<decltype(Params::w), Size>);
  static_assert(std::is_same_v<decltype(Params::h), Size>);
  static_assert(std::is_same_v<decltype(Params::n), Size>);
  static_assert(std::is_same_v<decltype(Params::Nsteps), Size>);
  static_assert(std::is_same_v<decltype(Params::dt_multiplier), float>);
  static_assert(std::is_same_v<decltype(Params::initLocalSolution), bool>);
  static_assert(std::is_same_v<decltype(Params::cancel), bool>);
  static_assert(std::is_same_v<decltype(Params::outModulo), Size>);
  static_assert(std::is_same_v<decltype(Params::threadsx), Size>);
  static_assert(std::is_same_v<decltype(Params::threadsy), Size>);
  static_assert(std::is_same_v<decltype(Params::gpu_num), int>);
  static_assert(std::is_same_v<decltype(Params::gpu), std::vector<int>>);
  static_assert(std::is_same_v<decltype(Params::lambda), float>);
  static_assert(std::is_same_v<decltype(Params::kind_prior), int>);
  static_assert(std::is_same_v<decltype(Params::mu), float>);
  static_assert(std::is_same_v<decltype(Params::eps), float>);
  const Params p;
  const auto at = [](const auto& field) { return reinterpret_cast<std::uintptr_t>(&field); };
  const std::vector<std::uintptr_t> places = {at(p.w),
                                              at(p.h),
                                              at(p.n),
                                              at(p.Nsteps),
                                              at(p.dt_multiplier),
                                              at(p.initLocalSolution),
                                              at(p.cancel),
                                              at(p.outModulo),
                                              at(p.threadsx),
                                              at(p.threadsy),
                                              at(p.gpu_num),
                                              at(p.gpu),
                                              at(p.lambda),
                                              at(p.kind_prior),
                                              at(p.mu),
                                              at(p.eps)};
  EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
}

TEST(Params, KindsOfPriorAreNumbered) {
  EXPECT_EQ(int{Params::kind_prior_none}, 0);
  EXPECT_EQ(int{Params::kind_prior_interval}, 1);
  EXPECT_EQ(int{Params::kind_prior_lowerBound}, 2);
  EXPECT_EQ(int{Params::kind_prior_upperBound}, 3);
}

TEST(RatSeg, EnergyGapIsAPlaceholder) {
  RatSeg solver;
  EXPECT_TRUE(std::isnan(solver.energy_gap(nullptr, nullptr)));
  float primal = 5.0f;
  float dual = 6.0f;
  EXPECT_TRUE(std::isnan(solver.energy_gap(&primal, nullptr)));
  EXPECT_EQ(primal, 0.0f);
  EXPECT_EQ(dual, 6.0f);
  primal = 5.0f;
  EXPECT_TRUE(std::isnan(solver.energy_gap(nullptr, &dual)));
  EXPECT_EQ(primal, 5.0f);
  EXPECT_EQ(dual, 0.0f);
}

TEST(RatSeg, UsedDevicesAreThoseOfTheBandsInOrder) {
  const HostMachine machine(hostConfig(3));
  RatSeg solver;
  int* devices = nullptr;
  int count = -1;
  solver.getUsedDevices(devices, count);
  EXPECT_EQ(devices, nullptr);
  EXPECT_EQ(count, 0);

  Params& par = solver.getParams();
  par.w = par.h = 8;
  par.n = 2;
  par.gpu = {2, 0};
  ASSERT_TRUE(solver.alloc());
  solver.getUsedDevices(devices, count);
  ASSERT_EQ(count, 2);
  EXPECT_EQ(devices[0], 2);
  EXPECT_EQ(devices[1], 0);
  delete[] devices;
  solver.free();
}

std::size_t usedMemory() {
  std::size_t available = 0;
  std::size_t total = 0;
  cudaMemGetInfo(&available, &total);
  return total - available;
}

TEST(RatSeg, FreesDeviceMemoryWhenAskedToAndNotInItsDestructor) {
  static_assert(std::has_virtual_destructor_v<RatSeg>);
  const HostMachine machine;
  {
    RatSeg solver;
    solver.getParams().w = solver.getParams().h = 8;
    ASSERT_TRUE(solver.alloc());
    EXPECT_GT(usedMemory(), 0u);
    solver.free();
    EXPECT_EQ(usedMemory(), 0u);
    ASSERT_TRUE(solver.alloc());
  }
  EXPECT_GT(usedMemory(), 0u);
}

TEST(RatSeg, FacadeForwardsBoundsInOrder) {
  const HostMachine machine;
  SolverProblem p = randomProblem(13, 9, 3);
  p.par.kind_prior = Params::kind_prior_interval;
  p.mins = {0.1f, 0.5f, 0.0f};
  p.maxs = {0.2f, 0.6f, 0.0f};
  const SolverResult expected = solve(p);

  RatSeg solver;
  solver.getParams() = p.par;
  ASSERT_TRUE(solver.alloc());
  solver.setRatios(p.ratios.data(), p.sigmas.data(), p.ind_bgr, p.mins.data(), p.maxs.data());
  solver.setDataterm(p.rho.data());
  solver.setWeight(p.weight.data());
  solver.run();
  std::vector<float> u(p.rho.size());
  solver.getSolution_smooth(u.data());
  EXPECT_EQ(u, expected.u);
  std::swap(p.mins, p.maxs);
  EXPECT_NE(u, solve(p).u) << "the order of the bounds matters";
  solver.free();
}

TEST(RatSeg, FacadeForwardsEveryOperation) {
  const HostMachine machine;
  SolverProblem p = randomProblem(13, 9, 3);
  const SolverResult expected = solve(p);

  RatSeg solver;
  solver.getParams() = p.par;
  ASSERT_TRUE(solver.alloc());
  solver.setRatios(p.ratios.data(), p.sigmas.data(), p.ind_bgr, nullptr, nullptr);
  solver.setDataterm(p.rho.data());
  solver.setWeight(p.weight.data());

  std::vector<float> rho(p.rho.size());
  solver.getDataterm(rho.data());
  EXPECT_EQ(rho, p.rho);

  solver.run();
  std::vector<float> smooth(p.rho.size());
  solver.getSolution_smooth(smooth.data());
  EXPECT_EQ(smooth, expected.u);

  std::vector<float> hard(p.rho.size());
  solver.getSolution(hard.data());
  const std::size_t pixels = 13 * 9;
  for (std::size_t k = 0; k < pixels; ++k) {
    std::size_t best = 0;
    for (std::size_t i = 1; i < 3; ++i) {
      if (smooth[i * pixels + k] > smooth[best * pixels + k]) best = i;
    }
    for (std::size_t i = 0; i < 3; ++i) {
      ASSERT_EQ(hard[i * pixels + k], i == best ? 1.0f : 0.0f) << "pixel " << k << " label " << i;
    }
  }

  solver.reinit();
  solver.run();
  std::vector<float> again(p.rho.size());
  solver.getSolution_smooth(again.data());
  EXPECT_EQ(again, expected.u);
  solver.free();
}

TEST(RatSeg, ScribbleDatatermReachesTheSolver) {
  const HostMachine machine;
  RatSeg solver;
  Params& par = solver.getParams();
  par.w = 2;
  par.h = 1;
  par.n = 2;
  ASSERT_TRUE(solver.alloc());
  std::vector<float4> image = {{1, 0, 0, 1}, {0, 0, 1, 1}};
  float4* scribbles[] = {&image[0], &image[1]};
  std::size_t counts[] = {1, 1};
  solver.setDataterm(image.data(), scribbles, counts, 5.0f, 10.0f);
  std::vector<float> rho(4);
  solver.getDataterm(rho.data());
  EXPECT_EQ(rho, (std::vector<float>{0, 10, 10, 0}));
  solver.free();
}

TEST(RatSeg, ParametersChangedAfterTheSetUpCount) {
  const HostMachine machine;
  const std::vector<std::pair<const char*, void (*)(Params&)>> changes = {
      {"lambda", [](Params& par) { par.lambda = 0.25f; }},
      {"mu", [](Params& par) { par.mu = 5.0f; }},
      {"eps", [](Params& par) { par.eps = 0.5f; }},
      {"dt_multiplier", [](Params& par) { par.dt_multiplier = 0.75f; }},
      {"kind_prior", [](Params& par) { par.kind_prior = Params::kind_prior_interval; }}};
  for (const auto& [name, change] : changes) {
    SCOPED_TRACE(name);
    SolverProblem p = randomProblem(11, 7, 3);
    SolverProblem changed = p;
    change(changed.par);
    const SolverResult expected = solve(changed);
    ASSERT_NE(expected.u, solve(p).u) << "the parameter matters";

    RatSeg solver;
    solver.getParams() = p.par;
    ASSERT_TRUE(solver.alloc());
    solver.setRatios(p.ratios.data(), p.sigmas.data(), p.ind_bgr, nullptr, nullptr);
    solver.setDataterm(p.rho.data());
    solver.setWeight(p.weight.data());
    change(solver.getParams());
    solver.run();
    std::vector<float> u(p.rho.size());
    solver.getSolution_smooth(u.data());
    EXPECT_EQ(u, expected.u);
    solver.free();
  }
}

// Changes of the parameters between runs are seen.
TEST(RatSeg, ParametersMayChangeBetweenRuns) {
  const HostMachine machine;
  SolverProblem p = randomProblem(11, 7, 3);
  p.par.Nsteps = 10;
  p.par.outModulo = 100;
  SolverProblem longer = p;
  longer.par.Nsteps = 25;
  const SolverResult expected = solve(longer);

  RatSeg solver;
  solver.getParams() = p.par;
  ASSERT_TRUE(solver.alloc());
  solver.setRatios(p.ratios.data(), p.sigmas.data(), p.ind_bgr, nullptr, nullptr);
  solver.setDataterm(p.rho.data());
  solver.setWeight(p.weight.data());
  solver.run();
  solver.getParams().Nsteps = 15;
  solver.run();
  std::vector<float> u(p.rho.size());
  solver.getSolution_smooth(u.data());
  EXPECT_EQ(u, expected.u);
  solver.free();
}

// What a call says on standard error.
template <class Call>
std::string errorOf(Call&& call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}

TEST(RatSegMisuse, SizesThatChangeAfterAllocAreRefused) {
  const HostMachine machine;
  SolverProblem p = randomProblem(6, 5, 3);
  RatSeg solver;
  solver.getParams() = p.par;
  ASSERT_TRUE(solver.alloc());
  std::vector<float> array(1000, 7.0f);
  const std::vector<float> untouched = array;
  float4* noColours = nullptr;
  float4* noScribbles[8] = {};
  std::size_t counts[8] = {};
  const std::vector<std::pair<const char*, std::function<void()>>> calls = {
      {"reinit", [&] { solver.reinit(); }},
      {"setWeight", [&] { solver.setWeight(array.data()); }},
      {"setDataterm", [&] { solver.setDataterm(array.data()); }},
      {"setDataterm", [&] { solver.setDataterm(noColours, noScribbles, counts, 1.0f, 1.0f); }},
      {"getDataterm", [&] { solver.getDataterm(array.data()); }},
      {"setRatios",
       [&] { solver.setRatios(array.data(), array.data(), 2, array.data(), array.data()); }},
      {"run", [&] { solver.run(); }},
      {"getSolution", [&] { solver.getSolution(array.data()); }},
      {"getSolution_smooth", [&] { solver.getSolution_smooth(array.data()); }}};
  Params& par = solver.getParams();
  for (const auto& [w, h, n, now] :
       std::vector<std::tuple<std::size_t, std::size_t, std::size_t, const char*>>{
           {7, 5, 3, "7, 5 and 3"}, {6, 4, 3, "6, 4 and 3"}, {6, 5, 8, "6, 5 and 8"}}) {
    par.w = w;
    par.h = h;
    par.n = n;
    for (const auto& [name, call] : calls) {
      EXPECT_EQ(errorOf(call), std::string("ERROR (") + name +
                                   "()): w, h and n must stay as they were at alloc(), 6, 5 and 3, "
                                   "but are " +
                                   now + "\n");
    }
  }
  EXPECT_EQ(array, untouched);
  par.w = 6;
  par.h = 5;
  par.n = 3;
  EXPECT_EQ(errorOf([&] { solver.setDataterm(p.rho.data()); }), "");
  par.w = 7;
  EXPECT_EQ(errorOf([&] { solver.free(); }), "");
  ASSERT_TRUE(solver.alloc());
  EXPECT_EQ(errorOf([&] { solver.reinit(); }), "");
  solver.free();
  par.w = 8;
  EXPECT_EQ(errorOf([&] { solver.reinit(); }), "");
}

TEST(RatSegMisuse, ABackgroundLabelThatThereIsNotIsRefused) {
  const HostMachine machine;
  SolverProblem p = randomProblem(6, 5, 3);
  RatSeg solver;
  solver.getParams() = p.par;
  ASSERT_TRUE(solver.alloc());
  std::vector<float> array(3, 0.5f);
  const auto set = [&](std::size_t background) {
    return errorOf(
        [&] { solver.setRatios(array.data(), array.data(), background, nullptr, nullptr); });
  };
  EXPECT_EQ(set(2), "");
  EXPECT_EQ(set(3), "ERROR (setRatios()): the background label must be one of 0 to 2, but is 3\n");
  solver.free();
}

}  // namespace
}  // namespace namespace_ratseg
