#include <gtest/gtest.h>

#include <utility>

#include "device/runtime.h"
#include "errors.h"
#include "support/machine.h"

// What the CUDA backend makes of CUDA's errors, which only an emulated GPU gives on demand.

namespace namespace_ratseg {
namespace {

class CudaErrorsTest : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (!IsSkipped() && onHost()) GTEST_SKIP() << "host devices have no errors of CUDA";
  }

  static cudaError_t shown(int native) {
    emulated_gpu::leavePending(native);
    const cudaError_t peeked = cudaPeekAtLastError();
    EXPECT_EQ(cudaGetLastError(), peeked);
    EXPECT_EQ(cudaGetLastError(), cudaSuccess);
    return peeked;
  }
};

// CUDA's numbers are those since version 10.1.
TEST_F(CudaErrorsTest, ThoseWithANameAreKnownByIt) {
  const std::pair<int, cudaError_t> known[] = {{1, cudaErrorInvalidValue},
                                               {2, cudaErrorMemoryAllocation},
                                               {9, cudaErrorInvalidConfiguration},
                                               {17, cudaErrorInvalidDevicePointer},
                                               {35, cudaErrorInsufficientDriver},
                                               {98, cudaErrorInvalidDeviceFunction},
                                               {100, cudaErrorNoDevice},
                                               {101, cudaErrorInvalidDevice},
                                               {400, cudaErrorInvalidResourceHandle},
                                               {704, cudaErrorPeerAccessAlreadyEnabled}};
  for (const auto& [native, expected] : known) EXPECT_EQ(shown(native), expected) << native;
}

TEST_F(CudaErrorsTest, OthersKeepTheirNumberApartFromThese) {
  EXPECT_EQ(shown(600), static_cast<cudaError_t>(kNativeErrorBase + 600));
}

}  // namespace
}  // namespace namespace_ratseg
