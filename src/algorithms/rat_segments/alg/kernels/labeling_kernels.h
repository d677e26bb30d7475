#ifndef RATSEG_ALG_KERNELS_LABELING_KERNELS_H
#define RATSEG_ALG_KERNELS_LABELING_KERNELS_H

// The per-pixel arithmetic of one iteration, shared by host and GPU launchers: functions of a tile
// of LANES adjacent pixels (x .. x + LANES - 1, y) of a band. A GPU thread does a tile of one, the
// host a SIMD vector's worth. Formulas: docs/math.md, sections 4, 6.3 and 6.7.
//
// Band: image rows [ymin, ymax), hb = ymax - ymin of them; y is the row within the band. All arrays
// are label-major. Element (x, y) of label i is
//   u, u_bar   i w (hb+1) + y w + x        row hb is the halo: the next band's first row
//   p          i w (hb+1) + (y+1) w + x    row 0 is the halo: the previous band's last row
//   rho        i w hb + y w + x
//   weight     y w + x                     null = 1 everywhere
// w is the image width, h the height of the whole image, n the number of labels. Arrays may not
// overlap. A tile of more than one lane may not touch a border column that it is told about: with
// LANES > 1, hasRight says that pixel x + LANES exists and hasLeft that x > 0.

#include <cfloat>
#include <cstddef>

#include "algorithms/rat_segments/alg/kernels/disc_radius_kernels.h"
#include "device/types.h"
#include "util/cudaproj.h"
#include "util/linalg.h"

namespace namespace_ratseg::tile {

// Dual ascent of the length term, from the over-relaxed labeling u:
//   p_i <- projection of p_i + (dt/2) grad u_i onto the disc of radius weight lambda/2
// docs/math.md, section 6.3.
template <int LANES>
RATSEG_HD inline void ratseg_dual_p(float2* __restrict__ p, const float* __restrict__ u,
                                    const float* __restrict__ weight, float lambda, float dt,
                                    std::size_t w, std::size_t h, std::size_t ymin,
                                    std::size_t ymax, std::size_t n, std::size_t x, std::size_t y,
                                    bool hasRight) {
  const float step = dt / 2.0f;
  const std::size_t plane = w * (ymax - ymin + 1);
  const bool hasBelow = ymin + y + 1 < h;

  float radius[LANES];
  for (int l = 0; l < LANES; ++l) {
    const float g = weight != nullptr ? weight[y * w + x + l] : 1.0f;
    radius[l] = discRadius(g, lambda, FLT_MAX);
  }

  for (std::size_t i = 0; i < n; ++i) {
    const float* here = u + i * plane + y * w + x;
    const float* below = here + w;
    float2* q = p + i * plane + (y + 1) * w + x;
    for (int l = 0; l < LANES; ++l) {
      const float dx = hasRight ? here[l + 1] - here[l] : 0.0f;
      const float dy = hasBelow ? below[l] - here[l] : 0.0f;
      q[l] = clampToDisc(q[l].x + step * dx, q[l].y + step * dy, radius[l]);
    }
  }
}

// Primal descent of the labeling, projection onto the simplex, over-relaxation:
//   u_new = projection of u + tau (div p_i + gamma_i constGamma/N - rho_i),
//   u_bar = u_new + theta_bar (u_new - u),    tau = dt / (constGamma/N + 4),  N = w h
// A label with rho >= FLT_MAX enters the projection at 0, one with rho <= -FLT_MAX at 1.
// docs/math.md, section 6.7.
// v is scratch of n LANES floats.
template <int LANES>
RATSEG_HD inline void ratseg_prim_u(float* __restrict__ u, float* __restrict__ u_bar,
                                    const float2* __restrict__ p, const float* __restrict__ gamma,
                                    float constGamma, const float* __restrict__ rho,
                                    float theta_bar, float dt, std::size_t w, std::size_t h,
                                    std::size_t ymin, std::size_t ymax, std::size_t n,
                                    std::size_t x, std::size_t y, bool hasLeft, bool hasRight,
                                    float* __restrict__ v) {
  const std::size_t hb = ymax - ymin;
  const std::size_t plane = w * (hb + 1);
  const float pixels = static_cast<float>(w * h);
  const float tau = dt / (constGamma / pixels + 4.0f);
  const bool hasAbove = ymin + y != 0;
  const bool hasBelow = ymin + y + 1 < h;

  for (std::size_t i = 0; i < n; ++i) {
    const float* old = u + i * plane + y * w + x;
    const float2* q = p + i * plane + (y + 1) * w + x;
    const float2* left = q - (hasLeft ? 1 : 0);
    const float2* above = q - w;
    const float* r = rho + i * w * hb + y * w + x;
    const float coupling = gamma[i] * constGamma / pixels;
    float* vi = v + i * LANES;
    for (int l = 0; l < LANES; ++l) {
      float d = hasRight ? q[l].x : 0.0f;
      d = hasLeft ? d - left[l].x : d;
      d = hasBelow ? d + q[l].y : d;
      d = hasAbove ? d - above[l].y : d;
      const float moved = old[l] + tau * (d + coupling - r[l]);
      vi[l] = r[l] >= FLT_MAX ? 0.0f : (r[l] <= -FLT_MAX ? 1.0f : moved);
    }
  }

  projectOntoSimplex<LANES>(v, static_cast<int>(n));

  for (std::size_t i = 0; i < n; ++i) {
    float* to = u + i * plane + y * w + x;
    float* bar = u_bar + i * plane + y * w + x;
    const float* vi = v + i * LANES;
    for (int l = 0; l < LANES; ++l) {
      const float fresh = vi[l];
      const float old = to[l];
      to[l] = fresh;
      bar[l] = fresh + theta_bar * (fresh - old);
    }
  }
}

// Halo of the labeling: the first row of src's plane i becomes the halo row (row h_dst) of dst's.
// h_dst and h_src are the bands' own rows.
RATSEG_HD inline void ratseg_copyFirstToLast(float* dst, const float* src, std::size_t w,
                                             std::size_t h_dst, std::size_t h_src, std::size_t x,
                                             std::size_t i) {
  dst[i * w * (h_dst + 1) + h_dst * w + x] = src[i * w * (h_src + 1) + x];
}

// Halo of the dual field: the last row of src's plane i becomes the halo row (row 0) of dst's.
RATSEG_HD inline void ratseg_copyLastToFirst(float2* dst, const float2* src, std::size_t w,
                                             std::size_t h_dst, std::size_t h_src, std::size_t x,
                                             std::size_t i) {
  dst[i * w * (h_dst + 1) + x] = src[i * w * (h_src + 1) + h_src * w + x];
}

// Pixelwise best label of the data term (docs/math.md, section 6.8): u = 1 for the label of least
// cost (the lowest on ties), 0 for the others. Costs of FLT_MAX or more never win; where all are,
// label 0 does.
RATSEG_HD inline void ratseg_setLocalSolution_kernel(float* u, const float* rho, std::size_t w,
                                                     std::size_t ymin, std::size_t ymax,
                                                     std::size_t n, std::size_t x, std::size_t y) {
  const std::size_t hb = ymax - ymin;
  std::size_t best = 0;
  float minCost = FLT_MAX;
  for (std::size_t i = 0; i < n; ++i) {
    const float cost = rho[i * w * hb + y * w + x];
    if (cost < minCost) {
      minCost = cost;
      best = i;
    }
  }
  for (std::size_t i = 0; i < n; ++i) {
    u[i * w * (hb + 1) + y * w + x] = i == best ? 1.0f : 0.0f;
  }
}

}  // namespace namespace_ratseg::tile

#endif
