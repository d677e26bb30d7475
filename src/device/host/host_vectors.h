// Vectors of floats, one register wide, for hot loops that are compiled once per instruction set.
// The including file defines RATSEG_ISA, which names the namespace, so that no function of one set
// can be taken for another's. For that reason such loops call no inline functions of other headers.

#ifndef RATSEG_DEVICE_HOST_HOST_VECTORS_H
#define RATSEG_DEVICE_HOST_HOST_VECTORS_H

#include <cstddef>

#if defined(__SSE__)
#include <immintrin.h>
#endif

namespace namespace_ratseg::RATSEG_ISA {

namespace {

// One register's worth: compilers take wider vectors apart element by element.
#if defined(__AVX512F__)
constexpr std::size_t kLanes = 16;
#elif defined(__AVX__)
constexpr std::size_t kLanes = 8;
#else
constexpr std::size_t kLanes = 4;
#endif

using vec = float __attribute__((vector_size(kLanes * sizeof(float))));
using mask = int __attribute__((vector_size(kLanes * sizeof(int))));

// Loads from any address: compilers turn a copy of a constant size into an unaligned move, while
// not all of them do so for vector types of reduced alignment.
inline vec load(const float* p) {
  vec v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}
inline void store(float* p, vec v) { __builtin_memcpy(p, &v, sizeof v); }

// Only the lanes that the mask names; the others are 0, and their memory is not touched.
inline vec loadLanes(const float* p, mask lanes) {
#if defined(__AVX512F__)
  return (vec)_mm512_maskz_loadu_ps(_mm512_movepi32_mask((__m512i)lanes), p);
#elif defined(__AVX__)
  return (vec)_mm256_maskload_ps(p, (__m256i)lanes);
#else
  vec v = {};
  for (std::size_t l = 0; l < kLanes; ++l) {
    if (lanes[l] != 0) v[l] = p[l];
  }
  return v;
#endif
}

inline void storeLanes(float* p, mask lanes, vec v) {
#if defined(__AVX512F__)
  _mm512_mask_storeu_ps(p, _mm512_movepi32_mask((__m512i)lanes), (__m512)v);
#elif defined(__AVX__)
  _mm256_maskstore_ps(p, (__m256i)lanes, (__m256)v);
#else
  for (std::size_t l = 0; l < kLanes; ++l) {
    if (lanes[l] != 0) p[l] = v[l];
  }
#endif
}

inline vec splat(float x) { return vec{} + x; }

inline vec maxOf(vec a, vec b) { return a > b ? a : b; }
inline vec minOf(vec a, vec b) { return a < b ? a : b; }

// The last lane of previous, then all lanes of v but the last.
inline vec shifted(vec previous, vec v) {
#if defined(__AVX512F__)
  return __builtin_shufflevector(previous, v, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27,
                                 28, 29, 30);
#elif defined(__AVX__)
  return __builtin_shufflevector(previous, v, 7, 8, 9, 10, 11, 12, 13, 14);
#else
  return __builtin_shufflevector(previous, v, 3, 4, 5, 6);
#endif
}

inline bool anyOf(mask m) {
#if defined(__AVX512F__)
  return _mm512_test_epi32_mask((__m512i)m, (__m512i)m) != 0;
#elif defined(__AVX__)
  return _mm256_testz_si256((__m256i)m, (__m256i)m) == 0;
#elif defined(__SSE__)
  return _mm_movemask_ps((__m128)m) != 0;
#else
  int any = 0;
  for (std::size_t l = 0; l < kLanes; ++l) any |= m[l];
  return any != 0;
#endif
}

inline float sumOf(vec v) {
  for (std::size_t half = kLanes / 2; half > 0; half /= 2) {
    for (std::size_t l = 0; l < half; ++l) v[l] += v[l + half];
  }
  return v[0];
}

// 1 / sqrt(a) from the processor's estimate and one Newton step: about 22 bits.
inline vec inverseSqrt(vec a) {
#if defined(__AVX512F__)
  const vec y = (vec)_mm512_maskz_rsqrt14_ps(0xFFFF, (__m512)a);
#elif defined(__AVX__)
  const vec y = (vec)_mm256_rsqrt_ps((__m256)a);
#elif defined(__SSE__)
  const vec y = (vec)_mm_rsqrt_ps((__m128)a);
#else
  vec y;
  for (std::size_t l = 0; l < kLanes; ++l) y[l] = 1.0f / __builtin_sqrtf(a[l]);
#endif
  return y * (1.5f - 0.5f * a * y * y);
}

}  // namespace

}  // namespace namespace_ratseg::RATSEG_ISA

#endif
