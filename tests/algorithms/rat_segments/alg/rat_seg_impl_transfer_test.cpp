// Data in, start of the iteration, results out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg_impl.h"
#include "device/runtime.h"
#include "support/forwarding_backend.h"
#include "support/machine.h"
#include "support/solver_problem.h"
#include "util/cudadefs.h"

namespace namespace_ratseg {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

// 4 x 7 pixels, 3 labels, on three devices: bands of 3, 3 and 1 rows.
class TransferTest : public testing::Test {
 protected:
  static constexpr std::size_t w = 4, h = 7, n = 3, pixels = w * h;

  TransferTest() : machine_(hostConfig(3)), solver_(par_) {
    par_.w = w;
    par_.h = h;
    par_.n = n;
    par_.gpu = {0, 1, 2};
  }

  void SetUp() override { ASSERT_TRUE(solver_.alloc()); }
  void TearDown() override { solver_.free(); }

  static std::vector<float> counting(std::size_t count, float first = 1.0f) {
    std::vector<float> values(count);
    std::iota(values.begin(), values.end(), first);
    return values;
  }

  HostMachine machine_;
  Params par_;
  RatSegImpl solver_;
};

TEST_F(TransferTest, DatatermIsSplitIntoBandsAndComesBackWhole) {
  std::vector<float> rho = counting(pixels * n);
  solver_.setDataterm(rho.data());
  for (int d = 0; d < 3; ++d) {
    const gpudata& g = solver_.arrays[d];
    const std::vector<float> band = toHost(g.rho);
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t k = 0; k < g.NOmega; ++k) {
        ASSERT_EQ(band[i * g.NOmega + k], rho[i * pixels + w * g.ymin + k]);
      }
    }
  }
  std::vector<float> back(pixels * n);
  solver_.getDataterm(back.data());
  EXPECT_EQ(back, rho);
}

TEST_F(TransferTest, SolutionIsPutTogetherWithoutHaloRows) {
  for (int d = 0; d < 3; ++d) {
    gpudata& g = solver_.arrays[d];
    std::vector<float> u(g.NOffset, -1.0f);  // halo rows keep -1
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t k = 0; k < g.NOmega; ++k) {
        u[i * g.NOmegaOffset + k] = static_cast<float>(i * pixels + w * g.ymin + k);
      }
    }
    g.u.copyFromHost(u.data());
  }
  std::vector<float> u(pixels * n + 1, 77.0f);
  solver_.getSolution_smooth(u.data());
  for (std::size_t k = 0; k < pixels * n; ++k) ASSERT_EQ(u[k], static_cast<float>(k));
  EXPECT_EQ(u.back(), 77.0f) << "nothing is written behind the array";
}

TEST_F(TransferTest, HardSolutionTakesTheGreatestValueTheLowestLabelOnTies) {
  std::vector<float> u(pixels * n);
  const auto set = [&](std::size_t pixel, float a, float b, float c) {
    u[pixel] = a;
    u[pixels + pixel] = b;
    u[2 * pixels + pixel] = c;
  };
  set(0, 0.2f, 0.5f, 0.3f);
  set(1, 0.5f, 0.5f, 0.0f);
  set(2, 0.0f, 0.5f, 0.5f);
  set(3, 0.0f, 0.0f, 0.0f);
  set(4, -1.0f, -0.5f, 0.0f);
  set(5, 0.0f, 0.0f, 1e-30f);
  for (int d = 0; d < 3; ++d) {
    gpudata& g = solver_.arrays[d];
    std::vector<float> band(g.NOffset);
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t k = 0; k < g.NOmega; ++k) {
        band[i * g.NOmegaOffset + k] = u[i * pixels + w * g.ymin + k];
      }
    }
    g.u.copyFromHost(band.data());
  }
  std::vector<float> hard(pixels * n, 9.0f);
  solver_.getSolution(hard.data());
  const std::vector<std::size_t> expected = {1, 0, 1, 0, 0, 2};
  for (std::size_t pixel = 0; pixel < expected.size(); ++pixel) {
    for (std::size_t i = 0; i < n; ++i) {
      EXPECT_EQ(hard[i * pixels + pixel], i == expected[pixel] ? 1.0f : 0.0f)
          << "pixel " << pixel << " label " << i;
    }
  }
}

TEST_F(TransferTest, WeightIsSplitIntoBands) {
  std::vector<float> weight = counting(pixels);
  solver_.setWeight(weight.data());
  EXPECT_EQ(solver_.kind_weight, int{RatSegImpl::kind_weight_scalar});
  EXPECT_EQ(solver_.kind_weight, 1);
  for (int d = 0; d < 3; ++d) {
    const gpudata& g = solver_.arrays[d];
    const std::vector<float> expected(weight.begin() + static_cast<long>(w * g.ymin),
                                      weight.begin() + static_cast<long>(w * g.ymax));
    EXPECT_EQ(toHost(g.weight), expected);
  }
}

TEST_F(TransferTest, RatiosReachEveryDeviceWithBoundsOfThreeSigmas) {
  std::vector<float> ratios = {0.5f, 0.9f, 0.02f};
  std::vector<float> sigmas = {0.125f, 0.1f, 0.01f};
  solver_.setRatios(ratios.data(), sigmas.data(), 2, nullptr, nullptr);
  EXPECT_EQ(solver_.ind_bgr, 2u);
  for (int d = 0; d < 3; ++d) {
    const gpudata& g = solver_.arrays[d];
    EXPECT_EQ(toHost(g.ratios), ratios);
    EXPECT_EQ(toHost(g.sigmas), sigmas);
    EXPECT_EQ(toHost(g.mins), (std::vector<float>{0.125f, 0.9f - 3.0f * 0.1f, 0.0f}));
    EXPECT_EQ(toHost(g.maxs), (std::vector<float>{0.875f, 1.0f, 0.02f + 3.0f * 0.01f}));
  }
}

TEST_F(TransferTest, GivenBoundsAreTakenAsTheyAre) {
  std::vector<float> ratios = {0.5f, 0.5f, 0.0f};
  std::vector<float> sigmas = {0.1f, 0.1f, 0.0f};
  std::vector<float> mins = {-1.0f, 0.25f, 0.0f};
  std::vector<float> maxs = {3.0f, 0.75f, 0.0f};
  solver_.setRatios(ratios.data(), sigmas.data(), 0, mins.data(), nullptr);
  EXPECT_EQ(solver_.ind_bgr, 0u);
  for (int d = 0; d < 3; ++d) {
    EXPECT_EQ(toHost(solver_.arrays[d].mins), mins);
    EXPECT_EQ(toHost(solver_.arrays[d].maxs), (std::vector<float>{0.8f, 0.8f, 0.0f}));
  }
  solver_.setRatios(ratios.data(), sigmas.data(), 1, nullptr, maxs.data());
  const float low = 0.5f - 3.0f * 0.1f;
  EXPECT_EQ(solver_.ind_bgr, 1u);
  for (int d = 0; d < 3; ++d) {
    EXPECT_EQ(toHost(solver_.arrays[d].mins), std::vector<float>({low, low, 0.0f}));
    EXPECT_EQ(toHost(solver_.arrays[d].maxs), maxs);
  }
}

TEST_F(TransferTest, SigmasOfZeroGiveBoundsAtTheRatiosWithinZeroAndOne) {
  std::vector<float> ratios = {0.3f, 1.5f, -0.5f};
  std::vector<float> sigmas(3);
  solver_.setRatios(ratios.data(), sigmas.data(), 2, nullptr, nullptr);
  EXPECT_EQ(toHost(solver_.arrays[0].mins), (std::vector<float>{0.3f, 1.0f, 0.0f}));
  EXPECT_EQ(toHost(solver_.arrays[0].maxs), (std::vector<float>{0.3f, 1.0f, 0.0f}));
}

TEST_F(TransferTest, LocalSolutionIsTheLabelOfLeastCost) {
  std::vector<float> rho(pixels * n, 1.0f);
  const auto set = [&](std::size_t pixel, float a, float b, float c) {
    rho[pixel] = a;
    rho[pixels + pixel] = b;
    rho[2 * pixels + pixel] = c;
  };
  set(0, 3, 2, 1);
  set(1, 1, 1, 1);
  set(2, 5, 4, 4);
  set(3, FLT_MAX, FLT_MAX, FLT_MAX);
  set(4, FLT_MAX, 7, FLT_MAX);
  set(5, 0, 0, -FLT_MAX);
  set(pixels - 1, 2, 1, 3);  // last band
  solver_.setDataterm(rho.data());
  std::vector<float> u(pixels * n);
  solver_.getSolution_smooth(u.data());
  const auto labelOf = [&](std::size_t pixel) {
    int label = -1;
    for (std::size_t i = 0; i < n; ++i) {
      if (u[i * pixels + pixel] == 1.0f) label = static_cast<int>(i);
    }
    return label;
  };
  EXPECT_EQ(labelOf(0), 2);
  EXPECT_EQ(labelOf(1), 0);
  EXPECT_EQ(labelOf(2), 1);
  EXPECT_EQ(labelOf(3), 0);
  EXPECT_EQ(labelOf(4), 1);
  EXPECT_EQ(labelOf(5), 2);
  EXPECT_EQ(labelOf(pixels - 1), 1);
  EXPECT_EQ(std::accumulate(u.begin(), u.end(), 0.0f), static_cast<float>(pixels));
  for (int d = 0; d < 3; ++d) {
    EXPECT_EQ(toHost(solver_.arrays[d].u_bar), std::vector<float>(solver_.arrays[d].NOffset))
        << "u_bar keeps its zeros";
  }
}

TEST_F(TransferTest, WithoutInitLocalSolutionTheLabelingStartsAtZero) {
  par_.initLocalSolution = false;
  std::vector<float> rho = counting(pixels * n);
  gpudata& g = solver_.arrays[1];
  const std::vector<float> ones(g.NOffset, 1.0f);
  g.u.copyFromHost(ones.data());
  g.u_bar.copyFromHost(ones.data());
  solver_.setDataterm(rho.data());
  EXPECT_EQ(toHost(g.u), std::vector<float>(g.NOffset)) << "halo rows included";
  EXPECT_EQ(toHost(g.u_bar), std::vector<float>(g.NOffset));
}

TEST_F(TransferTest, LocalSolutionLeavesUBarAlone) {
  gpudata& g = solver_.arrays[0];
  const std::vector<float> marks(g.NOffset, 0.5f);
  g.u_bar.copyFromHost(marks.data());
  std::vector<float> rho = counting(pixels * n);
  solver_.setDataterm(rho.data());
  EXPECT_EQ(toHost(g.u_bar), marks);
}

TEST_F(TransferTest, ReinitResetsTheIterationAndKeepsTheData) {
  std::vector<float> rho = counting(pixels * n);
  std::vector<float> weight = counting(pixels);
  std::vector<float> ratios = {0.5f, 0.5f, 0.0f};
  std::vector<float> sigmas = {0.1f, 0.1f, 0.0f};
  solver_.setDataterm(rho.data());
  solver_.setWeight(weight.data());
  solver_.setRatios(ratios.data(), sigmas.data(), 2, nullptr, nullptr);
  par_.Nsteps = 3;
  solver_.run();
  solver_.reinit();
  for (int d = 0; d < 3; ++d) {
    const gpudata& g = solver_.arrays[d];
    for (const auto* array : {&g.a, &g.a_bar, &g.gamma, &g.sum_u, &g.alpha, &g.beta}) {
      EXPECT_EQ(toHost(*array), std::vector<float>(n));
    }
    EXPECT_EQ(toHost(g.u_bar), std::vector<float>(g.NOffset));
    std::vector<float2> p(g.NOffset);
    g.p.copyToHost(p.data());
    for (const float2& q : p) ASSERT_TRUE(q.x == 0.0f && q.y == 0.0f);
    EXPECT_EQ(toHost(g.ratios), ratios);
    EXPECT_EQ(toHost(g.weight).front(), weight[w * g.ymin]);
  }
  std::vector<float> u(pixels * n);
  solver_.getSolution_smooth(u.data());
  for (std::size_t k = 0; k < pixels; ++k) ASSERT_EQ(u[k], 1.0f) << "label 0 is the cheapest";
  std::vector<float> back(pixels * n);
  solver_.getDataterm(back.data());
  EXPECT_EQ(back, rho);
}

TEST_F(TransferTest, ScribblesGiveTheSameDatatermOnAnyBands) {
  std::vector<float4> image(pixels);
  for (std::size_t k = 0; k < pixels; ++k) {
    const float v = static_cast<float>(k % 9) / 8.0f;
    image[k] = {v, 1.0f - v, 0.5f * v, 1.0f};
  }
  std::vector<float4> first = {{0, 0.9f, 0, 1}, {0.1f, 0.9f, 0, 1}};
  std::vector<float4> second = {{1, 0, 0.5f, 1}};
  float4* scribbles[] = {first.data(), second.data(), nullptr};
  std::size_t counts[] = {2, 1, 0};
  const auto datatermOn = [&](std::vector<int> gpu) {
    Params par = par_;
    par.gpu = std::move(gpu);
    RatSegImpl solver(par);
    EXPECT_TRUE(solver.alloc());
    solver.setDataterm(image.data(), scribbles, counts, 5.0f, 10.0f);
    std::vector<float> rho(pixels * n);
    solver.getDataterm(rho.data());
    solver.free();
    return rho;
  };
  const std::vector<float> rho = datatermOn({0});
  EXPECT_EQ(datatermOn({0, 1, 2}), rho);
  for (std::size_t k = 0; k < pixels; ++k) EXPECT_EQ(rho[2 * pixels + k], 10.0f);
  EXPECT_LT(*std::min_element(rho.begin(), rho.begin() + pixels), 5.0f);
}

TEST_F(TransferTest, ScribbleFormStartsTheLabeling) {
  std::vector<float4> image(pixels, float4{0.2f, 0.4f, 0.6f, 1});
  float4* scribbles[] = {nullptr, image.data(), nullptr};
  std::size_t counts[] = {0, 1, 0};
  solver_.setDataterm(image.data(), scribbles, counts, 5.0f, 10.0f);
  std::vector<float> u(pixels * n);
  solver_.getSolution_smooth(u.data());
  for (std::size_t k = 0; k < pixels; ++k) ASSERT_EQ(u[pixels + k], 1.0f);
}

TEST_F(TransferTest, ScribbleFormStartsAtZeroWithoutInitLocalSolution) {
  par_.initLocalSolution = false;
  for (int d = 0; d < 3; ++d) {
    const std::vector<float> ones(solver_.arrays[d].NOffset, 1.0f);
    solver_.arrays[d].u.copyFromHost(ones.data());
    solver_.arrays[d].u_bar.copyFromHost(ones.data());
  }
  std::vector<float4> image(pixels);
  float4* scribbles[] = {nullptr, image.data(), nullptr};
  std::size_t counts[] = {0, 1, 0};
  solver_.setDataterm(image.data(), scribbles, counts, 5.0f, 10.0f);
  for (int d = 0; d < 3; ++d) {
    const gpudata& g = solver_.arrays[d];
    EXPECT_EQ(toHost(g.u), std::vector<float>(g.NOffset)) << "band " << d;
    EXPECT_EQ(toHost(g.u_bar), std::vector<float>(g.NOffset)) << "band " << d;
  }
}

// Grey of 0.02 has L = 903.292 * 0.02 / 12.92 = 1.3983, black 0; both have a = b = 0.
TEST_F(TransferTest, ScribbleCostsFollowTheirColoursSigmaAndThr) {
  const float4 black = {0, 0, 0, 1};
  const float4 grey = {0.02f, 0.02f, 0.02f, 1};
  const float4 white = {1, 1, 1, 1};
  std::vector<float4> image(pixels, black);
  image[pixels - 1] = grey;  // last band
  std::vector<float4> first = {grey};
  std::vector<float4> second = {black, white};
  std::vector<float4> third = {white};
  float4* scribbles[] = {first.data(), second.data(), third.data()};
  std::size_t counts[] = {1, 2, 1};
  solver_.setDataterm(image.data(), scribbles, counts, 0.5f, 7.0f);
  std::vector<float> rho(pixels * n);
  solver_.getDataterm(rho.data());
  const float far = 1.3983f * 1.3983f / (2 * 0.5f * 0.5f);
  const float half = 0.693147f;  // one of two scribbles fits
  for (std::size_t k = 0; k < pixels; ++k) {
    const bool isGrey = k == pixels - 1;
    EXPECT_NEAR(rho[k], isGrey ? 0.0f : far, 1e-3f) << k;
    EXPECT_NEAR(rho[pixels + k], isGrey ? far + half : half, 1e-3f) << k;
    EXPECT_EQ(rho[2 * pixels + k], 7.0f) << k;
  }
}

// The calls of transfer on a solver whose bands of 3, 3 and 1 rows are on devices 2, 0 and 1, with
// the floats that they move.
template <class Transfer>
std::vector<std::string> callsOnMixedDevices(Transfer&& transfer) {
  HostMachine machine(hostConfig(3));
  Params par;
  par.w = 4;
  par.h = 7;
  par.n = 2;
  par.gpu = {2, 0, 1};
  RatSegImpl solver(par);
  EXPECT_TRUE(solver.alloc());
  std::vector<std::string> calls;
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    calls.push_back(std::to_string(call.device) + ":" +
                    (call.bytes > 0 ? std::to_string(call.bytes / sizeof(float)) : call.name));
  });
  std::vector<float> values(4 * 7 * 2);
  transfer(solver, values.data());
  machine.backend.setObserver({});
  solver.free();
  return calls;
}

TEST(TransferDevices, AreThoseOfTheBandsInOrder) {
  using testing::ElementsAre;
  EXPECT_THAT(
      callsOnMixedDevices([](RatSegImpl& s, float* v) { s.setDataterm(v); }),
      ElementsAre("2:12", "2:12", "0:12", "0:12", "1:4", "1:4", "2:ratseg_setLocalSolution_kernel",
                  "0:ratseg_setLocalSolution_kernel", "1:ratseg_setLocalSolution_kernel"));
  EXPECT_THAT(callsOnMixedDevices([](RatSegImpl& s, float* v) { s.getDataterm(v); }),
              ElementsAre("2:12", "2:12", "0:12", "0:12", "1:4", "1:4"));
  EXPECT_THAT(callsOnMixedDevices([](RatSegImpl& s, float* v) { s.getSolution(v); }),
              ElementsAre("2:12", "2:12", "0:12", "0:12", "1:4", "1:4"));
  EXPECT_THAT(callsOnMixedDevices([](RatSegImpl& s, float* v) { s.setWeight(v); }),
              ElementsAre("2:12", "0:12", "1:4"));
  EXPECT_THAT(
      callsOnMixedDevices([](RatSegImpl& s, float* v) { s.setRatios(v, v, 1, nullptr, nullptr); }),
      ElementsAre("2:2", "2:2", "2:2", "2:2", "0:2", "0:2", "0:2", "0:2", "1:2", "1:2", "1:2",
                  "1:2"));
}

// Images first; then, label after label, the colours to all devices and one launch on each.
TEST_F(TransferTest, ScribblesGoToAllDevicesLabelByLabel) {
  std::vector<float4> image(pixels, float4{0.2f, 0.4f, 0.6f, 1});
  float4* scribbles[] = {image.data(), nullptr, image.data()};
  std::size_t counts[] = {2, 0, 5};
  std::vector<std::string> calls;
  machine_.backend.setObserver([&](const HostBackend::Call& call) {
    std::ostringstream text;
    text << call.device << ":" << call.name;
    if (call.bytes > 0) text << " " << call.bytes / sizeof(float4);
    calls.push_back(text.str());
  });
  solver_.setDataterm(image.data(), scribbles, counts, 5.0f, 10.0f);
  machine_.backend.setObserver({});
  std::vector<std::string> expected = {"0:cudaMemcpy 12", "1:cudaMemcpy 12", "2:cudaMemcpy 4"};
  const auto onEach = [&](const std::string& name) {
    for (int d = 0; d < 3; ++d) expected.push_back(std::to_string(d) + ":" + name);
  };
  onEach("cudaMemcpy 2");
  onEach("ratseg_setdataterm_scribbles");
  onEach("ratseg_setdataterm_scribbles");
  onEach("cudaMemcpy 5");
  onEach("ratseg_setdataterm_scribbles");
  onEach("ratseg_setLocalSolution_kernel");
  EXPECT_EQ(calls, expected);
}

TEST_F(TransferTest, KernelsAreLaunchedOverTheBandsPixels) {
  par_.threadsx = 3;  // of the next allocation
  RatSegImpl solver(par_);
  ASSERT_TRUE(solver.alloc());
  std::vector<LaunchShape> shapes;
  machine_.backend.setObserver([&](const HostBackend::Call& call) {
    if (call.name.rfind("ratseg_", 0) == 0) shapes.push_back(call.shape);
  });
  std::vector<float4> image(pixels);
  float4* scribbles[] = {image.data(), image.data(), image.data()};
  std::size_t counts[] = {1, 1, 1};
  solver.setDataterm(image.data(), scribbles, counts, 5.0f, 10.0f);
  machine_.backend.setObserver({});
  ASSERT_EQ(shapes.size(), 12u);
  for (std::size_t k = 0; k < shapes.size(); ++k) {
    EXPECT_EQ(shapes[k].block.x, 3u);
    EXPECT_EQ(shapes[k].block.y, 2u);
    EXPECT_EQ(shapes[k].grid.x, 2u);
    EXPECT_EQ(shapes[k].grid.y, k % 3 < 2 ? 2u : 1u) << "bands of 3, 3 and 1 rows";
    EXPECT_EQ(shapes[k].sharedBytes, 0u);
  }
  solver.free();
}

// Between two calls there is a check of the first and, where the device changes, one of selecting
// the second's.
TEST_F(TransferTest, EveryCallIsFollowedByACheck) {
  int device = -1;
  int calls = 0;
  int last = lastcalls_pos;
  const auto checksSince = [&] {
    const int checks = (lastcalls_pos - last + kLastCalls) % kLastCalls;
    last = lastcalls_pos;
    return checks;
  };
  machine_.backend.setObserver([&](const HostBackend::Call& call) {
    const int checks = checksSince();
    if (calls > 0) {
      EXPECT_GE(checks, call.device != device ? 2 : 1) << "before call " << calls;
    }
    device = call.device;
    ++calls;
  });
  std::vector<float4> image(pixels);
  float4* scribbles[] = {image.data(), image.data(), image.data()};
  std::size_t counts[] = {1, 1, 1};
  std::vector<float> values = counting(pixels * n);
  const auto lastCallIsChecked = [&] {
    EXPECT_GE(checksSince(), 1);
    EXPECT_GT(calls, 0);
    calls = 0;
  };
  solver_.setDataterm(image.data(), scribbles, counts, 5.0f, 10.0f);
  lastCallIsChecked();
  solver_.setDataterm(values.data());
  lastCallIsChecked();
  solver_.getDataterm(values.data());
  lastCallIsChecked();
  solver_.setRatios(values.data(), values.data(), 2, nullptr, nullptr);
  lastCallIsChecked();
  solver_.setWeight(values.data());
  lastCallIsChecked();
  solver_.getSolution_smooth(values.data());
  lastCallIsChecked();
  machine_.backend.setObserver({});
  for (const auto& [file, line] : lastcalls) {
    EXPECT_EQ(file, "src/algorithms/rat_segments/alg/rat_seg_impl");
  }
}

constexpr const char* kNoDestination =
    "ERROR: (cudaarray.copyFromHost(T*)): destination array not allocated\n";

TEST_F(TransferTest, RatiosSkipArraysThatAreNotAllocatedAndSaySo) {
  std::vector<float> ratios = {0.5f, 0.5f, 0.0f};
  std::vector<float> sigmas = {0.1f, 0.2f, 0.0f};
  solver_.arrays[1].sigmas.free();
  CaptureStderr();
  solver_.setRatios(ratios.data(), sigmas.data(), 2, nullptr, nullptr);
  EXPECT_EQ(GetCapturedStderr(), kNoDestination);
  EXPECT_EQ(toHost(solver_.arrays[1].ratios), ratios);
  EXPECT_FALSE(solver_.arrays[1].sigmas.isAllocated());
  EXPECT_EQ(toHost(solver_.arrays[2].sigmas), sigmas);
}

TEST_F(TransferTest, WeightSkipsArraysThatAreNotAllocatedAndSaysSo) {
  std::vector<float> weight = counting(pixels);
  solver_.arrays[0].weight.free();
  CaptureStderr();
  solver_.setWeight(weight.data());
  EXPECT_EQ(GetCapturedStderr(), kNoDestination);
  EXPECT_EQ(toHost(solver_.arrays[2].weight), std::vector<float>(weight.end() - 4, weight.end()));
}

TEST_F(TransferTest, DatatermSkipsArraysThatAreNotAllocatedAndSaysSo) {
  par_.initLocalSolution = false;  // which needs the data term
  std::vector<float> rho = counting(pixels * n);
  solver_.arrays[1].rho.free();
  CaptureStderr();
  solver_.setDataterm(rho.data());
  std::string perLabel;
  for (std::size_t i = 0; i < n; ++i) perLabel += kNoDestination;
  EXPECT_EQ(GetCapturedStderr(), perLabel);
  EXPECT_FALSE(solver_.arrays[1].rho.isAllocated());
  const std::vector<float> last = toHost(solver_.arrays[2].rho);
  for (std::size_t i = 0; i < n; ++i) EXPECT_EQ(last[i * w], rho[i * pixels + 6 * w]);
}

TEST_F(TransferTest, ScribblesSkipArraysThatAreNotAllocatedAndSaySo) {
  std::vector<float4> image(pixels);
  float4* scribbles[] = {nullptr, nullptr, nullptr};
  std::size_t counts[] = {0, 0, 0};  // so that no colour is read
  solver_.arrays[1].image.free();
  CaptureStderr();
  solver_.setDataterm(image.data(), scribbles, counts, 5.0f, 10.0f);
  EXPECT_EQ(GetCapturedStderr(), kNoDestination);
  solver_.arrays[2].scribbles.free();
  CaptureStderr();
  solver_.setDataterm(image.data(), scribbles, counts, 5.0f, 7.0f);
  std::string expected = kNoDestination;
  for (std::size_t i = 0; i < n; ++i) expected += kNoDestination;
  EXPECT_EQ(GetCapturedStderr(), expected);
  std::vector<float> rho(pixels * n);
  solver_.getDataterm(rho.data());
  EXPECT_EQ(rho, std::vector<float>(pixels * n, 7.0f));
}

// Remembers what is filled, in order, and the place of the ring of checks at the time.
class Fills final : public ForwardingBackend {
 public:
  using ForwardingBackend::ForwardingBackend;
  cudaError_t memset(void* ptr, int value, std::size_t bytes) override {
    filled.push_back(ptr);
    checks.push_back(lastcalls_pos);
    return ForwardingBackend::memset(ptr, value, bytes);
  }
  std::vector<void*> filled;
  std::vector<int> checks;
};

TEST_F(TransferTest, ReinitFillsTheIterationsArraysInOrder) {
  par_.initLocalSolution = false;  // kernels cannot be launched on the forwarding backend
  std::vector<void*> expected;
  for (int d = 0; d < 3; ++d) {
    const gpudata& g = solver_.arrays[d];
    for (void* array :
         {static_cast<void*>(g.u.ptr), static_cast<void*>(g.u_bar.ptr), static_cast<void*>(g.p.ptr),
          static_cast<void*>(g.a.ptr), static_cast<void*>(g.a_bar.ptr),
          static_cast<void*>(g.gamma.ptr), static_cast<void*>(g.sum_u.ptr),
          static_cast<void*>(g.alpha.ptr), static_cast<void*>(g.beta.ptr)}) {
      expected.push_back(array);
    }
  }
  Fills fills(machine_.backend);
  const BackendScope scope(fills);
  solver_.reinit();
  EXPECT_EQ(fills.filled, expected);
  fills.filled.clear();
  solver_.setZeroSolution();
  EXPECT_EQ(fills.filled, (std::vector<void*>{expected[0], expected[1], expected[9], expected[10],
                                              expected[18], expected[19]}));
}

// Between two fills there is a check of the first and, where the device changes, one of selecting
// the second's.
TEST_F(TransferTest, EveryFillIsFollowedByACheck) {
  par_.initLocalSolution = false;
  Fills fills(machine_.backend);
  const BackendScope scope(fills);
  const auto expectChecks = [&](std::size_t perDevice) {
    ASSERT_EQ(fills.checks.size(), 3 * perDevice);
    fills.checks.push_back(lastcalls_pos);
    for (std::size_t k = 1; k <= 3 * perDevice; ++k) {
      const bool sameDevice = k % perDevice != 0 || k == 3 * perDevice;
      const int checks = (fills.checks[k] - fills.checks[k - 1] + kLastCalls) % kLastCalls;
      EXPECT_EQ(checks, sameDevice ? 1 : 2) << "after fill " << k;
    }
    fills.checks.clear();
  };
  solver_.reinit();
  expectChecks(9);
  solver_.setZeroSolution();
  expectChecks(2);
}

TEST_F(TransferTest, ReinitAndZeroSolutionSkipArraysThatAreNotAllocated) {
  par_.initLocalSolution = false;
  gpudata& g = solver_.arrays[1];
  g.u_bar.free();
  g.gamma.free();
  const std::vector<float> ones(n, 1.0f);
  g.beta.copyFromHost(ones.data());
  gpudata& none = solver_.arrays[2];
  none.p.free();
  for (auto* array : {&none.u, &none.u_bar, &none.a, &none.a_bar, &none.gamma, &none.sum_u,
                      &none.alpha, &none.beta}) {
    array->free();
  }
  CaptureStdout();
  CaptureStderr();
  solver_.reinit();
  solver_.setZeroSolution();
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_FALSE(g.u_bar.isAllocated());
  EXPECT_FALSE(none.p.isAllocated());
  EXPECT_EQ(toHost(g.beta), std::vector<float>(n));
  EXPECT_EQ(cudaPeekAtLastError(), cudaSuccess);
}

TEST_F(TransferTest, GetSolutionOverwritesEveryLabelOfEveryPixel) {
  std::vector<float> rho = counting(pixels * n);
  solver_.setDataterm(rho.data());
  std::vector<float> hard(pixels * n + 1, 77.0f);
  solver_.getSolution(hard.data());
  for (std::size_t k = 0; k < pixels * n; ++k) ASSERT_EQ(hard[k], k < pixels ? 1.0f : 0.0f);
  EXPECT_EQ(hard.back(), 77.0f);
}

TEST(TransferBeforeAlloc, SettersSayThatAllocMustComeFirst) {
  const HostMachine machine;
  Params par;
  RatSegImpl solver(par);
  const auto said = [](auto&& call) {
    CaptureStdout();
    call();
    return GetCapturedStdout();
  };
  float value = 3.0f;
  EXPECT_EQ(said([&] { solver.setDataterm(&value); }),
            "ERROR (setDataterm()): Must call alloc() first\n");
  // The getter says the setter's name.
  EXPECT_EQ(said([&] { solver.getDataterm(&value); }),
            "ERROR (setDataterm()): Must call alloc() first\n");
  EXPECT_EQ(said([&] { solver.setRatios(&value, &value, 5, nullptr, nullptr); }),
            "ERROR (setRatios()): Must call alloc() first\n");
  EXPECT_EQ(said([&] { solver.setWeight(&value); }),
            "ERROR (setWeight()): Must call alloc() first\n");
  EXPECT_EQ(value, 3.0f);
  EXPECT_EQ(solver.ind_bgr, 0u);
  EXPECT_EQ(solver.kind_weight, int{RatSegImpl::kind_weight_none});
}

TEST(TransferBeforeAlloc, TheOthersDoNothing) {
  const HostMachine machine;
  Params par;
  par.w = par.h = 2;
  par.n = 1;
  RatSegImpl solver(par);
  CaptureStdout();
  std::vector<float> u(4, 0.5f);
  solver.getSolution_smooth(u.data());
  EXPECT_EQ(u, std::vector<float>(4, 0.5f));
  solver.setLocalSolution();
  solver.setZeroSolution();
  solver.reinit();
  std::vector<float4> image(4);
  float4* scribbles[] = {image.data()};
  std::size_t counts[] = {1};
  solver.setDataterm(image.data(), scribbles, counts, 5.0f, 10.0f);
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(cudaPeekAtLastError(), cudaSuccess);
}

}  // namespace
}  // namespace namespace_ratseg
