#include <gtest/gtest.h>

#include "support/machine.h"
#include "util/TimerCUDA.h"
#include "util/cudaarray.h"

// Stopwatches on whatever machine there is.

namespace namespace_ratseg {
namespace {

class TimerCudaDeviceTest : public DeviceTest {
 protected:
  // Measures some work under a name.
  static void measure(TimerCUDA& timer, const char* name) {
    timer.begin(name);
    cudaarray<float> a(1 << 20);
    a.setzero();
    timer.end(name);
  }
};

TEST_F(TimerCudaDeviceTest, MeasuresWork) {
  TimerCUDA timer;
  measure(timer, "a");
  const float once = timer.entries.at("a")->tOverall;
  EXPECT_GT(once, 0);
  measure(timer, "a");
  EXPECT_GT(timer.entries.at("a")->tOverall, once);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

TEST_F(TimerCudaDeviceTest, MeasuresWorkOfAListOfDevices) {
  int dev[] = {0};
  TimerCUDA timer(dev, 1);
  measure(timer, "a");
  EXPECT_GT(timer.entries.at("a")->tOverall, 0);
  timer.clear();
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

}  // namespace
}  // namespace namespace_ratseg
