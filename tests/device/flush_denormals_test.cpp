#include "device/host/flush_denormals.h"

#include <gtest/gtest.h>

namespace namespace_ratseg {
namespace {

// 1e-30 times that, made at run time: denormal.
float productOf(float factor) {
  volatile float x = 1e-30f;
  volatile float y = factor;
  x = x * y;
  return x;
}

bool isDenormalRead() {
  volatile float x = 1e-30f;
  volatile float y = 1e-10f;
  x = x * y;  // denormal, unless flushed
  const FlushDenormals flush;
  y = 1e30f;
  x = x * y;
  return x != 0.0f;
}

TEST(FlushDenormals, GivesZeroForDenormalResultsWhileItLives) {
  if (!FlushDenormals::kWorks) GTEST_SKIP() << "no such mode on this processor";
  EXPECT_GT(productOf(1e-10f), 0.0f);
  {
    const FlushDenormals flush;
    EXPECT_EQ(productOf(1e-10f), 0.0f);
    EXPECT_EQ(productOf(1e-5f), 1e-30f * 1e-5f) << "normal numbers stay";
  }
  EXPECT_GT(productOf(1e-10f), 0.0f);
}

TEST(FlushDenormals, ReadsDenormalOperandsAsZero) {
  if (!FlushDenormals::kWorks) GTEST_SKIP() << "no such mode on this processor";
  EXPECT_FALSE(isDenormalRead());
}

TEST(FlushDenormals, InnerOnesLeaveTheOuterOnesMode) {
  if (!FlushDenormals::kWorks) GTEST_SKIP() << "no such mode on this processor";
  const FlushDenormals outer;
  { const FlushDenormals inner; }
  EXPECT_EQ(productOf(1e-10f), 0.0f);
}

}  // namespace
}  // namespace namespace_ratseg
