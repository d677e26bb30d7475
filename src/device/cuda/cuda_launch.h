#ifndef RATSEG_DEVICE_CUDA_CUDA_LAUNCH_H
#define RATSEG_DEVICE_CUDA_CUDA_LAUNCH_H

// Helpers for CUDA launchers. For .cu files only.

#include <cuda_runtime.h>

#include <cstddef>
#include <utility>

#include "device/types.h"

namespace namespace_ratseg {

inline ::dim3 native(const dim3& d) { return {d.x, d.y, d.z}; }
inline ::cudaStream_t native(cudaStream_t stream) { return static_cast<::cudaStream_t>(stream); }

// Shape and stream of a kernel launch. A null stream is the current device's default one.
struct CudaLaunch {
  CudaLaunch(::dim3 grid_, ::dim3 block_, std::size_t sharedBytes_ = 0,
             ::cudaStream_t stream_ = nullptr)
      : grid(grid_), block(block_), sharedBytes(sharedBytes_), stream(stream_) {}
  CudaLaunch(const LaunchShape& shape)
      : CudaLaunch(native(shape.grid), native(shape.block), shape.sharedBytes,
                   native(shape.stream)) {}

  ::dim3 grid, block;
  std::size_t sharedBytes;
  ::cudaStream_t stream;
};

// A launch that the device refuses leaves its error pending.
template <class... P, class... A>
void launch(void (*kernel)(P...), const CudaLaunch& how, A&&... args) {
  ::cudaLaunchConfig_t config = {};
  config.gridDim = how.grid;
  config.blockDim = how.block;
  config.dynamicSmemBytes = how.sharedBytes;
  config.stream = how.stream;
  ::cudaLaunchKernelEx(&config, kernel, std::forward<A>(args)...);
}

// Allows the kernel that much dynamic shared memory on the current device, where it is more than
// every kernel may have.
template <class Kernel>
void allowSharedMemory(Kernel k, std::size_t bytes) {
  constexpr std::size_t kAlways = 48 << 10;
  if (bytes <= kAlways) return;
  ::cudaFuncSetAttribute(k, cudaFuncAttributeMaxDynamicSharedMemorySize, static_cast<int>(bytes));
}

// The dynamic shared memory of a kernel's block.
template <class T>
__device__ T* dynamicShared() {
  extern __shared__ double dynamic_shared[];
  return reinterpret_cast<T*>(dynamic_shared);
}

}  // namespace namespace_ratseg

#endif
