// The threads of a kernel: who runs, in which order, and what waits and shuffles do.

#include "threads.h"

#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "kernels.h"

namespace namespace_ratseg {

// The dynamic shared memory has its name in this namespace (shared_memory.cpp).
static float* sharedFloats() {
  extern __shared__ double dynamic_shared[];
  return reinterpret_cast<float*>(dynamic_shared);
}

}  // namespace namespace_ratseg

namespace emulated_gpu {
namespace {

using namespace_ratseg::sharedFloats;

unsigned numberInBlock() {
  return (threadIdx.z * blockDim.y + threadIdx.y) * blockDim.x + threadIdx.x;
}

unsigned numberOfBlock() { return (blockIdx.z * gridDim.y + blockIdx.y) * gridDim.x + blockIdx.x; }

class ThreadsTest : public EmulatedTest {};

// ---- Who runs

void countRuns(unsigned* runs) {
  const unsigned threads = blockDim.x * blockDim.y * blockDim.z;
  atomicAdd(runs + numberOfBlock() * threads + numberInBlock(), 1u);
}

TEST_F(ThreadsTest, EveryThreadOfEveryBlockRunsOnce) {
  const Shape shapes[] = {{1, 1},    {1, 1024},           {7, 33},
                          {12, 257}, {{5, 3, 2}, {5, 3}}, {{2, 3, 7}, {3, 5, 7}}};
  for (const Shape& s : shapes) {
    const std::size_t n =
        std::size_t{s.grid.x} * s.grid.y * s.grid.z * s.block.x * s.block.y * s.block.z;
    const Array<unsigned> runs(n, 0);
    ASSERT_EQ(launch(countRuns, s, runs.get()), cudaSuccess);
    EXPECT_EQ(runs.toHost(), std::vector<unsigned>(n, 1));
  }
}

void noteOrder(unsigned* order, unsigned* next) { order[atomicAdd(next, 1u)] = blockIdx.x; }

TEST_F(ThreadsTest, BlocksComeInAnOrderThatChanges) {
  const auto orders = valuesOf([] {
    const Array<unsigned> order(5);
    const Array<unsigned> next(1, 0);
    launch(noteOrder, {5, 1}, order.get(), next.get());
    return order.toHost();
  });
  EXPECT_GE(orders.size(), 5u);
}

void noteThreads(unsigned* order, unsigned* next) { order[atomicAdd(next, 1u)] = threadIdx.x; }

TEST_F(ThreadsTest, ThreadsComeInAnOrderThatChanges) {
  const auto orders = valuesOf([] {
    const Array<unsigned> order(64);
    const Array<unsigned> next(1, 0);
    launch(noteThreads, {1, 64}, order.get(), next.get());
    return order.toHost();
  });
  EXPECT_GE(orders.size(), 5u);
}

TEST_F(ThreadsTest, AnyWarpMayBeTheFirst) {
  const auto first = valuesOf([] {
    const Array<unsigned> order(96);
    const Array<unsigned> next(1, 0);
    launch(noteThreads, {1, 96}, order.get(), next.get());
    return order.first() / 32;
  });
  EXPECT_EQ(first, std::set<unsigned>({0, 1, 2}));
}

void increase(unsigned* all, float* sum, unsigned* turns) {
  atomicAdd(all, 2u);
  atomicAdd(sum, 0.5f);
  atomicInc(turns, 6);
}

TEST_F(ThreadsTest, AtomicsLoseNothingAndCountersTurnOver) {
  const Array<unsigned> all(1, 1);
  const Array<float> sum(1, 0);
  const Array<unsigned> turns(1, 0);
  ASSERT_EQ(launch(increase, {3, 100}, all.get(), sum.get(), turns.get()), cudaSuccess);
  EXPECT_EQ(all.first(), 601u);
  EXPECT_EQ(sum.first(), 150.0f);
  EXPECT_EQ(turns.first(), 300u % 7);
}

// ---- Waiting for the block

template <bool WAITS>
void reverse(float* a) {
  __shared__ float values[128];
  values[threadIdx.x] = a[threadIdx.x];
  if (WAITS) __syncthreads();
  a[threadIdx.x] = values[blockDim.x - 1 - threadIdx.x];
}

template <bool WAITS>
bool isReversed() {
  std::vector<float> numbers(128);
  std::iota(numbers.begin(), numbers.end(), 0.0f);
  const Array<float> a(128);
  cudaMemcpy(a.get(), numbers.data(), 128 * sizeof(float), cudaMemcpyHostToDevice);
  launch(reverse<WAITS>, {1, 128}, a.get());
  return a.toHost() == std::vector<float>(numbers.rbegin(), numbers.rend());
}

TEST_F(ThreadsTest, SharedMemoryThatIsWaitedForIsThere) {
  EXPECT_EQ(valuesOf(isReversed<true>), std::set<bool>({true}));
}

TEST_F(ThreadsTest, SharedMemoryThatIsNotWaitedForIsNotThere) {
  EXPECT_EQ(valuesOf(isReversed<false>), std::set<bool>({false}));
}

// Each thread reads its neighbour's value and then writes its own: a second wait keeps the two
// apart.
template <bool WAITS>
void rotate(int* a) {
  __shared__ int values[64];
  values[threadIdx.x] = static_cast<int>(threadIdx.x);
  for (int k = 0; k < 3; ++k) {
    __syncthreads();
    const int next = values[(threadIdx.x + 1) % blockDim.x];
    if (WAITS) __syncthreads();
    values[threadIdx.x] = next;
  }
  a[threadIdx.x] = values[threadIdx.x];
}

template <bool WAITS>
bool isRotated() {
  const Array<int> a(64);
  launch(rotate<WAITS>, {1, 64}, a.get());
  std::vector<int> expected(64);
  for (int k = 0; k < 64; ++k) expected[static_cast<std::size_t>(k)] = (k + 3) % 64;
  return a.toHost() == expected;
}

TEST_F(ThreadsTest, ValuesThatOthersStillReadMustNotBeOverwritten) {
  EXPECT_EQ(valuesOf(isRotated<true>), std::set<bool>({true}));
  EXPECT_TRUE(valuesOf(isRotated<false>).contains(false));
}

template <bool WAITS>
void giveToNextLane(int* a) {
  __shared__ int values[32];
  values[threadIdx.x] = static_cast<int>(threadIdx.x);
  if (WAITS) __syncwarp();
  a[threadIdx.x] = values[(threadIdx.x + 1) % 32];
}

template <bool WAITS>
bool isGiven() {
  const Array<int> a(32);
  launch(giveToNextLane<WAITS>, {1, 32}, a.get());
  std::vector<int> expected(32);
  for (int k = 0; k < 32; ++k) expected[static_cast<std::size_t>(k)] = (k + 1) % 32;
  return a.toHost() == expected;
}

TEST_F(ThreadsTest, LanesDoNotRunInLockstep) {
  EXPECT_EQ(valuesOf(isGiven<true>), std::set<bool>({true}));
  EXPECT_TRUE(valuesOf(isGiven<false>).contains(false));
}

void waitUnlessLast() {
  if (threadIdx.x == blockDim.x - 1) return;
  __syncthreads();
}

TEST_F(ThreadsTest, BlockThatWaitsForAnEndedThreadIsAFault) {
  EXPECT_FAULT(finish(launch(waitUnlessLast, {1, 33})),
               "emulated GPU: a block waits for a thread that has ended, .*threads_test.cpp:[0-9]+ "
               "\\(block 0 0 0 of 1 1 1\\)");
}

void waitInTwoPlaces() {
  if (threadIdx.x < 40) {
    __syncthreads();
  } else {
    __syncthreads();
  }
}

TEST_F(ThreadsTest, BlockThatWaitsInTwoPlacesIsAFault) {
  EXPECT_FAULT(finish(launch(waitInTwoPlaces, {1, 64})),
               "a block waits in two places, .*threads_test.cpp:[0-9]+ and .*:[0-9]+");
}

void waitInTwoWays() {
  if (threadIdx.x < 16) {
    __syncthreads();
  } else {
    __syncwarp();
  }
}

TEST_F(ThreadsTest, WaitForABlockAndForAWarpAtOnceIsAFault) {
  EXPECT_FAULT(finish(launch(waitInTwoWays, {1, 32})), "wait for each other in different ways");
}

// ---- Shuffles

template <class T>
void shuffleDown(T* a, unsigned mask, unsigned delta, int width) {
  a[threadIdx.x] = __shfl_down_sync(mask, static_cast<T>(threadIdx.x + 1), delta, width);
}

template <class T>
void shuffleUp(T* a, unsigned mask, unsigned delta, int width) {
  a[threadIdx.x] = __shfl_up_sync(mask, static_cast<T>(threadIdx.x + 1), delta, width);
}

template <class T>
void expectShuffles(unsigned threads) {
  for (int width = 1; width <= static_cast<int>(threads); width *= 2) {
    for (unsigned delta = 0; delta < 32; ++delta) {
      const Array<T> a(threads);
      const unsigned mask = threads == 32 ? kAllLanes : (1u << threads) - 1;
      ASSERT_EQ(launch(shuffleDown<T>, {1, threads}, a.get(), mask, delta, width), cudaSuccess);
      const std::vector<T> found = a.toHost();
      ASSERT_EQ(launch(shuffleUp<T>, {1, threads}, a.get(), mask, delta, width), cudaSuccess);
      const std::vector<T> foundUp = a.toHost();
      const unsigned w = static_cast<unsigned>(width);
      for (unsigned k = 0; k < threads; ++k) {
        const unsigned from = k % w + delta < w ? k + delta : k;
        ASSERT_EQ(found[k], static_cast<T>(from + 1)) << k << " " << delta << " of " << width;
        const unsigned fromUp = k % w >= delta ? k - delta : k;
        ASSERT_EQ(foundUp[k], static_cast<T>(fromUp + 1)) << k << " " << delta << " of " << width;
      }
    }
  }
}

TEST_F(ThreadsTest, ShufflesReadTheLaneThatFarAwayOrTheirOwn) {
  expectShuffles<float>(32);
  expectShuffles<double>(32);
  expectShuffles<std::uint64_t>(16);
  expectShuffles<int>(8);
}

void shuffleCrosswise(int* a, unsigned mask, int other) {
  a[threadIdx.x] = __shfl_xor_sync(mask, static_cast<int>(threadIdx.x), other);
}

TEST_F(ThreadsTest, CrosswiseShufflesReadTheOtherLane) {
  for (const int other : {0, 1, 7, 16, 31}) {
    const Array<int> a(32);
    ASSERT_EQ(launch(shuffleCrosswise, {1, 32}, a.get(), kAllLanes, other), cudaSuccess);
    const std::vector<int> found = a.toHost();
    for (int k = 0; k < 32; ++k) EXPECT_EQ(found[static_cast<std::size_t>(k)], k ^ other);
  }
  const Array<int> a(32);
  EXPECT_FAULT(finish(launch(shuffleCrosswise, {1, 32}, a.get(), kAllLanes, 32)), "beyond 31");
  EXPECT_FAULT(finish(launch(shuffleCrosswise, {1, 16}, a.get(), 0xffffu, 16)), "outside its mask");
}

void shuffleInBlock(unsigned* a) {
  const unsigned k = numberInBlock();
  const unsigned inWarp = blockDim.x * blockDim.y * blockDim.z - k / 32 * 32;
  a[k] = __shfl_down_sync(inWarp >= 32 ? kAllLanes : (1u << inWarp) - 1, k, 1, 8);
}

TEST_F(ThreadsTest, WarpsAreNumberedAlongXAndTheLastMayBePartOfOne) {
  const Array<unsigned> a(72);
  ASSERT_EQ(launch(shuffleInBlock, {1, {3, 4, 6}}, a.get()), cudaSuccess);
  const std::vector<unsigned> found = a.toHost();
  for (unsigned k = 0; k < 72; ++k) EXPECT_EQ(found[k], k % 8 < 7 ? k + 1 : k);
}

void shuffleInHalves(int* a) {
  const int own = static_cast<int>(threadIdx.x);
  if (threadIdx.x < 16) {
    a[threadIdx.x] = __shfl_down_sync(0xffffu, own, 8, 16);
  } else if (threadIdx.x < 24) {
    a[threadIdx.x] = own;  // ends; nobody names it
  } else {
    a[threadIdx.x] = __shfl_down_sync(0xff000000u, own, 4, 8);
  }
}

TEST_F(ThreadsTest, PartsOfAWarpShuffleOnTheirOwn) {
  const Array<int> a(32);
  ASSERT_EQ(launch(shuffleInHalves, {1, 32}, a.get()), cudaSuccess);
  const std::vector<int> found = a.toHost();
  for (int k = 0; k < 32; ++k) {
    const int above = k < 16 ? (k < 8 ? 8 : 0) : (k >= 24 && k < 28 ? 4 : 0);
    EXPECT_EQ(found[static_cast<std::size_t>(k)], k + above);
  }
}

void shuffleWithout(unsigned mask, unsigned ends) {
  if (threadIdx.x == ends) return;
  __shfl_down_sync(mask, 1.0f, 1);
}

TEST_F(ThreadsTest, ShuffleWithALaneThatDoesNotExistIsAFault) {
  EXPECT_FAULT(finish(launch(shuffleWithout, {1, 16}, kAllLanes, 99u)),
               "names a lane that the block does not have");
}

TEST_F(ThreadsTest, ShuffleWithALaneThatHasEndedIsAFault) {
  EXPECT_FAULT(finish(launch(shuffleWithout, {1, 32}, kAllLanes, 7u)), "a lane that has ended");
}

TEST_F(ThreadsTest, ShuffleByALaneOutsideItsMaskIsAFault) {
  EXPECT_FAULT(finish(launch(shuffleWithout, {1, 32}, 0xffffu, 99u)), "a mask that it is not in");
}

TEST_F(ThreadsTest, ShuffleFromALaneOutsideTheMaskIsAFault) {
  const Array<int> a(16);
  EXPECT_FAULT(finish(launch(shuffleDown<int>, {1, 16}, a.get(), 0xffffu, 8u, 32)),
               "reads a lane outside its mask");
}

void shuffleWithTwoMasks() { __shfl_down_sync(threadIdx.x < 16 ? kAllLanes : 0xffff0000u, 1, 1); }

TEST_F(ThreadsTest, LanesWhoseMasksDifferNeverMeet) {
  EXPECT_FAULT(finish(launch(shuffleWithTwoMasks, {1, 32})), "emulated GPU: ");
}

TEST_F(ThreadsTest, ShuffleOverAnOddWidthOrAWarpsLengthIsAFault) {
  const Array<int> a(32);
  EXPECT_FAULT(finish(launch(shuffleDown<int>, {1, 32}, a.get(), kAllLanes, 1u, 24)),
               "no power of two");
  EXPECT_FAULT(finish(launch(shuffleDown<int>, {1, 32}, a.get(), kAllLanes, 1u, 64)),
               "no power of two");
  EXPECT_FAULT(finish(launch(shuffleUp<int>, {1, 32}, a.get(), kAllLanes, 1u, 64)),
               "no power of two");
  EXPECT_FAULT(finish(launch(shuffleDown<int>, {1, 32}, a.get(), kAllLanes, 33u, 32)), "beyond 31");
  EXPECT_FAULT(finish(launch(shuffleUp<int>, {1, 32}, a.get(), kAllLanes, 33u, 32)), "beyond 31");
}

// ---- Shared memory

void lookAndLeave(float* a, unsigned n) {
  __shared__ float own[4];
  float* dynamic = sharedFloats();
  for (unsigned k = 0; k < 4; ++k) a[blockIdx.x * (n + 4) + k] = own[k];
  for (unsigned k = 0; k < n; ++k) a[blockIdx.x * (n + 4) + 4 + k] = dynamic[k];
  for (unsigned k = 0; k < 4; ++k) own[k] = 1;
  for (unsigned k = 0; k < n; ++k) dynamic[k] = 2;
}

TEST_F(ThreadsTest, SharedMemoryHoldsNothingOfTheBlockBefore) {
  const Array<float> a(3 * 20, 0.0f);
  ASSERT_EQ(launch(lookAndLeave, {3, 1, 16 * sizeof(float)}, a.get(), 16u), cudaSuccess);
  for (const float x : a.toHost()) EXPECT_TRUE(std::isnan(x));
}

void writeShared(unsigned k) { sharedFloats()[k] = 1; }

TEST_F(ThreadsTest, WriteBehindTheDynamicSharedMemoryIsAFault) {
  finish(launch(writeShared, {1, 1, 64}, 15u));
  EXPECT_FAULT(finish(launch(writeShared, {1, 1, 64}, 16u)), "behind the dynamic shared memory");
  EXPECT_FAULT(finish(launch(writeShared, {1, 1}, 3u)), "behind the dynamic shared memory");
}

void writeStatic(unsigned k, float* a) {
  __shared__ float own[4];
  own[k] = 1;
  *a = own[k];
}

TEST_F(ThreadsTest, IndexBeyondAStaticSharedArrayEndsTheProgram) {
  const Array<float> a(1);
  finish(launch(writeStatic, {1, 1}, 3u, a.get()));
  EXPECT_DEATH(finish(launch(writeStatic, {1, 1}, 4u, a.get())), "threads_test.cpp.*out of bounds");
}

thread_local int hostsOwn = 4711;

TEST_F(ThreadsTest, VariablesOfTheHostsThreadSurviveALaunch) {
  hostsOwn += 1;
  const Array<float> a(1);
  finish(launch(writeStatic, {2, 1}, 3u, a.get()));
  EXPECT_EQ(hostsOwn, 4712);
}

}  // namespace
}  // namespace emulated_gpu
