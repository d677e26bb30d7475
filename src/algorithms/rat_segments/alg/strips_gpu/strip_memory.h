#ifndef RATSEG_ALG_STRIPS_GPU_STRIP_MEMORY_H
#define RATSEG_ALG_STRIPS_GPU_STRIP_MEMORY_H

// Memory access of the strip engine's kernels, and quick roots and quotients on GPUs.

#include <cmath>
#include <cstddef>
#include <type_traits>

#include "device/types.h"

#ifdef __CUDA_ARCH__
#define RATSEG_UNROLL _Pragma("unroll")
#define RATSEG_KEEP_LOOP _Pragma("unroll 1")
#else
#define RATSEG_UNROLL
#define RATSEG_KEEP_LOOP
#endif

namespace namespace_ratseg::tile {

// Reads of arrays that the launch does not write, and quick forms of what the GPU has in hardware.
#ifdef __CUDA_ARCH__
__device__ inline float readOnly(const float* p) { return __ldg(p); }
__device__ inline float2 readOnly(const float2* p) {
  const ::float2 v = __ldg(reinterpret_cast<const ::float2*>(p));
  return {v.x, v.y};
}
__device__ inline void readRow(float (&to)[1], const float* from) { to[0] = __ldg(from); }
__device__ inline void readRow(float (&to)[2], const float* from) {
  const ::float2 v = __ldg(reinterpret_cast<const ::float2*>(from));
  to[0] = v.x;
  to[1] = v.y;
}
__device__ inline void readRow(float2 (&to)[1], const float2* from) { to[0] = readOnly(from); }
__device__ inline void readRow(float2 (&to)[2], const float2* from) {
  const ::float4 v = __ldg(reinterpret_cast<const ::float4*>(from));
  to[0] = {v.x, v.y};
  to[1] = {v.z, v.w};
}
__device__ inline void writeRow(float* to, const float (&from)[1]) { *to = from[0]; }
__device__ inline void writeRow(float* to, const float (&from)[2]) {
  *reinterpret_cast<::float2*>(to) = ::make_float2(from[0], from[1]);
}
__device__ inline void writeRow(float2* to, const float2 (&from)[1]) { *to = from[0]; }
__device__ inline void writeRow(float2* to, const float2 (&from)[2]) {
  *reinterpret_cast<::float4*>(to) = ::make_float4(from[0].x, from[0].y, from[1].x, from[1].y);
}
__device__ inline float inverseRoot(float x) { return rsqrtf(x); }
__device__ inline float quotient(float a, float b) { return __fdividef(a, b); }
#else
template <class T>
inline T readOnly(const T* p) {
  return *p;
}
template <class T, int PX>
inline void readRow(T (&to)[PX], const T* from) {
  for (int l = 0; l < PX; ++l) to[l] = from[l];
}
template <class T, int PX>
inline void writeRow(T* to, const T (&from)[PX]) {
  for (int l = 0; l < PX; ++l) to[l] = from[l];
}
inline float inverseRoot(float x) { return 1.0f / std::sqrt(x); }
inline float quotient(float a, float b) { return a / b; }
#endif

}  // namespace namespace_ratseg::tile

#endif
