#ifndef RATSEG_UTIL_CUDAUTIL_LAUNCH_H
#define RATSEG_UTIL_CUDAUTIL_LAUNCH_H

#include "device/launchers.h"
#include "device/types.h"

namespace namespace_ratseg {

// Launches the kernel of CudaUtil on the current device of one backend. A launch that the device
// refuses leaves its error pending.
class CudaUtilKernels {
 public:
  // One thread: *arch = compiledArch().
  virtual void get_CUDA_ARCH(const LaunchShape& shape, int* arch) = 0;

  // Those of each backend; the CUDA ones only in builds with that backend.
  static CudaUtilKernels& host();
  static CudaUtilKernels& cuda();

 protected:
  ~CudaUtilKernels() =
      default;  // there to the end: threads may still launch while the process ends
};

// Those of the current backend.
inline CudaUtilKernels& cudaUtilKernels() { return currentLaunchers<CudaUtilKernels>(); }

}  // namespace namespace_ratseg

#endif
