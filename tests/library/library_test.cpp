#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "device/selection.h"
#include "ratseg/ratseg.hpp"
#include "util/imagetransforms.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

static_assert(std::is_move_constructible_v<ratseg::Solver> &&
              !std::is_copy_constructible_v<ratseg::Solver>);

// Noisy stripes, one of each label.
struct Problem {
  std::size_t labels = 3, rows = 24, columns = 31;
  std::vector<float> costs, weight;
  ratseg::Shares shares;

  explicit Problem(unsigned seed = 1, bool ofImage = false) {
    std::mt19937 generator(seed);
    const auto uniform = [&] { return static_cast<float>(generator() >> 8) * 0x1p-24f; };
    for (std::size_t i = 0; i < labels; ++i) {
      for (std::size_t p = 0; p < rows * columns; ++p) {
        const bool own = p % columns * labels / columns == i;
        costs.push_back((own ? 0.0f : 1.0f) + 1.5f * uniform());
      }
    }
    for (std::size_t p = 0; p < rows * columns; ++p) weight.push_back(0.2f + uniform());
    shares.of = ofImage ? ratseg::Shares::Of::image : ratseg::Shares::Of::foreground;
    shares.means = ofImage ? std::vector{0.3f, 0.3f, 0.4f} : std::vector{0.45f, 0.55f};
    shares.spreads.assign(shares.means.size(), 0.02f);
  }
  ratseg::Planes planes() const { return {costs.data(), labels, rows, columns}; }
  ratseg::Picture<float> weights() const { return {weight.data(), rows, columns}; }
};

ratseg::Settings settings() {
  ratseg::Settings s;
  s.iterations = 60;
  s.lambda = 0.7f;
  s.keepRelaxed = true;
  return s;
}

// The relaxed labeling by the solver's own interface; with a void plane where extra is above 0.
std::vector<float> solvedBelow(const Problem& p, const ratseg::Settings& s, float extra = 0) {
  using namespace namespace_ratseg;
  const ThreadBackendScope scope(hostBackend());
  RatSeg solver;
  Params& par = solver.getParams();
  par.w = p.columns;
  par.h = p.rows;
  par.n = p.labels + (extra > 0 ? 1 : 0);
  par.lambda = s.lambda;
  par.mu = s.mu;
  par.eps = s.epsilon;
  par.Nsteps = s.iterations;
  par.tolerance = s.tolerance;
  par.accelerate = s.accelerate;
  par.outModulo = 0;
  std::vector<float> rho = p.costs;
  rho.resize(par.n * p.rows * p.columns, extra);
  std::vector<float> means = p.shares.means, spreads = p.shares.spreads, weight = p.weight;
  means.push_back(0);
  spreads.push_back(0);
  EXPECT_TRUE(solver.alloc());
  solver.setRatios(means.data(), spreads.data(), par.n - 1, nullptr, nullptr);
  solver.setDataterm(rho.data());
  solver.setWeight(weight.data());
  solver.run();
  std::vector<float> u(rho.size());
  solver.getSolution_smooth(u.data());
  solver.free();
  u.resize(p.costs.size());
  return u;
}

class Library : public testing::Test {
 protected:
  Library() {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
  }
  // Nothing in the interface prints.
  ~Library() override {
    EXPECT_EQ(testing::internal::GetCapturedStdout(), said_);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  }
  std::string said_;
  const ratseg::Device host_ = ratseg::Device::host(2);
};

std::string fault(const std::function<void()>& call) {
  try {
    call();
  } catch (const ratseg::InvalidArgument& e) {
    EXPECT_EQ(std::string(e.what()),
              e.argument() + ": expected " + e.expected() + ", but found " + e.found());
    return e.what();
  }
  return "nothing was thrown";
}

TEST_F(Library, SolvesAsTheSolverBelowDoes) {
  said_ = "Using: 0\nGPU memory needed: 1 MB\n";  // of the solver below
  const Problem p;
  const ratseg::Result r = ratseg::segment(p.planes(), p.shares, settings(), p.weights(), host_);
  EXPECT_EQ(r.relaxed, solvedBelow(p, settings()));
  EXPECT_EQ(r.iterations, 60u);
  EXPECT_EQ(r.reason, ratseg::Stop::iterations);
  EXPECT_FALSE(r.certificate);
  EXPECT_TRUE(r.finite);
  EXPECT_EQ(r.device, host_);
  EXPECT_EQ(r.labels.size(), p.rows * p.columns);
  std::vector<double> counted(p.labels);
  for (std::size_t k = 0; k < r.labels.size(); ++k) {
    std::size_t best = 0;
    for (std::size_t i = 1; i < p.labels; ++i) {
      if (r.relaxed[i * r.labels.size() + k] > r.relaxed[best * r.labels.size() + k]) best = i;
    }
    ASSERT_EQ(r.labels[k], static_cast<int>(best)) << k;
    counted[best] += 1.0 / static_cast<double>(r.labels.size());
  }
  for (std::size_t i = 0; i < p.labels; ++i) EXPECT_NEAR(r.sharesOfImage[i], counted[i], 1e-12);
  ASSERT_EQ(r.sharesOfForeground.size(), 2u);
  EXPECT_NEAR(r.sharesOfForeground[0], counted[0] / (counted[0] + counted[1]), 1e-12);
}

TEST_F(Library, SharesOfTheImageHaveAVoidLabelThatNobodySees) {
  said_ = "Using: 0\nGPU memory needed: 1 MB\n";
  Problem p(2, true);
  p.costs[5] = FLT_MAX;
  p.costs[7] = 4.0f;  // the largest finite one
  const ratseg::Result r = ratseg::segment(p.planes(), p.shares, settings(), p.weights(), host_);
  EXPECT_EQ(r.relaxed, solvedBelow(p, settings(), 400.0f));
  EXPECT_TRUE(r.sharesOfForeground.empty());
  EXPECT_NEAR(r.sharesOfImage[0], 0.3, 0.05);
  for (const std::int32_t label : r.labels) EXPECT_LT(label, 3);
}

TEST_F(Library, ASolverRunsAgainFromTheStart) {
  const Problem p;
  ratseg::Solver solver(p.labels, p.rows, p.columns, p.shares, host_);
  solver.setCosts(p.planes());
  const ratseg::Result first = solver.run(settings());
  ratseg::Settings other = settings();
  other.lambda = 3;
  EXPECT_NE(solver.run(other).relaxed, first.relaxed);
  ratseg::Solver moved = std::move(solver);
  EXPECT_EQ(moved.run(settings()).relaxed, first.relaxed);
  ratseg::Shares shares = p.shares;
  shares.means = {0.2f, 0.8f};
  moved.setShares(shares);
  EXPECT_NE(moved.run(settings()).relaxed, first.relaxed);
}

TEST_F(Library, StopsAtTheTolerance) {
  const Problem p;
  ratseg::Settings s = settings();
  s.iterations = 5000;
  s.tolerance = 1e-3f;
  const ratseg::Result r = ratseg::segment(p.planes(), p.shares, s, {}, host_);
  EXPECT_EQ(r.reason, ratseg::Stop::tolerance);
  EXPECT_LT(r.iterations, 5000u);
  ASSERT_TRUE(r.certificate);
  EXPECT_LE(r.certificate->gap, 1e-3);
  EXPECT_EQ(r.certificate->iteration, r.iterations);
  EXPECT_LE(r.certificate->bound, r.certificate->energy);
}

TEST_F(Library, ProgressIsCalledAndMayStop) {
  const Problem p;
  ratseg::Settings s = settings();
  s.progressSeconds = 0;
  s.progressIterations = 10;
  std::vector<std::size_t> seen;
  std::vector<std::int32_t> last;
  s.progress = [&](const ratseg::Progress& progress) {
    seen.push_back(progress.iterations);
    EXPECT_EQ(progress.limit, 60u);
    last = progress.labels();
    return progress.iterations < 30;
  };
  const ratseg::Result stopped = ratseg::segment(p.planes(), p.shares, s, {}, host_);
  EXPECT_THAT(seen, ElementsAre(0, 10, 20, 30));
  EXPECT_EQ(stopped.reason, ratseg::Stop::asked);
  EXPECT_EQ(stopped.iterations, 30u);
  EXPECT_EQ(stopped.labels, last);
  // To have looked changes nothing.
  s.progress = [&](const ratseg::Progress& progress) { return !progress.labels().empty(); };
  EXPECT_EQ(ratseg::segment(p.planes(), p.shares, s, {}, host_).relaxed,
            ratseg::segment(p.planes(), p.shares, settings(), {}, host_).relaxed);
}

TEST_F(Library, WhatProgressThrowsComesThrough) {
  const Problem p;
  ratseg::Solver solver(p.labels, p.rows, p.columns, p.shares, host_);
  solver.setCosts(p.planes());
  ratseg::Settings s = settings();
  s.progress = [](const ratseg::Progress&) -> bool { throw std::domain_error("enough"); };
  EXPECT_THROW(solver.run(s), std::domain_error);
  EXPECT_EQ(solver.run(settings()).iterations, 60u);
}

TEST_F(Library, AStopThatIsAskedForBeforeTheRunIsNotLost) {
  const Problem p;
  std::stop_source source;
  source.request_stop();
  ratseg::Settings s = settings();
  s.stop = source.get_token();
  const ratseg::Result r = ratseg::segment(p.planes(), p.shares, s, {}, host_);
  EXPECT_EQ(r.reason, ratseg::Stop::asked);
  EXPECT_EQ(r.iterations, 0u);
  EXPECT_EQ(r.labels.size(), p.rows * p.columns);
}

TEST_F(Library, AnotherThreadStopsARun) {
  const Problem p;
  std::stop_source source;
  ratseg::Settings s = settings();
  s.iterations = std::size_t{1} << 40;
  s.stop = source.get_token();
  s.progress = [&source](const ratseg::Progress& progress) {
    if (progress.iterations > 0) source.request_stop();
    return true;
  };
  EXPECT_EQ(ratseg::segment(p.planes(), p.shares, s, {}, host_).reason, ratseg::Stop::asked);
}

TEST_F(Library, SolversOfSeveralThreadsComputeTheSameBytes) {
  std::vector<std::vector<float>> alone, together(4);
  for (unsigned k = 0; k < 4; ++k) {
    const Problem p(k);
    alone.push_back(ratseg::segment(p.planes(), p.shares, settings(), p.weights(), host_).relaxed);
  }
  std::vector<std::thread> threads;
  for (unsigned k = 0; k < 4; ++k) {
    threads.emplace_back([&together, k] {
      const Problem p(k);
      together[k] = ratseg::segment(p.planes(), p.shares, settings(), p.weights(),
                                    ratseg::Device::host(static_cast<int>(k % 2) + 1))
                        .relaxed;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(together, alone);
}

TEST_F(Library, NamesWhatCannotBeUsed) {
  const Problem p;
  const auto solve = [&](const ratseg::Planes& costs, const ratseg::Shares& shares,
                         const ratseg::Settings& s = {}, const ratseg::Picture<float>& w = {}) {
    return fault([&] { ratseg::segment(costs, shares, s, w, ratseg::Device::host()); });
  };
  const auto shares = [&](std::vector<float> means, std::vector<float> spreads) {
    return solve(p.planes(), {means, spreads, ratseg::Shares::Of::foreground});
  };
  const auto with = [&](auto change) {
    ratseg::Settings s;
    change(s);
    return solve(p.planes(), p.shares, s);
  };
  EXPECT_EQ(solve({nullptr, 3, 24, 31}, p.shares),
            "costs: expected an array, but found a null pointer");
  EXPECT_EQ(solve({p.costs.data(), 0, 24, 31}, p.shares),
            "size: expected at least one label, row and column, but found 0 labels, 24 rows and 31 "
            "columns");
  EXPECT_EQ(shares({0.5f}, {0.1f, 0.1f}),
            "shares.means: expected 2 numbers, one for each foreground label (all but the last), "
            "but found 1");
  EXPECT_EQ(shares({0.5f, 0.5f}, {0.1f}),
            "shares.spreads: expected 2 numbers, one for each foreground label (all but the last), "
            "but found 1");
  EXPECT_EQ(shares({0.5f, 1.5f}, {0.1f, 0.1f}),
            "shares.means: expected numbers from 0 to 1, but found 1.5 for label 1");
  EXPECT_EQ(shares({0.5f, NAN}, {0.1f, 0.1f}),
            "shares.means: expected numbers from 0 to 1, but found nan for label 1");
  EXPECT_EQ(shares({0.5f, 0.5f}, {0.1f, -0.1f}),
            "shares.spreads: expected numbers from 0 on, but found -0.1 for label 1");
  EXPECT_EQ(shares({0.4f, 0.4f}, {0.1f, 0.1f}),
            "shares.means: expected parts of the foreground that sum to 1, but found a sum of 0.8");
  EXPECT_EQ(with([](auto& s) { s.lambda = -1; }),
            "settings.lambda: expected a number from 0 on, but found -1");
  EXPECT_EQ(with([](auto& s) { s.mu = NAN; }), "settings.mu: expected a number, but found nan");
  EXPECT_EQ(with([](auto& s) { s.epsilon = 0; }),
            "settings.epsilon: expected a number above 0, but found 0");
  EXPECT_EQ(with([](auto& s) { s.tolerance = -1; }),
            "settings.tolerance: expected a number from 0 on, but found -1");
  EXPECT_EQ(solve(p.planes(), p.shares, {}, {p.weight.data(), 23, 31}),
            "weight: expected 24 rows x 31 columns, but found 23 rows x 31 columns");
  Problem bad;
  bad.weight[33] = -1;
  EXPECT_EQ(solve(bad.planes(), bad.shares, {}, bad.weights()),
            "weight: expected numbers from 0 on, but found -1 at row 1, column 2");
  bad.costs[24 * 31 + 31] = NAN;
  EXPECT_EQ(solve(bad.planes(), bad.shares),
            "costs: expected numbers, but found NaN at label 1, row 1, column 0");
  ratseg::Solver solver(3, 24, 31, p.shares, ratseg::Device::host());
  EXPECT_EQ(fault([&] { solver.run(); }),
            "costs: expected setCosts() before run(), but found none");
  EXPECT_EQ(fault([&] {
              solver.setCosts({p.costs.data(), 3, 31, 24});
            }),
            "costs: expected 3 labels x 24 rows x 31 columns, but found 3 labels x 31 rows x 24 "
            "columns");
}

TEST_F(Library, HostAndGpusAreListed) {
  const std::vector<ratseg::Device> all = ratseg::Device::list();
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(all.back().kind(), ratseg::Device::Kind::host);
  for (const ratseg::Device& device : all) {
    EXPECT_FALSE(device.name().empty());
    EXPECT_GT(device.memory(), 0u);
  }
  EXPECT_EQ(ratseg::Device::automatic().resolved(), all.front());
  EXPECT_EQ(ratseg::Device::host(1).name(), "Host (1 thread)");
  EXPECT_THROW(ratseg::Device::cuda(4711).resolved(), ratseg::DeviceError);
  EXPECT_THROW(ratseg::Device::host(-1).resolved(), ratseg::InvalidArgument);
}

TEST_F(Library, ScribblesAndEdgesAreThoseOfTheSolver) {
  said_ = "Using: 0\nGPU memory needed: 1 MB\n";
  const std::size_t rows = 9, columns = 7;
  std::vector<ratseg::Colour> image;
  std::vector<namespace_ratseg::float4> same;
  std::vector<std::uint8_t> marks(rows * columns);
  for (std::size_t k = 0; k < rows * columns; ++k) {
    const float x = static_cast<float>(k) / 63;
    image.push_back({x, 1 - x, x * x});
    same.push_back({x, 1 - x, x * x, 1});
  }
  marks[3] = 1;
  marks[50] = 2;
  marks[51] = 2;
  std::vector<float> expected(2 * rows * columns);
  {
    using namespace namespace_ratseg;
    const ThreadBackendScope scope(hostBackend());
    RatSeg solver;
    solver.getParams().w = columns;
    solver.getParams().h = rows;
    solver.getParams().n = 2;
    ASSERT_TRUE(solver.alloc());
    std::vector<float4> first = {same[3]}, second = {same[50], same[51]};
    float4* lists[] = {first.data(), second.data()};
    std::size_t counts[] = {1, 2};
    solver.setDataterm(same.data(), lists, counts, 5, 10);
    solver.getDataterm(expected.data());
    solver.free();
  }
  EXPECT_EQ(ratseg::scribbleCosts({image.data(), rows, columns}, {marks.data(), rows, columns}, 0,
                                  5, 10, host_),
            expected);
  float gamma = 5;
  const std::unique_ptr<float[]> weight(
      namespace_ratseg::ImageTransforms::computeWeight(same.data(), columns, rows, 1.0f, &gamma));
  const std::vector<float> own = ratseg::edgeWeight({image.data(), rows, columns});
  EXPECT_EQ(own, std::vector<float>(weight.get(), weight.get() + rows * columns));
  EXPECT_EQ(ratseg::edgeWeight({image.data(), rows, columns}, 0), std::vector<float>(63, 1.0f));
  marks.assign(63, 0);
  EXPECT_EQ(fault([&] {
              ratseg::scribbleCosts({image.data(), rows, columns}, {marks.data(), rows, columns});
            }),
            "marks: expected marked pixels, but found none");
}

// In a process whose host has 1 MiB.
TEST(LibraryMemory, WhatDoesNotFitIsAnError) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // the threads of other tests are not copied
  EXPECT_EXIT(
      {
        setenv("RATSEG_HOST_MEMORY", "1", 1);
        const Problem p;
        try {
          ratseg::Solver solver(3, 1000, 1000, p.shares, ratseg::Device::host(1));
        } catch (const ratseg::OutOfMemory& e) {
          std::exit(std::string(e.what()) ==
                            "not enough memory on Host (1 thread) for 3 labels and 1000 rows x "
                            "1000 columns"
                        ? 0
                        : 2);
        }
        std::exit(1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(LibraryVersion, IsThatOfTheProject) { EXPECT_STREQ(ratseg::version(), "0.1.0"); }

}  // namespace
