#include "util/sum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "support/machine.h"

// Sums on every device, for both element types.

namespace namespace_ratseg {
namespace {

template <class T>
cudaarray<T> onDevice(const std::vector<T>& host) {
  cudaarray<T> a(host.size());
  if (!host.empty()) a.copyFromHost(host.data());
  return a;
}

// Small whole numbers, whose sums are exact in any order.
template <class T>
std::vector<T> wholeNumbers(std::size_t n) {
  std::vector<T> values(n);
  for (std::size_t i = 0; i < n; ++i) values[i] = static_cast<T>((i * 7 + 3) % 11) - T(5);
  return values;
}

template <class T>
std::vector<T> randomNumbers(std::size_t n) {
  std::mt19937 random(42);
  std::vector<T> values(n);
  for (T& value : values) value = static_cast<T>(random()) / static_cast<T>(1u << 31) - T(0.5);
  return values;
}

template <class T>
T exactSum(const std::vector<T>& values) {
  double sum = 0;
  for (const T value : values) sum += static_cast<double>(value);
  return static_cast<T>(sum);
}

// The sum of the first n elements of values as the kernels with shared memory add it up: every
// thread of a warp adds in every step, what it reads from the next warp included.
template <class T>
std::vector<T> onePass(const std::vector<T>& values, int threads) {
  const auto N = static_cast<std::size_t>(threads);
  const std::size_t n = values.size();
  std::vector<T> sums((n + 2 * N - 1) / (2 * N));
  for (std::size_t b = 0; b < sums.size(); ++b) {
    std::vector<T> slot(N + std::min<std::size_t>(N / 2, 16));
    for (std::size_t t = 0; t < N; ++t) {
      const std::size_t i = b * N + t;
      slot[t] = (2 * i < n ? values[2 * i] : T(0)) + (2 * i + 1 < n ? values[2 * i + 1] : T(0));
    }
    for (std::size_t step = std::min<std::size_t>(N / 2, 16); step > 0; step /= 2) {
      const std::vector<T> before = slot;
      for (std::size_t t = 0; t < N; ++t) slot[t] = before[t] + before[t + step];
    }
    sums[b] = slot[0];
    for (std::size_t first = 32; first < N; first += 32) sums[b] += slot[first];
  }
  return sums;
}

template <class T>
T sumInOrder(std::vector<T> values) {
  while (values.size() > 4) {
    const std::size_t n = values.size();
    const int threads = n <= 8     ? 4
                        : n <= 16  ? 8
                        : n <= 32  ? 16
                        : n <= 512 ? static_cast<int>((n + 63) / 64 * 32)
                                   : 256;
    values = onePass(values, threads);
  }
  T sum = values[0];
  for (std::size_t i = 1; i < values.size(); ++i) sum += values[i];
  return sum;
}

// Sizes on both sides of every change of kernel, and some of several passes.
constexpr std::array kSizes = {1,   2,    3,    4,    5,     7,     8,      9,      16,    17,
                               32,  33,   64,   65,   128,   129,   192,    193,    256,   257,
                               320, 321,  384,  385,  448,   449,   511,    512,    513,   514,
                               997, 1024, 1025, 2049, 65536, 65537, 262144, 262145, 300001};

template <class T>
class SumTest : public DeviceTest {
 protected:
  void TearDown() override {
    if (!IsSkipped()) {
      EXPECT_EQ(cudaGetLastError(), cudaSuccess);
    }
  }
};
using Elements = testing::Types<float, double>;
TYPED_TEST_SUITE(SumTest, Elements);

TYPED_TEST(SumTest, SumsEverySizeExactlyWhereTheOrderDoesNotMatter) {
  cuda_summator<TypeParam> summator;
  for (const int size : kSizes) {
    const auto values = wholeNumbers<TypeParam>(static_cast<std::size_t>(size));
    const cudaarray<TypeParam> a = onDevice(values);
    EXPECT_EQ(summator.sumup(a, values.size()), exactSum(values)) << size;
  }
}

TYPED_TEST(SumTest, KernelsWithSharedMemoryDoTheSame) {
  cuda_summator<TypeParam> summator;
  summator.sm = 20;
  for (const int size : kSizes) {
    const auto values = wholeNumbers<TypeParam>(static_cast<std::size_t>(size));
    const cudaarray<TypeParam> a = onDevice(values);
    EXPECT_EQ(summator.sumup(a, values.size()), exactSum(values)) << size;
  }
}

TYPED_TEST(SumTest, AddsInTheOrderOfTheWarpSteps) {
  cuda_summator<TypeParam> summator;
  summator.sm = 20;
  for (const int size : kSizes) {
    const auto values = randomNumbers<TypeParam>(static_cast<std::size_t>(size));
    const cudaarray<TypeParam> a = onDevice(values);
    EXPECT_EQ(summator.sumup(a, values.size()), sumInOrder(values)) << size;
  }
}

TYPED_TEST(SumTest, ShufflesRoundNoWorse) {
  cuda_summator<TypeParam> summator;
  for (const int size : kSizes) {
    const auto values = randomNumbers<TypeParam>(static_cast<std::size_t>(size));
    const cudaarray<TypeParam> a = onDevice(values);
    double bound = 0;
    for (const TypeParam value : values) bound += std::abs(static_cast<double>(value));
    bound *= 16.0 * static_cast<double>(std::numeric_limits<TypeParam>::epsilon());
    EXPECT_NEAR(static_cast<double>(summator.sumup(a, values.size())),
                static_cast<double>(exactSum(values)), bound)
        << size;
  }
}

TYPED_TEST(SumTest, SumsTheFirstElementsOnly) {
  cuda_summator<TypeParam> summator;
  for (const int size : kSizes) {
    auto values = wholeNumbers<TypeParam>(static_cast<std::size_t>(size));
    const TypeParam expected = exactSum(values);
    values.push_back(TypeParam(1e6));
    values.push_back(TypeParam(1e6));
    const cudaarray<TypeParam> a = onDevice(values);
    EXPECT_EQ(summator.sumup(a, static_cast<std::size_t>(size)), expected) << size;
  }
}

TYPED_TEST(SumTest, WritesOneElementOfDeviceMemoryAndNotItsInput) {
  const auto values = wholeNumbers<TypeParam>(1000);
  const cudaarray<TypeParam> a = onDevice(values);
  cudaarray<TypeParam> sum = onDevice(std::vector<TypeParam>{7, 7, 7});
  cuda_summator<TypeParam> summator;
  summator.sumup(sum.get_ptr() + 1, a, 1000);
  EXPECT_EQ(sum.get(0), 7);
  EXPECT_EQ(sum.get(1), exactSum(values));
  EXPECT_EQ(sum.get(2), 7);
  std::vector<TypeParam> after(1000);
  a.copyToHost(after.data());
  EXPECT_EQ(after, values);
}

TYPED_TEST(SumTest, NothingSumsToZero) {
  const cudaarray<TypeParam> a(1);
  cudaarray<TypeParam> sum = onDevice(std::vector<TypeParam>{7});
  cuda_summator<TypeParam> summator;
  summator.sumup(sum, a, 0);
  EXPECT_EQ(sum.get(0), 0);
  EXPECT_EQ(summator.sumup(a, 0), 0);
}

TYPED_TEST(SumTest, InfinityIsKept) {
  std::vector<TypeParam> values(600, TypeParam(1));
  values[599] = std::numeric_limits<TypeParam>::infinity();
  cuda_summator<TypeParam> summator;
  EXPECT_EQ(summator.sumup(onDevice(values), 600), std::numeric_limits<TypeParam>::infinity());
}

TYPED_TEST(SumTest, PitchedSumZeroesTheBytesBehindEachRow) {
  constexpr int w = 5;
  constexpr int h = 37;
  constexpr std::size_t perRow = 8;
  const auto values = wholeNumbers<TypeParam>(perRow * h);
  std::vector<TypeParam> expected = values;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (i % perRow >= w) expected[i] = 0;
  }
  cudaarray<TypeParam> a = onDevice(values);
  cudaarray<TypeParam> sum(1);
  cuda_summator<TypeParam> summator;
  summator.sumup(sum, a, w, h, perRow * sizeof(TypeParam));
  EXPECT_EQ(sum.get(0), exactSum(expected));
  std::vector<TypeParam> after(values.size());
  a.copyToHost(after.data());
  EXPECT_EQ(after, expected);

  a.copyFromHost(values.data());
  EXPECT_EQ(summator.sumup(a, w, h, perRow * sizeof(TypeParam)), exactSum(expected));
  a.copyToHost(after.data());
  EXPECT_EQ(after, expected);
}

TYPED_TEST(SumTest, RowsWithoutGapsAreSummedAsTheyAre) {
  const auto values = wholeNumbers<TypeParam>(6 * 7);
  cudaarray<TypeParam> a = onDevice(values);
  cuda_summator<TypeParam> summator;
  EXPECT_EQ(summator.sumup(a, 6, 7, 6 * sizeof(TypeParam)), exactSum(values));
}

TYPED_TEST(SumTest, RowsThatDoNotFitThePitchAreReported) {
  cudaarray<TypeParam> a(16);
  cudaarray<TypeParam> sum = onDevice(std::vector<TypeParam>{7});
  cuda_summator<TypeParam> summator;
  testing::internal::CaptureStderr();
  summator.sumup(sum, a, 4, 2, 2);
  summator.sumup(sum, a, -4, 2, 32);
  summator.sumup(sum, a, 4, -2, 32);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: (cuda_summator.sumup): 2 rows of 4 elements don't fit into a pitch of 2 bytes\n"
            "ERROR: (cuda_summator.sumup): 2 rows of -4 elements don't fit into a pitch of 32 "
            "bytes\n"
            "ERROR: (cuda_summator.sumup): -2 rows of 4 elements don't fit into a pitch of 32 "
            "bytes\n");
  EXPECT_EQ(sum.get(0), 7);
}

TYPED_TEST(SumTest, SameInputGivesSameBits) {
  const auto values = randomNumbers<TypeParam>(100003);
  const cudaarray<TypeParam> a = onDevice(values);
  cuda_summator<TypeParam> one;
  cuda_summator<TypeParam> other;
  other.sumup(cudaarray<TypeParam>(500000), 500000);
  EXPECT_EQ(one.sumup(a, values.size()), other.sumup(a, values.size()));
}

}  // namespace
}  // namespace namespace_ratseg
