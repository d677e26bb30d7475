#ifndef RATSEG_UTIL_CUDAUTIL_LAUNCH_H
#define RATSEG_UTIL_CUDAUTIL_LAUNCH_H

#include "device/types.h"

namespace namespace_ratseg {

// Launches the kernel of CudaUtil on the current device of one backend. A launch that the device
// refuses leaves its error pending.
class CudaUtilKernels {
 public:
  // One thread: *arch = compiledArch().
  virtual void get_CUDA_ARCH(const LaunchShape& shape, int* arch) = 0;

 protected:
  ~CudaUtilKernels() =
      default;  // there to the end: threads may still launch while the process ends
};

CudaUtilKernels& hostCudaUtilKernels();
CudaUtilKernels& cudaCudaUtilKernels();  // in builds with CUDA only

// Those of the current backend.
CudaUtilKernels& cudaUtilKernels();

}  // namespace namespace_ratseg

#endif
