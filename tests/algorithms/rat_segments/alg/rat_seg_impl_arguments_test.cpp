// What the iteration's kernels are given: every array, number and device in its place, also where a
// solve happens to have the same value in two places.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/plain/rat_seg_launch.h"
#include "algorithms/rat_segments/alg/rat_seg_impl.h"
#include "device/runtime.h"
#include "support/machine.h"
#include "support/solver_problem.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;

constexpr float kTau = 0.7f;
constexpr float kConstGamma = 150.0f;  // not the number of pixels, which a solve takes for it
constexpr std::size_t kBackground = 1;

SolverProblem unevenProblem(int kind_prior) {
  SolverProblem p = randomProblem(7, 5, 4);
  p.par.engine = Params::engine_plain;
  p.par.kind_prior = kind_prior;
  p.par.dt_multiplier = kTau;
  p.par.Nsteps = 1;
  p.par.outModulo = 2;
  p.ratios = {0.2f, 0.1f, 0.5f, 0.3f};
  p.sigmas = {0.03f, 0.2f, 0.07f, 0.11f};
  p.mins = {0.1f, 0.0f, 0.3f, 0.05f};
  p.maxs = {0.25f, 1.0f, 0.6f, 0.4f};
  p.ind_bgr = kBackground;
  return p;
}

// Fills everything that an iteration changes with different values, the same for every solver.
void fillState(gpudata& g) {
  std::mt19937 generator(5);
  const auto between = [&](float lo, float hi) {
    return lo + (hi - lo) * static_cast<float>(generator() >> 8) * 0x1p-24f;
  };
  for (cudaarray<float>* array :
       {&g.u, &g.u_bar, &g.a, &g.a_bar, &g.gamma, &g.sum_u, &g.alpha, &g.beta}) {
    std::vector<float> values(array->numElem());
    for (float& x : values) x = between(-0.3f, 0.9f);
    array->copyFromHost(values.data());
  }
  std::vector<float2> p(g.p.numElem());
  for (float2& x : p) x = {between(-1, 1), between(-1, 1)};
  g.p.copyFromHost(p.data());
}

// The shares' dual and primal step by kind of prior.
void sharesByHand(gpudata& g, const Params& par, float sigma) {
  const std::size_t n = par.n;
  const std::size_t b = kBackground;
  const auto pixels = static_cast<float>(par.w * par.h);
  const LaunchShape shape = {{1, 1, 1}, {static_cast<unsigned>(n), 1, 1}, 0};
  RatSegKernels& k = ratSegKernels();
  if (par.kind_prior == Params::kind_prior_interval) {
    k.ratseg_dual_alphabeta__interval(shape, g.alpha, g.beta, g.a_bar, pixels, g.mins, g.maxs, b,
                                      sigma, n);
    k.ratseg_prim_a__interval(shape, g.a, g.a_bar, g.gamma, g.alpha, g.beta, kConstGamma, pixels, b,
                              1.0f, kTau, n);
  } else if (par.kind_prior == Params::kind_prior_lowerBound) {
    k.ratseg_dual_alphabeta__lowerBound(shape, g.alpha, g.a_bar, 1.0f, par.mu, g.ratios, g.sigmas,
                                        b, sigma, n);
    k.ratseg_prim_a__lowerBound(shape, g.a, g.a_bar, g.gamma, g.alpha, kConstGamma, 1.0f, par.mu,
                                g.ratios, b, 1.0f, kTau, n);
  } else if (par.kind_prior == Params::kind_prior_upperBound) {
    k.ratseg_dual_alphabeta__upperBound(shape, g.alpha, g.beta, g.a_bar, pixels, par.mu, par.eps,
                                        g.ratios, g.sigmas, b, sigma, n);
    k.ratseg_prim_a__upperBound(shape, g.a, g.a_bar, g.gamma, g.alpha, g.beta, kConstGamma, pixels,
                                par.mu, par.eps, g.ratios, b, 1.0f, kTau, n);
  } else {
    k.ratseg_prim_a__gamma(shape, g.a, g.a_bar, g.gamma, kConstGamma, 1.0f, kTau, n);
  }
}

// One iteration of a single band, launch by launch.
void stepByHand(RatSegImpl& solver) {
  gpudata& g = solver.arrays[0];
  const Params& par = solver.par;
  const std::size_t n = par.n;
  const float sigma = 1.0f / kTau;
  const LaunchShape perPixel = {g.grid, g.block, 0};
  const LaunchShape perLabel = {{1, 1, 1}, {static_cast<unsigned>(n), 1, 1}, 0};
  RatSegKernels& k = ratSegKernels();
  k.ratseg_dual_p(perPixel, g.p, g.u_bar, g.weight, par.lambda, sigma, 7, 5, 0, 5, n);
  solver.computeSumU__save_on_gpu0();
  k.ratseg_dual_gamma(perLabel, g.gamma, g.a_bar, g.sum_u, kConstGamma, 35, sigma, n);
  sharesByHand(g, par, sigma);
  k.ratseg_prim_u(perPixel, g.u, g.u_bar, g.p, g.gamma, kConstGamma, g.rho, 1.0f, kTau, 7, 5, 0, 5,
                  n);
}

TEST(RatSegImplArguments, StandInTheirPlacesForEveryKindOfPrior) {
  const HostMachine machine;
  for (int kind = 0; kind <= 3; ++kind) {
    SCOPED_TRACE(testing::Message() << "kind of prior " << kind);
    SolverProblem p = unevenProblem(kind);
    RatSegImpl run(p.par);
    RatSegImpl byHand(p.par);
    for (RatSegImpl* solver : {&run, &byHand}) {
      setUp(*solver, p);
      solver->constGamma = kConstGamma;
      fillState(solver->arrays[0]);
    }
    run.run();
    stepByHand(byHand);
    const gpudata& got = run.arrays[0];
    const gpudata& expected = byHand.arrays[0];
    EXPECT_EQ(toHost(got.u), toHost(expected.u));
    EXPECT_EQ(toHost(got.u_bar), toHost(expected.u_bar));
    EXPECT_EQ(std::memcmp(got.p.get_ptr(), expected.p.get_ptr(), got.p.numBytes()), 0);
    EXPECT_EQ(toHost(got.a), toHost(expected.a));
    EXPECT_EQ(toHost(got.a_bar), toHost(expected.a_bar));
    EXPECT_EQ(toHost(got.gamma), toHost(expected.gamma));
    EXPECT_EQ(toHost(got.sum_u), toHost(expected.sum_u));
    EXPECT_EQ(toHost(got.alpha), toHost(expected.alpha));
    EXPECT_EQ(toHost(got.beta), toHost(expected.beta));
    run.free();
    byHand.free();
  }
}

// The devices hold the same gamma when a solve gets there, so the second one's is changed.
TEST(RatSegImplArguments, EachBandFollowsTheGammaOfItsOwnDevice) {
  HostMachine machine(hostConfig(2));
  SolverProblem p = randomProblem(6, 4, 2);
  p.par.engine = Params::engine_plain;
  p.par.Nsteps = 1;
  p.par.outModulo = 2;
  p.par.gpu = {1, 0};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  const float pull[] = {-1000.0f, 1000.0f};
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    if (call.name == "ratseg_prim_u" && call.device == 1) solver.arrays[1].gamma.copyFromHost(pull);
  });
  solver.run();
  machine.backend.setObserver({});
  const std::vector<float> u = resultOf(solver).u;
  const auto second = u.begin() + 24;  // plane of label 1: 12 pixels of each band
  EXPECT_TRUE(std::all_of(second + 12, second + 24, [](float x) { return x == 1.0f; }));
  EXPECT_TRUE(std::any_of(second, second + 12, [](float x) { return x < 1.0f; }));
  solver.free();
}

// The exchanges between bands of one step as "to<from:kernel", with the devices 2, 0 and 1 for the
// bands, where band a does not reach band b (a = b: every band reaches every other).
std::multiset<std::string> kernelExchanges(int a, int b) {
  HostMachine machine(hostConfig(3));
  SolverProblem p = randomProblem(4, 6, 1);
  p.par.engine = Params::engine_plain;
  p.par.kind_prior = Params::kind_prior_none;
  p.par.Nsteps = 1;
  p.par.outModulo = 2;
  p.par.gpu = {2, 0, 1};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  if (a != b) solver.canAccess_array[b * 3 + a] = false;
  std::multiset<std::string> exchanges;
  int awaited = -1;
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    if (call.name == "cudaStreamWaitEvent") {
      awaited = call.awaited;
    } else if (awaited >= 0) {
      exchanges.insert(std::to_string(call.device) + "<" + std::to_string(awaited) + ":" +
                       call.name);
      awaited = -1;
    }
  });
  solver.run();
  machine.backend.setObserver({});
  solver.free();
  return exchanges;
}

TEST(RatSegImplArguments, EachPairOfBandsAsksForTheAccessOfItsOwn) {
  const std::multiset<std::string> all = kernelExchanges(0, 0);
  const auto missing = [&](int a, int b) {
    std::vector<std::string> without;
    const std::multiset<std::string> left = kernelExchanges(a, b);
    std::set_difference(all.begin(), all.end(), left.begin(), left.end(),
                        std::back_inserter(without));
    return without;
  };
  EXPECT_EQ(all.size(), 8u);
  EXPECT_THAT(missing(1, 0), ElementsAre("0<2:ratseg_copyGamma", "0<2:ratseg_copyLastToFirst"));
  EXPECT_THAT(missing(2, 1), ElementsAre("1<0:ratseg_copyLastToFirst"));
  EXPECT_THAT(missing(2, 0), ElementsAre("1<2:ratseg_copyGamma"));
  EXPECT_THAT(missing(0, 1),
              ElementsAre("2<0:computeSumU_sumKernel", "2<0:ratseg_copyFirstToLast"));
  EXPECT_THAT(missing(1, 2), ElementsAre("0<1:ratseg_copyFirstToLast"));
  EXPECT_THAT(missing(0, 2), ElementsAre("2<1:computeSumU_sumKernel"));
}

// Copies between devices are refused unless both ends lie on the devices named.
TEST(RatSegImplArguments, CopiesNameTheDevicesOfTheBandsNotTheBands) {
  SolverProblem p = randomProblem(5, 8, 3);
  std::vector<SolverResult> results;
  for (const std::vector<int>& gpu : {std::vector<int>{0, 1, 2}, {2, 0, 1}}) {
    const HostMachine machine(hostConfig(3, false));
    results.push_back(solve(p, gpu));
  }
  EXPECT_EQ(results[0].u, results[1].u);
  EXPECT_EQ(results[0].gamma, results[1].gamma);
}

TEST(RatSegImplArguments, SumsOutOfReachAreStagedBandByBand) {
  const HostMachine machine(hostConfig(3, false));
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
  std::fill_n(solver.sum_u_host, 6, -1.0f);
  solver.computeSumU__save_on_gpu0();
  EXPECT_EQ(std::vector<float>(solver.sum_u_host, solver.sum_u_host + 6),
            (std::vector<float>{6, 60, 2, 20, 3, 30}));
  solver.free();
}

// 800 pixels per band: more than the sum of which needs no scratch.
TEST(RatSegImplArguments, EachDeviceSumsWithItsOwnScratch) {
  const HostMachine machine(hostConfig(2));
  SolverProblem p = randomProblem(40, 40, 2);
  p.par.gpu = {1, 0};
  RatSegImpl solver(p.par);
  setUp(solver, p);
  solver.computeSumU__save_on_gpu0();
  for (int d = 0; d < 2; ++d) {
    const cudaarray<float>& scratch = solver.arrays[d].summator.temp1;
    EXPECT_TRUE(scratch.isAllocated()) << "band " << d;
    EXPECT_EQ(scratch.getDev(), solver.dev[d]) << "band " << d;
  }
  solver.free();
}

}  // namespace
}  // namespace namespace_ratseg
