// Who may touch which memory, and what it holds.

#include "memory.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "kernels.h"

namespace emulated_gpu {
namespace {

constexpr std::size_t kPage = 4096;

class MemoryTest : public EmulatedTest {};

std::size_t placeInPage(const void* p) { return reinterpret_cast<std::uintptr_t>(p) % kPage; }

template <class T>
void write(T* a, std::size_t k, T value) {
  a[k] = value;
}

template <class T>
void copyOne(T* a, const T* b, std::size_t k) {
  *a = b[k];
}

// ---- What it holds

TEST_F(MemoryTest, NewMemoryIsNotANumber) {
  for (const std::size_t n :
       {std::size_t{1}, std::size_t{5}, std::size_t{1024}, std::size_t{5000}}) {
    const Array<float> a(n);
    for (const float x : a.toHost()) ASSERT_TRUE(std::isnan(x));
  }
}

TEST_F(MemoryTest, MemoryIsNewAgainAfterItWasFreed) {
  for (int k = 0; k < 3; ++k) {
    const Array<double> a(100);
    for (const double x : a.toHost()) ASSERT_TRUE(std::isnan(x));
    cudaMemset(a.get(), 0, 100 * sizeof(double));
  }
}

// ---- The host

TEST_F(MemoryTest, HostCannotTouchIt) {
  const Array<float> a(8, 1.0f);
  EXPECT_NO_ACCESS(*a.get() = 1);
  EXPECT_NO_ACCESS(if (*a.get() > 0) std::_Exit(0));
}

TEST_F(MemoryTest, HostCannotTouchItAfterWorkRanEither) {
  const Array<float> a(8, 1.0f);
  for (int k = 0; k < 1500; ++k) {  // more than may wait at a time
    ASSERT_EQ(launch(write<float>, {1, 1}, a.get(), std::size_t{0}, 2.0f), cudaSuccess);
  }
  EXPECT_NO_ACCESS(*a.get() = 1);
  cudaDeviceSynchronize();
  EXPECT_NO_ACCESS(*a.get() = 1);
}

struct Argument {
  char before = 1;
  float* a = nullptr;
  unsigned number = 0x55555555u;
};
void writeThrough(Argument argument) { *argument.a = 1; }

TEST_F(MemoryTest, KernelThatIsGivenMemoryOfTheHostIsAFault) {
  static float ofTheProgram = 0;
  float ofTheStack = 0;
  std::vector<float> ofTheHeap(100000);
  for (float* p : {&ofTheProgram, &ofTheStack, ofTheHeap.data()}) {
    EXPECT_FAULT(launch(write<float>, {1, 1}, p, std::size_t{0}, 2.0f), "address of host memory");
    EXPECT_FAULT(launch(writeThrough, {1, 1}, Argument{1, p, 2}), "address of host memory");
  }
}

void ignore(const float*, double, std::uint64_t, dim3) {}

TEST_F(MemoryTest, KernelsTakeNullAndAddressesOfDevicesAndNumbers) {
  const Array<float> a(1);
  finish(launch(writeThrough, {1, 1}, Argument{1, a.get(), 2}));
  EXPECT_EQ(a.first(), 1.0f);
  finish(launch(ignore, {1, 1}, nullptr, 0.1, std::uint64_t{1} << 46, dim3(8, 5000, 3)));
}

// ---- Ends of allocations

// An array of n bytes that ends where its last page ends, or starts where its first one starts:
// the emulated GPU chooses one of both.
template <class F>
void withPlaced(std::size_t n, bool atEnd, F f) {
  std::vector<void*> all;
  for (;;) {
    void* p = nullptr;
    ASSERT_EQ(cudaMalloc(&p, n), cudaSuccess);
    all.push_back(p);
    const bool starts = placeInPage(p) == 0;
    const bool ends = placeInPage(static_cast<char*>(p) + n) == 0;
    if (!(atEnd ? ends : starts)) continue;
    f(static_cast<char*>(p));
    break;
  }
  for (void* p : all) EXPECT_EQ(cudaFree(p), cudaSuccess);
}

TEST_F(MemoryTest, ReadsBeyondTheEndsDieWhereAPageEnds) {
  const Array<char> found(1);
  withPlaced(160, true, [&](char* p) {
    finish(launch(copyOne<char>, {1, 1}, found.get(), p, std::size_t{159}));
    EXPECT_NO_ACCESS(finish(launch(copyOne<char>, {1, 1}, found.get(), p, std::size_t{160})));
  });
  withPlaced(160, false, [&](char* p) {
    finish(launch(copyOne<char>, {1, 1}, found.get(), p, std::size_t{0}));
    EXPECT_NO_ACCESS(finish(launch(copyOne<char>, {1, 1}, found.get(), p, ~std::size_t{0})));
  });
  withPlaced(kPage, true, [&](char* p) {
    EXPECT_NO_ACCESS(finish(launch(copyOne<char>, {1, 1}, found.get(), p, kPage)));
    EXPECT_NO_ACCESS(finish(launch(copyOne<char>, {1, 1}, found.get(), p, ~std::size_t{0})));
  });
}

TEST_F(MemoryTest, ReadsFarBeyondTheEndsDieTooAndHitNoOtherArray) {
  const Array<char> a(100, 'a'), b(1 << 20, 'b'), found(1);
  for (const std::size_t k :
       {std::size_t{20000}, std::size_t{1} << 19, (std::size_t{1} << 20) - kPage}) {
    EXPECT_NO_ACCESS(finish(launch(copyOne<char>, {1, 1}, found.get(), a.get(), k)));
    EXPECT_NO_ACCESS(finish(launch(copyOne<char>, {1, 1}, found.get(), b.get(), ~k)));
  }
}

TEST_F(MemoryTest, WritesBeyondTheEndsAreAFaultWhenTheArrayIsFreed) {
  withPlaced(160, false, [](char* p) {
    EXPECT_FAULT(finish(launch(write<char>, {1, 1}, p, std::size_t{160}, 'x'));
                 cudaFree(p), "a write beyond the ends of an allocation");
  });
  withPlaced(160, true, [](char* p) {
    EXPECT_FAULT(finish(launch(write<char>, {1, 1}, p, ~std::size_t{0}, 'x'));
                 cudaFree(p), "a write beyond the ends of an allocation");
  });
  for (int k = 0; k < 4; ++k) {  // in either place
    void* p = nullptr;
    cudaMalloc(&p, 5);
    EXPECT_FAULT(finish(launch(write<char>, {1, 1}, static_cast<char*>(p), std::size_t{5}, 'x'));
                 cudaFree(p), "a write beyond the ends of an allocation");
    cudaFree(p);
  }
}

TEST_F(MemoryTest, MisalignedVectorsEndTheProgram) {
  const Array<float> a(16);
  auto* vectors = reinterpret_cast<float2*>(a.get());
  finish(launch(write<float2>, {1, 1}, vectors, std::size_t{1}, float2{1, 2}));
  auto* misaligned = reinterpret_cast<float2*>(a.get() + 1);
  EXPECT_DEATH(finish(launch(write<float2>, {1, 1}, misaligned, std::size_t{1}, float2{1, 2})),
               "misaligned address");
  auto* four = reinterpret_cast<float4*>(a.get() + 2);
  EXPECT_DEATH(finish(launch(write<float4>, {1, 1}, four, std::size_t{1}, float4{1, 2, 3, 4})),
               "misaligned address");
}

void readOnce(float2* a, const float2* b) { *a = __ldg(b); }

TEST_F(MemoryTest, MisalignedReadOfReadOnlyMemoryIsAFault) {
  const Array<float> a(16);
  auto* to = reinterpret_cast<float2*>(a.get());
  EXPECT_DEATH(finish(launch(readOnce, {1, 1}, to, reinterpret_cast<float2*>(a.get() + 1))),
               "misaligned");
}

// ---- After the end

TEST_F(MemoryTest, FreedMemoryCannotBeTouched) {
  float* p = nullptr;
  {
    const Array<float> a(8, 1.0f);
    p = a.get();
  }
  EXPECT_NO_ACCESS(finish(launch(write<float>, {1, 1}, p, std::size_t{0}, 2.0f)));
  for (int k = 0; k < 100; ++k) EXPECT_NE(Array<float>(8).get(), p);
}

TEST_F(MemoryTest, OnlyWhatStartsAnAllocationCanBeFreedAndOnce) {
  void* p = nullptr;
  ASSERT_EQ(cudaMalloc(&p, 64), cudaSuccess);
  EXPECT_REFUSED(cudaFree(static_cast<char*>(p) + 16), cudaErrorInvalidValue);
  EXPECT_EQ(cudaFree(p), cudaSuccess);
  EXPECT_REFUSED(cudaFree(p), cudaErrorInvalidValue);
  EXPECT_EQ(cudaFree(nullptr), cudaSuccess);
}

TEST_F(MemoryTest, FreeingWaitsForTheDevice) {
  const Array<float> a(1, 0.0f);
  cudaStream_t stream = nullptr;
  cudaStreamCreateWithFlags(&stream, cudaStreamNonBlocking);
  void* other = nullptr;
  cudaMalloc(&other, 16);
  launch(write<float>, {1, 1, 0, stream}, a.get(), std::size_t{0}, 2.0f);
  cudaFree(other);
  EXPECT_EQ(a.first(), 2.0f);
  cudaStreamDestroy(stream);
}

// ---- Other GPUs

TEST_F(MemoryTest, MemoryOfAnotherGpuNeedsPeerAccess) {
  const Array<float> a(8, 1.0f);
  cudaSetDevice(1);
  const Array<float> b(8, 2.0f);
  const auto readTheFirst = [&] {
    return launch(copyOne<float>, {1, 1}, b.get(), a.get(), std::size_t{0});
  };
  EXPECT_NO_ACCESS(finish(readTheFirst()));
  ASSERT_EQ(cudaDeviceEnablePeerAccess(0, 0), cudaSuccess);
  finish(readTheFirst());
  EXPECT_EQ(b.first(), 1.0f);
  // Not the other way round.
  cudaSetDevice(0);
  EXPECT_NO_ACCESS(finish(launch(copyOne<float>, {1, 1}, a.get(), b.get(), std::size_t{0})));
}

TEST_F(MemoryTest, PeerAccessIsEnabledOnceAndNeverToItself) {
  int can = -1;
  EXPECT_EQ(cudaDeviceCanAccessPeer(&can, 0, 1), cudaSuccess);
  EXPECT_EQ(can, 1);
  EXPECT_EQ(cudaDeviceCanAccessPeer(&can, 1, 1), cudaSuccess);
  EXPECT_EQ(can, 0);
  EXPECT_REFUSED(cudaDeviceCanAccessPeer(&can, 0, 2), cudaErrorInvalidDevice);
  EXPECT_REFUSED(cudaDeviceEnablePeerAccess(0, 0), cudaErrorInvalidDevice);
  EXPECT_REFUSED(cudaDeviceEnablePeerAccess(1, 1), cudaErrorInvalidValue);
  EXPECT_EQ(cudaDeviceEnablePeerAccess(1, 0), cudaSuccess);
  EXPECT_REFUSED(cudaDeviceEnablePeerAccess(1, 0), cudaErrorPeerAccessAlreadyEnabled);
}

// ---- How much there is

TEST_F(MemoryTest, CountsWhatIsFreeOnEachGpu) {
  std::size_t before = 0, total = 0, now = 0;
  ASSERT_EQ(cudaMemGetInfo(&before, &total), cudaSuccess);
  const Array<char> a(1000);
  cudaMemGetInfo(&now, &total);
  EXPECT_EQ(before - now, 1024u);
  cudaSetDevice(1);
  cudaMemGetInfo(&now, &total);
  EXPECT_EQ(now, total);
}

TEST_F(MemoryTest, RunsOut) {
  std::size_t free = 0, total = 0;
  cudaMemGetInfo(&free, &total);
  void* p = &free;
  EXPECT_REFUSED(cudaMalloc(&p, free + 1), cudaErrorMemoryAllocation);
  EXPECT_EQ(p, nullptr);
  EXPECT_REFUSED(cudaMalloc(&p, ~std::size_t{0}), cudaErrorMemoryAllocation);
  ASSERT_EQ(cudaMalloc(&p, free), cudaSuccess);
  void* q = nullptr;
  EXPECT_REFUSED(cudaMalloc(&q, 1), cudaErrorMemoryAllocation);
  EXPECT_EQ(cudaMalloc(&q, 0), cudaSuccess);
  cudaFree(p);
}

TEST(MemoryUnitTest, KnowsWhatLiesWithinWhichAllocation) {
  Memory memory(2, 1 << 20);
  auto* a = static_cast<char*>(memory.allocate(0, 100));
  auto* b = static_cast<char*>(memory.allocate(1, 200));
  EXPECT_EQ(memory.deviceOf(a), 0);
  EXPECT_EQ(memory.deviceOf(b + 199), 1);
  EXPECT_EQ(memory.deviceOf(b + 200), -1);
  EXPECT_EQ(memory.deviceOf(a - 1), -1);
  EXPECT_EQ(memory.deviceOf(&memory), -1);
  EXPECT_TRUE(memory.contains(a, 100));
  EXPECT_FALSE(memory.contains(a, 101));
  EXPECT_TRUE(memory.contains(a + 99, 1));
  EXPECT_FALSE(memory.contains(&memory, 1));
  EXPECT_TRUE(memory.isDeviceAddress(b + 200));
  EXPECT_FALSE(memory.isDeviceAddress(&memory));
  EXPECT_TRUE(memory.free(a));
  EXPECT_FALSE(memory.free(a));
  EXPECT_FALSE(memory.contains(a, 1));
}

TEST(MemoryUnitTest, OpensTheMemoryOfTheDevicesThatAreNamed) {
  Memory memory(2, 1 << 20);
  auto* a = static_cast<char*>(memory.allocate(0, 100));
  auto* b = static_cast<char*>(memory.allocate(1, 100));
  memory.open({true, false});
  *a = 1;
  EXPECT_NO_ACCESS(*b = 1);
  *static_cast<char*>(memory.allocate(0, 100)) = 1;
  memory.open({false, true});
  *b = 1;
  EXPECT_NO_ACCESS(*a = 1);
  memory.close();
  EXPECT_NO_ACCESS(*b = 1);
}

}  // namespace
}  // namespace emulated_gpu
