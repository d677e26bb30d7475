#include "util/cudaarray.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "support/machine.h"

namespace namespace_ratseg {

template class cudaarray<float>;
template class cudaarray<float2>;
template class cudaarray<float4>;
template class cudaarray<double>;

namespace {

void set(float& v, int i) { v = static_cast<float>(i); }
void set(double& v, int i) { v = i; }
void set(float2& v, int i) { v = {static_cast<float>(i), static_cast<float>(-i)}; }
void set(float4& v, int i) {
  v = {static_cast<float>(i), static_cast<float>(-i), static_cast<float>(2 * i), 1.0f};
}
bool same(float a, float b) { return a == b; }
bool same(double a, double b) { return a == b; }
bool same(const float2& a, const float2& b) { return a.x == b.x && a.y == b.y; }
bool same(const float4& a, const float4& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w;
}

// Elements 1, 2, ... n.
template <class T>
std::vector<T> counting(std::size_t n) {
  std::vector<T> values(n);
  for (std::size_t i = 0; i < n; ++i) set(values[i], static_cast<int>(i) + 1);
  return values;
}

template <class T>
std::vector<T> contents(const cudaarray<T>& a) {
  std::vector<T> host(a.num);
  if (a.num > 0) a.copyToHost(host.data());
  return host;
}

template <class T>
void expectSame(const std::vector<T>& a, const std::vector<T>& b) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i) EXPECT_TRUE(same(a[i], b[i])) << "element " << i;
}

template <class T>
void expectEmpty(const cudaarray<T>& a) {
  EXPECT_EQ(a.num, 0u);
  EXPECT_EQ(a.ptr, nullptr);
  EXPECT_FALSE(a.isAllocated());
}

int currentDevice() {
  int device = -1;
  cudaGetDevice(&device);
  return device;
}

// Text that run writes to standard error.
template <class F>
std::string errors(F run) {
  testing::internal::CaptureStderr();
  run();
  return testing::internal::GetCapturedStderr();
}

// On every device, for every element type.
template <class T>
class CudaArrayTest : public DeviceTest {
 protected:
  void TearDown() override {
    if (!IsSkipped()) {
      EXPECT_EQ(cudaGetLastError(), cudaSuccess);
    }
  }
};
using Elements = testing::Types<float, float2, float4, double>;
TYPED_TEST_SUITE(CudaArrayTest, Elements);

TYPED_TEST(CudaArrayTest, StartsEmpty) {
  const cudaarray<TypeParam> a;
  expectEmpty(a);
  EXPECT_EQ(a.numElem(), 0u);
  EXPECT_EQ(a.numBytes(), 0u);
  EXPECT_EQ(a.get_ptr(), nullptr);
}

TYPED_TEST(CudaArrayTest, TellsItsSizes) {
  const cudaarray<TypeParam> a(7);
  EXPECT_EQ(a.numElem(), 7u);
  EXPECT_EQ(a.numBytesPerElem(), sizeof(TypeParam));
  EXPECT_EQ(a.numBytes(), 7 * sizeof(TypeParam));
  EXPECT_EQ(a.memFor(100), 100 * sizeof(TypeParam));
  EXPECT_TRUE(a.isAllocated());
  EXPECT_EQ(a.get_ptr(), a.ptr);
  EXPECT_EQ(static_cast<TypeParam*>(a), a.ptr);
  EXPECT_EQ(a.getDev(), currentDevice());
}

TYPED_TEST(CudaArrayTest, FreshArrayIsZero) {
  cudaarray<TypeParam> a;
  EXPECT_EQ(a.alloc(33), 33u);
  expectSame(contents(a), std::vector<TypeParam>(33));
}

TYPED_TEST(CudaArrayTest, CopiesThereAndBack) {
  const auto values = counting<TypeParam>(1000);
  cudaarray<TypeParam> a(values.size());
  a.copyFromHost(values.data());
  expectSame(contents(a), values);
}

TYPED_TEST(CudaArrayTest, CopiesExactlyItsElements) {
  const auto values = counting<TypeParam>(3);
  cudaarray<TypeParam> a(2);
  a.copyFromHost(values.data());
  std::vector<TypeParam> host(3);
  a.copyToHost(host.data());
  EXPECT_TRUE(same(host[1], values[1]));
  EXPECT_TRUE(same(host[2], TypeParam{}));
}

TYPED_TEST(CudaArrayTest, AllocatingTheSameSizeAgainZeroesAgain) {
  const auto values = counting<TypeParam>(5);
  cudaarray<TypeParam> a(5);
  a.copyFromHost(values.data());
  EXPECT_EQ(a.alloc(5), 5u);
  expectSame(contents(a), std::vector<TypeParam>(5));
}

TYPED_TEST(CudaArrayTest, AllocatingNothingFreesAndLeavesItEmpty) {
  cudaarray<TypeParam> a(5);
  EXPECT_EQ(a.alloc(0), 0u);
  expectEmpty(a);
}

TYPED_TEST(CudaArrayTest, FreedArrayCanBeAllocatedAgain) {
  cudaarray<TypeParam> a(5);
  a.free();
  expectEmpty(a);
  a.free();
  EXPECT_EQ(a.alloc(6), 6u);
  EXPECT_EQ(a.num, 6u);
}

TYPED_TEST(CudaArrayTest, SetzeroZeroesAllElements) {
  const auto values = counting<TypeParam>(9);
  cudaarray<TypeParam> a(9);
  a.copyFromHost(values.data());
  a.setzero();
  expectSame(contents(a), std::vector<TypeParam>(9));
  cudaarray<TypeParam> empty;
  empty.setzero();
}

TYPED_TEST(CudaArrayTest, GetCopiesOneElement) {
  const auto values = counting<TypeParam>(4);
  cudaarray<TypeParam> a(4);
  a.copyFromHost(values.data());
  for (std::size_t i = 0; i < 4; ++i) EXPECT_TRUE(same(a.get(i), values[i])) << i;
}

TYPED_TEST(CudaArrayTest, GetOfAMissingElementIsReportedAndZero) {
  cudaarray<TypeParam> a(4);
  const cudaarray<TypeParam> empty;
  TypeParam value;
  set(value, 1);
  EXPECT_EQ(errors([&] { value = a.get(4); }),
            "ERROR: (cudaarray.get(size_t)): no element 4 in an array of 4\n");
  EXPECT_TRUE(same(value, TypeParam{}));
  EXPECT_EQ(errors([&] { value = empty.get(0); }),
            "ERROR: (cudaarray.get(size_t)): no element 0 in an array of 0\n");
}

TYPED_TEST(CudaArrayTest, CopiesOfAnUnallocatedArrayAreReportedAndDoNothing) {
  cudaarray<TypeParam> a;
  auto host = counting<TypeParam>(2);
  EXPECT_EQ(errors([&] { a.copyFromHost(host.data()); }),
            "ERROR: (cudaarray.copyFromHost(T*)): destination array not allocated\n");
  EXPECT_EQ(errors([&] { a.copyToHost(host.data()); }),
            "ERROR: (cudaarray.copyToHost(T*)): source array not allocated\n");
  expectSame(host, counting<TypeParam>(2));
  expectEmpty(a);
}

TYPED_TEST(CudaArrayTest, SumAddsEachComponent) {
  const auto values = counting<TypeParam>(10);
  cudaarray<TypeParam> a(10);
  a.copyFromHost(values.data());
  TypeParam expected;
  set(expected, 55);
  if constexpr (std::is_same_v<TypeParam, float4>) expected.w = 10.0f;
  EXPECT_TRUE(same(a.sum(), expected));
  EXPECT_TRUE(same(cudaarray<TypeParam>().sum(), TypeParam{}));
}

TYPED_TEST(CudaArrayTest, CopyHasItsOwnBlock) {
  const auto values = counting<TypeParam>(6);
  cudaarray<TypeParam> a(6);
  a.copyFromHost(values.data());
  const cudaarray<TypeParam> copy(a);
  EXPECT_NE(copy.ptr, a.ptr);
  a.setzero();
  expectSame(contents(copy), values);
}

TYPED_TEST(CudaArrayTest, AssignmentReplacesTheContents) {
  const auto values = counting<TypeParam>(6);
  cudaarray<TypeParam> a(6);
  a.copyFromHost(values.data());
  cudaarray<TypeParam> b(2);
  b = a;
  EXPECT_NE(b.ptr, a.ptr);
  expectSame(contents(b), values);
  const cudaarray<TypeParam>& self = b;
  b = self;
  expectSame(contents(b), values);
  b = cudaarray<TypeParam>();
  expectEmpty(b);
}

TYPED_TEST(CudaArrayTest, WrapsABlockAndFreesIt) {
  TypeParam* block = nullptr;
  ASSERT_EQ(cudaMalloc(&block, 3 * sizeof(TypeParam)), cudaSuccess);
  {
    const cudaarray<TypeParam> a(block, 3);
    EXPECT_EQ(a.ptr, block);
    EXPECT_EQ(a.num, 3u);
    EXPECT_EQ(a.getDev(), currentDevice());
  }
  EXPECT_NE(cudaFree(block), cudaSuccess);
  cudaGetLastError();
}

TYPED_TEST(CudaArrayTest, WrappedNullIsEmpty) { expectEmpty(cudaarray<TypeParam>(nullptr, 3)); }

TYPED_TEST(CudaArrayTest, IsPolymorphicWithFieldsInOrder) {
  EXPECT_TRUE(std::has_virtual_destructor_v<cudaarray<TypeParam>>);
  const cudaarray<TypeParam> a;
  const auto address = [](const auto& field) { return reinterpret_cast<std::uintptr_t>(&field); };
  EXPECT_LT(address(a.num), address(a.ptr));
  EXPECT_LT(address(a.ptr), address(a.dev));
}

}  // namespace
}  // namespace namespace_ratseg
