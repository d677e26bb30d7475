#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>
#include <unistd.h>

#include <ostream>
#include <string>
#include <vector>

#include "support/machine.h"
#include "util/cudadefs.h"
#include "util/sum.h"

// How sums are made: kernels and their shapes, checks and reports.

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;

const char* const kPlain = "cuda_sum_kernel__plainloop";
const char* const kShared = "cuda_sum_kernel__warpFirst";
const char* const kShuffle = "cuda_sum_kernel__warpFirst_shfl";

struct Launch {
  std::string kernel;
  unsigned threads = 0;
  unsigned blocks = 0;
  std::size_t sharedBytes = 0;

  bool operator==(const Launch&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Launch& launch) {
  return out << launch.kernel << " threads " << launch.threads << " blocks " << launch.blocks
             << " shared " << launch.sharedBytes;
}

HostConfig capability(int major) {
  HostConfig config = hostConfig(1);
  config.properties.push_back(defaultHostProperties());
  config.properties[0].major = major;
  return config;
}

// The launches of a sum of n elements on a device of the capability major.0.
template <class T>
std::vector<Launch> launches(std::size_t n, int major = 3) {
  HostMachine machine(capability(major));
  cuda_summator<T> summator;
  const cudaarray<T> a(n);
  cudaarray<T> sum(1);
  std::vector<Launch> seen;
  machine.backend.setObserver([&](const HostBackend::Call& call) {
    EXPECT_EQ(call.shape.grid.y * call.shape.grid.z * call.shape.block.y * call.shape.block.z, 1u);
    seen.push_back({call.name, call.shape.block.x, call.shape.grid.x, call.shape.sharedBytes});
  });
  summator.sumup(sum, a, n);
  return seen;
}

TEST(SumLaunches, UpToFourElementsAreOneThread) {
  for (std::size_t n = 1; n <= 4; ++n) {
    EXPECT_THAT(launches<float>(n), ElementsAre(Launch{kPlain, 1, 1, 0}));
    EXPECT_THAT(launches<double>(n), ElementsAre(Launch{kPlain, 1, 1, 0}));
  }
}

struct Row {
  std::size_t first, last;  // numbers of elements
  unsigned threads;
  std::size_t shared, shuffle;  // bytes of shared memory for float
};
const Row kRows[] = {
    {5, 8, 4, 24, 0},         {9, 16, 8, 48, 0},         {17, 32, 16, 96, 0},
    {33, 64, 32, 192, 0},     {65, 128, 64, 320, 8},     {129, 192, 96, 448, 12},
    {193, 256, 128, 576, 16}, {257, 320, 160, 704, 20},  {321, 384, 192, 832, 24},
    {385, 448, 224, 960, 28}, {449, 512, 256, 1088, 32},
};

TEST(SumLaunches, BlocksAreJustLargeEnough) {
  for (const Row& row : kRows) {
    for (const std::size_t n : {row.first, row.last}) {
      EXPECT_THAT(launches<float>(n), ElementsAre(Launch{kShuffle, row.threads, 1, row.shuffle}));
      EXPECT_THAT(launches<float>(n, 2), ElementsAre(Launch{kShared, row.threads, 1, row.shared}));
      EXPECT_THAT(launches<double>(n),
                  ElementsAre(Launch{kShared, row.threads, 1, 2 * row.shared}));
      EXPECT_THAT(launches<double>(n, 2),
                  ElementsAre(Launch{kShared, row.threads, 1, 2 * row.shared}));
    }
  }
}

TEST(SumLaunches, MoreThan512ElementsTakeSeveralPasses) {
  EXPECT_THAT(launches<float>(513),
              ElementsAre(Launch{kShuffle, 256, 2, 32}, Launch{kPlain, 1, 1, 0}));
  EXPECT_THAT(launches<float>(513, 2),
              ElementsAre(Launch{kShared, 256, 2, 1088}, Launch{kPlain, 1, 1, 0}));
  EXPECT_THAT(launches<double>(2561),
              ElementsAre(Launch{kShared, 256, 6, 2176}, Launch{kShared, 4, 1, 48}));
  EXPECT_THAT(launches<float>(262144),
              ElementsAre(Launch{kShuffle, 256, 512, 32}, Launch{kShuffle, 256, 1, 32}));
  EXPECT_THAT(launches<float>(262145),
              ElementsAre(Launch{kShuffle, 256, 513, 32}, Launch{kShuffle, 256, 2, 32},
                          Launch{kPlain, 1, 1, 0}));
}

TEST(SumLaunches, KernelIsChosenByTheCapabilityAtConstruction) {
  const HostMachine older(capability(2));
  EXPECT_EQ(cuda_summator<float>().sm, 20);
  const HostMachine newer(capability(9));
  EXPECT_EQ(cuda_summator<float>().sm, 30);
}

// --- threads of the host ---

TEST(SumOnTheHost, DoesNotDependOnTheNumberOfThreads) {
  const HostMachine machine(hostConfig(1));
  std::vector<float> values(100003);
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = 1.0f / static_cast<float>(i + 1);
  }
  cudaarray<float> a(values.size());
  a.copyFromHost(values.data());
  cuda_summator<float> summator;
  const int before = omp_get_max_threads();
  omp_set_num_threads(1);
  const float alone = summator.sumup(a, values.size());
  omp_set_num_threads(3);
  EXPECT_EQ(summator.sumup(a, values.size()), alone);
  omp_set_num_threads(before);
}

// --- checks ---

// The lines of src/util/sum that checks passed while run ran.
template <class F>
std::vector<unsigned long> checkedLines(F run) {
  const int first = lastcalls_pos;
  run();
  std::vector<unsigned long> lines;
  for (int i = first; i != lastcalls_pos; i = (i + 1) % kLastCalls) {
    EXPECT_EQ(lastcalls[i].first, "src/util/sum");
    lines.push_back(lastcalls[i].second);
  }
  return lines;
}

TEST(SumChecks, CheckEachLaunchAndScratchArrayWhenAskedTo) {
  const HostMachine machine(hostConfig(1));
  cuda_summator<float> summator;
  const cudaarray<float> a(65537);
  cudaarray<float> sum(1);
  EXPECT_TRUE(checkedLines([&] { summator.sumup(sum, a, 65537); }).empty());
  summator.free();
  summator.check = true;
  EXPECT_THAT(checkedLines([&] { summator.sumup(sum, a, 1); }), ElementsAre(186));
  EXPECT_THAT(checkedLines([&] { summator.sumup(sum, a, 65537); }),
              ElementsAre(148, 153, testing::_, testing::_));
  EXPECT_THAT(checkedLines([&] { summator.sumup(sum, a, 513); }),
              ElementsAre(testing::_, testing::_));
  summator.sm = 20;
  EXPECT_THAT(checkedLines([&] { summator.sumup(sum, a, 513); }),
              ElementsAre(testing::_, testing::_));
}

TEST(SumChecksDeathTest, EndTheProcessOnARefusedLaunch) {
  HostConfig config = hostConfig(1);
  config.properties.push_back(defaultHostProperties());
  config.properties[0].maxThreadsPerBlock = 128;
  const HostMachine machine(config);
  EXPECT_EXIT(
      {
        dup2(2, 1);
        cuda_summator<float> summator;
        summator.check = true;
        const cudaarray<float> a(300);
        cudaarray<float> sum(1);
        summator.sumup(sum, a, 300);
      },
      testing::ExitedWithCode(1),
      testing::ContainsRegex("^\nsrc/util/sum, line [0-9]+: invalid configuration argument "
                             "\\(9\\)\n"));
}

TEST(SumChecksDeathTest, EndTheProcessWithoutMemoryForScratch) {
  const HostMachine machine(hostConfig(1, true, 1));
  EXPECT_EXIT(
      {
        dup2(2, 1);
        cuda_summator<float> summator;
        summator.check = true;
        summator.allocTempArrays(std::size_t{1} << 30);
      },
      testing::ExitedWithCode(1),
      testing::StartsWith("\nsrc/util/sum, line 148: out of memory (2)\n"));
}

// --- reports of the passes ---

std::string report(std::size_t n) {
  const HostMachine machine(hostConfig(1));
  cuda_summator<float> summator;
  summator.debug = true;
  const cudaarray<float> a(n);
  cudaarray<float> sum(1);
  testing::internal::CaptureStdout();
  summator.sumup(sum, a, n);
  return testing::internal::GetCapturedStdout();
}

TEST(SumDebug, TellsASinglePass) {
  EXPECT_EQ(report(1), "sum up 1 to final output\n  src=input array\n");
  EXPECT_EQ(report(512), "sum up 512 to final output\n  src=input array\n");
}

TEST(SumDebug, TellsEachPassWithItsArrays) {
  EXPECT_EQ(report(262145),
            "sum up 262145 to 513\n  src=input array\n  dst=temp1\n"
            "sum up 513 to 2\n  src=temp1\n  dst=temp2\n"
            "sum up 2 to final output\n  src=temp2\n");
}

// The device refuses all passes but the last: only their arrays are looked at.
TEST(SumDebug, ScratchArraysTakeTurns) {
  HostConfig config = capability(3);
  config.properties[0].maxThreadsPerBlock = 128;
  const HostMachine machine(config);
  cuda_summator<float> summator;
  summator.debug = true;
  const cudaarray<float> a(1);
  cudaarray<float> sum(1);
  testing::internal::CaptureStdout();
  summator.sumup(sum, a, (std::size_t{1} << 27) + 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "sum up 134217729 to 262145\n  src=input array\n  dst=temp1\n"
            "sum up 262145 to 513\n  src=temp1\n  dst=temp2\n"
            "sum up 513 to 2\n  src=temp2\n  dst=temp1\n"
            "sum up 2 to final output\n  src=temp1\n");
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidConfiguration);
}

TEST(SumDebug, ScalarFormTellsTheSame) {
  const HostMachine machine(hostConfig(1));
  cuda_summator<float> summator;
  summator.debug = true;
  const cudaarray<float> a(600);
  testing::internal::CaptureStdout();
  summator.sumup(a, 600);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "sum up 600 to 2\n  src=input array\n  dst=temp1\n"
            "sum up 2 to final output\n  src=temp1\n");
}

TEST(SumDebug, TellsNothingUnlessAskedTo) {
  const HostMachine machine(hostConfig(1));
  cuda_summator<float> summator;
  const cudaarray<float> a(600);
  testing::internal::CaptureStdout();
  summator.sumup(a, 600);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace namespace_ratseg
