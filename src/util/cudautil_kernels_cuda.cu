#include "device/cuda/cuda_launch.h"
#include "util/cudautil_kernels.h"
#include "util/cudautil_launch.h"

namespace namespace_ratseg {

namespace {

namespace kernel {
__global__ void get_CUDA_ARCH(int* arch) { *arch = compiledArch(); }
}  // namespace kernel

class CudaCudaUtilKernels final : public CudaUtilKernels {
 public:
  void get_CUDA_ARCH(const LaunchShape& shape, int* arch) override {
    launch(kernel::get_CUDA_ARCH, shape, arch);
  }
};

}  // namespace

CudaUtilKernels& CudaUtilKernels::cuda() {
  static CudaCudaUtilKernels kernels;
  return kernels;
}

}  // namespace namespace_ratseg
