#include "device/host/host_launch.h"
#include "util/cudautil_kernels.h"
#include "util/cudautil_launch.h"

namespace namespace_ratseg {

namespace {

class HostCudaUtilKernels final : public CudaUtilKernels {
 public:
  void get_CUDA_ARCH(const LaunchShape& shape, int* arch) override {
    if (!admitHostLaunch("get_CUDA_ARCH", shape)) return;
    *arch = compiledArch();
  }
};

}  // namespace

CudaUtilKernels& CudaUtilKernels::host() {
  static HostCudaUtilKernels kernels;
  return kernels;
}

}  // namespace namespace_ratseg
