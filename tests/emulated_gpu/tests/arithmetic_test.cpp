// The arithmetic of the emulated GPU: as exact as a GPU's, and no more.

#include <cmath>
#include <limits>

#include "kernels.h"

namespace emulated_gpu {
namespace {

class ArithmeticTest : public EmulatedTest {};

constexpr float kInfinity = std::numeric_limits<float>::infinity();

double unitInLastPlace(double exact) { return std::exp2(std::ilogb(exact) - 23); }

// The greatest error of the values, in units in the last place.
template <class Quick, class Exact>
double greatestError(Quick quick, Exact exact) {
  double greatest = 0.0;
  for (float x = 1e-30f; x < 1e30f; x *= 1.0009765f) {
    const double e = exact(x);
    greatest = std::fmax(greatest, std::fabs(quick(x) - e) / unitInLastPlace(e));
  }
  return greatest;
}

TEST_F(ArithmeticTest, QuickFormsAreOffByUpToTwoUnits) {
  const auto root = [](float x) { return static_cast<double>(rsqrtf(x)); };
  const double rootError =
      greatestError(root, [](float x) { return 1.0 / std::sqrt(static_cast<double>(x)); });
  EXPECT_GT(rootError, 1.5);
  EXPECT_LT(rootError, 3.0);
  const auto third = [](float x) { return static_cast<double>(__fdividef(x, 3.0f)); };
  const double thirdError =
      greatestError(third, [](float x) { return static_cast<double>(x) / 3.0; });
  EXPECT_GT(thirdError, 1.5);
  EXPECT_LT(thirdError, 3.0);
}

TEST_F(ArithmeticTest, QuickFormsKeepZeroInfinityAndNaN) {
  EXPECT_EQ(rsqrtf(0.0f), kInfinity);
  EXPECT_EQ(rsqrtf(kInfinity), 0.0f);
  EXPECT_TRUE(std::isnan(rsqrtf(-1.0f)));
  EXPECT_EQ(__fdividef(0.0f, 3.0f), 0.0f);
  EXPECT_EQ(__fdividef(1.0f, 0.0f), kInfinity);
  EXPECT_EQ(__fdividef(1.0f, kInfinity), 0.0f);
  EXPECT_TRUE(std::isnan(__fdividef(kInfinity, kInfinity)));
}

TEST_F(ArithmeticTest, QuickQuotientsByLargeNumbersAreZero) {
  EXPECT_NE(__fdividef(0x1p127f, 0x1p126f), 0.0f);
  EXPECT_EQ(__fdividef(0x1p127f, 0x1.8p126f), 0.0f);
  EXPECT_EQ(__fdividef(0x1p127f, -0x1.8p126f), 0.0f);
  EXPECT_TRUE(std::isnan(__fdividef(kInfinity, 0x1.8p126f)));
}

void multiplyAndAdd(float* out, const float* factor, const float* less) {
  *out = *factor * *factor - *less;
}

// 1 + 2 e + e^2, rounded, is 1 + 2 e; what is left of the square is seen only when it is not
// rounded.
TEST_F(ArithmeticTest, MultiplicationsAndAdditionsAreFusedWhereTheProcessorCan) {
#if !defined(__FMA__) && !defined(__aarch64__)
  GTEST_SKIP() << "SKIPPED: this processor cannot fuse them";
#endif
  const float e = 0x1p-20f;
  const Array<float> factor(1, 1.0f + e), less(1, 1.0f + 2.0f * e), to(1);
  finish(launch(multiplyAndAdd, {1, 1}, to.get(), factor.get(), less.get()));
  EXPECT_EQ(to.first(), e * e);
}

}  // namespace
}  // namespace emulated_gpu
