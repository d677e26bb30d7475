#include <gtest/gtest.h>

#include "support/machine.h"
#include "util/cudadefs.h"
#include "util/cudautil.h"

// Discovery on whatever machine there is.

namespace namespace_ratseg {
namespace {

using CudaUtilDeviceTest = DeviceTest;

TEST_F(CudaUtilDeviceTest, FindsAllDevicesBestFirst) {
  int* dev = nullptr;
  int count = 0;
  cudaDeviceProp* prop = nullptr;
  CudaUtil::getDevices(&dev, &count, &prop, true);
  EXPECT_TRUE(CudaUtil::hasCuda());
  EXPECT_EQ(count, CudaUtil::numDevices());
  for (int i = 0; i < count; ++i) {
    EXPECT_GE(dev[i], 0);
    EXPECT_LT(dev[i], count);
    EXPECT_STRNE(prop[i].name, "");
    EXPECT_GE(prop[i].maxThreadsPerBlock, 1024);
    if (i > 0) {
      EXPECT_GE(prop[i - 1].major, prop[i].major);
    }
  }
  delete[] dev;
  delete[] prop;
}

TEST_F(CudaUtilDeviceTest, ArchIsAtMostTheDevicesCapability) {
  cudaDeviceProp prop;
  ASSERT_EQ(cudaGetDeviceProperties(&prop, 0), cudaSuccess);
  const int arch = CudaUtil::cudaArch();
  EXPECT_GE(arch, 30);
  EXPECT_LE(arch, prop.major * 10 + prop.minor);
  EXPECT_FALSE(peekCudaError());
}

TEST_F(CudaUtilDeviceTest, PeerAccessLeavesNoErrorPending) {
  int* dev = nullptr;
  const int count = CudaUtil::getBestDevices(&dev, 0, nullptr, true);
  bool* can = nullptr;
  CudaUtil::enablePeerAccess(dev, static_cast<std::size_t>(count), &can);
  EXPECT_TRUE(can[0]);
  EXPECT_FALSE(peekCudaError());
  delete[] can;
  delete[] dev;
}

TEST_F(CudaUtilDeviceTest, MemoryIsAMultipleOfTheCurrentDevices) {
  int dev[] = {0, 0};
  std::size_t memFree = 0;
  std::size_t one = 0;
  std::size_t two = 0;
  CudaUtil::memGetInfo(1, dev, &memFree, &one);
  CudaUtil::memGetInfo(2, dev, nullptr, &two);
  EXPECT_GT(one, 0u);
  EXPECT_LE(memFree, one);
  EXPECT_GE(two, 2 * one);
  EXPECT_LE(two, 2 * one + 1);
}

}  // namespace
}  // namespace namespace_ratseg
