#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "support/forwarding_backend.h"
#include "support/machine.h"
#include "util/sum.h"

// The summator's memory, and what happens without it.

namespace namespace_ratseg {
namespace {

class SumScratchTest : public testing::Test {
 protected:
  HostMachine machine_{hostConfig(1)};
  cuda_summator<float> summator_;
};

TEST_F(SumScratchTest, StartsWithoutScratch) {
  EXPECT_EQ(summator_.n_saved, 0u);
  EXPECT_FALSE(summator_.temp1.isAllocated());
  EXPECT_FALSE(summator_.temp2.isAllocated());
  EXPECT_FALSE(summator_.tempSum.isAllocated());
  EXPECT_FALSE(summator_.debug);
  EXPECT_FALSE(summator_.check);
}

TEST_F(SumScratchTest, HasAPartialSumPer256Elements) {
  struct Case {
    std::size_t n, temp1, temp2;
  };
  for (const Case& c : {Case{1, 0, 0}, Case{256, 0, 0}, Case{257, 2, 0}, Case{65536, 256, 0},
                        Case{65537, 257, 2}, Case{200000, 782, 4}}) {
    summator_.freeTempArrays();
    summator_.allocTempArrays(c.n);
    EXPECT_EQ(summator_.n_saved, c.n);
    EXPECT_EQ(summator_.temp1.num, c.temp1) << c.n;
    EXPECT_EQ(summator_.temp2.num, c.temp2) << c.n;
  }
}

TEST_F(SumScratchTest, IsReusedForNoMoreElementsAndGrowsForMore) {
  const cudaarray<float> a(2000);
  summator_.sumup(a, 1000);
  const float* const temp1 = summator_.temp1.ptr;
  EXPECT_EQ(summator_.n_saved, 1000u);
  EXPECT_EQ(summator_.temp1.num, 4u);
  summator_.sumup(a, 600);
  summator_.sumup(a, 1000);
  EXPECT_EQ(summator_.n_saved, 1000u);
  EXPECT_EQ(summator_.temp1.ptr, temp1);
  EXPECT_EQ(summator_.temp1.num, 4u);
  summator_.sumup(a, 1001);
  EXPECT_EQ(summator_.n_saved, 1001u);
  summator_.sumup(a, 2000);
  EXPECT_EQ(summator_.temp1.num, 8u);
}

TEST_F(SumScratchTest, SmallSumsNeedNone) {
  const cudaarray<float> a(256);
  summator_.sumup(a, 256);
  EXPECT_FALSE(summator_.temp1.isAllocated());
  EXPECT_FALSE(summator_.temp2.isAllocated());
}

TEST_F(SumScratchTest, ScalarFormsAllocateTheirResultOnce) {
  const cudaarray<float> a(4);
  summator_.sumup(a, 4);
  ASSERT_EQ(summator_.tempSum.num, 1u);
  const float* const tempSum = summator_.tempSum.ptr;
  cudaarray<float> other(1);  // would take the place of a block given back
  summator_.sumup(a, 3);
  EXPECT_EQ(summator_.tempSum.ptr, tempSum);
}

TEST_F(SumScratchTest, CanBeFreedInParts) {
  constexpr std::size_t n = 100000;  // takes both scratch arrays
  const cudaarray<float> a(n);
  summator_.sumup(a, n);
  ASSERT_TRUE(summator_.temp1.isAllocated());
  ASSERT_TRUE(summator_.temp2.isAllocated());
  summator_.freeTempArrays();
  EXPECT_FALSE(summator_.temp1.isAllocated());
  EXPECT_FALSE(summator_.temp2.isAllocated());
  EXPECT_EQ(summator_.n_saved, 0u);
  EXPECT_TRUE(summator_.tempSum.isAllocated());
  summator_.freeTempSum();
  EXPECT_FALSE(summator_.tempSum.isAllocated());
  summator_.allocTempSum();
  EXPECT_EQ(summator_.tempSum.num, 1u);
  summator_.sumup(a, n);
  summator_.free();
  EXPECT_FALSE(summator_.temp1.isAllocated());
  EXPECT_FALSE(summator_.temp2.isAllocated());
  EXPECT_FALSE(summator_.tempSum.isAllocated());
  EXPECT_EQ(summator_.n_saved, 0u);
}

TEST_F(SumScratchTest, IsFreedByTheDestructor) {
  std::size_t before = 0;
  std::size_t after = 0;
  std::size_t total = 0;
  const cudaarray<float> a(200000);
  cudaMemGetInfo(&before, &total);
  { cuda_summator<float>().sumup(a, 200000); }
  cudaMemGetInfo(&after, &total);
  EXPECT_EQ(after, before);
}

TEST_F(SumScratchTest, IsPolymorphicWithFieldsInOrder) {
  EXPECT_TRUE(std::has_virtual_destructor_v<cuda_summator<float>>);
  const auto address = [](const auto& field) { return reinterpret_cast<std::uintptr_t>(&field); };
  const std::vector<std::uintptr_t> fields = {
      address(summator_.temp1),   address(summator_.temp2), address(summator_.tempSum),
      address(summator_.n_saved), address(summator_.sm),    address(summator_.debug),
      address(summator_.check)};
  EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end()));
}

// --- gaps of a pitched array ---

// Remembers the fills of rows, and does not do them.
class RowFills final : public ForwardingBackend {
 public:
  using ForwardingBackend::ForwardingBackend;
  cudaError_t memset2D(void* ptr, std::size_t pitch, int value, std::size_t width,
                       std::size_t height) override {
    fills.push_back({ptr, pitch, value, width, height});
    return cudaSuccess;
  }

  struct Fill {
    void* ptr;
    std::size_t pitch;
    int value;
    std::size_t width, height;
    bool operator==(const Fill&) const = default;
  };
  std::vector<Fill> fills;
};

TEST_F(SumScratchTest, GapsAreClearedInOneCallAndRowsWithoutGapsInNone) {
  RowFills fills(machine_.backend);
  cudaarray<float> a(40);
  cudaarray<float> sum(1);
  {
    // No rows: kernels cannot be launched on this backend.
    const BackendScope scope(fills);
    summator_.sumup(sum, a, 5, 0, 8 * sizeof(float));
    EXPECT_EQ(fills.fills, (std::vector<RowFills::Fill>{{a.ptr + 5, 32, 0, 12, 0}}));
    summator_.sumup(sum, a, 8, 0, 8 * sizeof(float));
    EXPECT_EQ(fills.fills.size(), 1u);
  }
}

// --- failures ---

// Of the memory of a machine, 1 MiB unless a test brings its own, all but some bytes are taken.
class SumFailureTest : public testing::Test {
 protected:
  void leave(std::size_t bytes) {
    std::size_t bytesFree = 0;
    std::size_t total = 0;
    cudaMemGetInfo(&bytesFree, &total);
    void* taken = nullptr;
    ASSERT_EQ(cudaMalloc(&taken, bytesFree - bytes), cudaSuccess);
  }

  HostMachine machine_{hostConfig(1, true, 1)};
  cuda_summator<float> summator_;
};

TEST_F(SumFailureTest, WithoutMemoryForScratchNothingIsWrittenAndTheErrorStays) {
  const cudaarray<float> a(100000);
  cudaarray<float> sum(1);
  const float seven = 7;
  sum.copyFromHost(&seven);
  leave(100);
  for (int attempt = 0; attempt < 2; ++attempt) {
    summator_.sumup(sum, a, 100000);
    EXPECT_EQ(cudaGetLastError(), cudaErrorMemoryAllocation) << attempt;
    EXPECT_EQ(sum.get(0), 7);
  }
}

TEST_F(SumFailureTest, WithoutMemoryForTheSecondScratchArrayToo) {
  const HostMachine machine(hostConfig(1, true, 2));
  const std::vector<float> ones(262145, 1.0f);
  cudaarray<float> a(ones.size());
  a.copyFromHost(ones.data());
  cudaarray<float> sum(1);
  cuda_summator<float> summator;
  leave(1025 * sizeof(float));  // of 1025 partial sums and then 5
  summator.sumup(sum, a, ones.size());
  EXPECT_EQ(cudaGetLastError(), cudaErrorMemoryAllocation);
  EXPECT_EQ(sum.get(0), 0);
}

TEST_F(SumFailureTest, WithoutMemoryForTheResultTheScalarFormIsZero) {
  cudaarray<float> a(4);
  const float ones[] = {1, 1, 1, 1};
  a.copyFromHost(ones);
  leave(0);
  EXPECT_EQ(summator_.sumup(a, 4), 0);
  EXPECT_EQ(summator_.sumup(a, 2, 2, 8), 0);
  EXPECT_EQ(cudaGetLastError(), cudaErrorMemoryAllocation);
}

TEST_F(SumFailureTest, RefusedLaunchLeavesTheErrorPending) {
  HostConfig config = hostConfig(1);
  config.properties.push_back(defaultHostProperties());
  config.properties[0].maxThreadsPerBlock = 128;
  const HostMachine machine(config);
  cuda_summator<float> summator;
  const cudaarray<float> a(512);
  EXPECT_EQ(summator.sumup(a, 256), 0);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
  summator.sumup(a, 512);
  EXPECT_EQ(cudaGetLastError(), cudaErrorInvalidConfiguration);
}

}  // namespace
}  // namespace namespace_ratseg
