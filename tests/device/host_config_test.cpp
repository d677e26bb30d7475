#include "device/host/host_config.h"

#include <gtest/gtest.h>
#include <omp.h>

#include "device/runtime.h"
#include "support/machine.h"

namespace namespace_ratseg {
namespace {

TEST(HostProperties, AreThoseThatEveryGpuHas) {
  const cudaDeviceProp prop = defaultHostProperties();
  EXPECT_EQ(prop.major, 3);
  EXPECT_EQ(prop.minor, 0);
  EXPECT_EQ(prop.maxThreadsPerBlock, 1024);
  EXPECT_EQ(prop.sharedMemPerBlock, 49152u);
  EXPECT_EQ(prop.sharedMemPerBlockOptin, 49152u);
  EXPECT_EQ(prop.multiProcessorCount, hostThreads());
}

TEST(HostProperties, NameTellsTheThreads) {
  const int before = omp_get_max_threads();
  omp_set_num_threads(1);
  EXPECT_STREQ(defaultHostProperties().name, "Host (1 thread)");
  omp_set_num_threads(5);
  EXPECT_EQ(hostThreads(), 5);
  EXPECT_STREQ(defaultHostProperties().name, "Host (5 threads)");
  omp_set_num_threads(before);
}

TEST(HostMemory, IsTheMachinesUnlessItIsLimited) {
  std::size_t bytesFree = 0;
  std::size_t total = 0;
  {
    const HostMachine machine(hostConfig(1));
    cudaMemGetInfo(&bytesFree, &total);
    EXPECT_GT(total, std::size_t{64} << 20);
    EXPECT_EQ(bytesFree, total);
  }
  const HostMachine machine(hostConfig(1, true, 7));
  cudaMemGetInfo(&bytesFree, &total);
  EXPECT_EQ(total, std::size_t{7} << 20);
}

}  // namespace
}  // namespace namespace_ratseg
