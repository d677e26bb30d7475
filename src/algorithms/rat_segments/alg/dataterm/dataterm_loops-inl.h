// The loops of the scribble data term, compiled once per instruction set (host_vectors.h).
// docs/math.md, section 3.2.

#include <cstddef>
#include <limits>

#include "algorithms/rat_segments/alg/dataterm/dataterm_loops.h"
#include "device/host/host_vectors.h"

namespace namespace_ratseg::RATSEG_ISA {

namespace {

static_assert(kScribbleLanes % kLanes == 0);

// exp(x) for x <= 0 within 2e-7 relative: 2^n exp(r), |r| <= ln(2)/2, with a polynomial for exp(r).
// Below -87 it stays at exp(-87).
inline vec expOfNegative(vec x) {
  x = maxOf(x, splat(-87.0f));
  constexpr float roundingShift = 12582912.0f;  // 1.5 * 2^23
  vec n = x * 1.44269504f + roundingShift;
  n -= roundingShift;
  const vec r = (x - n * 0.693359375f) + n * 2.12194440e-4f;
  vec poly = splat(1.9875691500e-4f);
  poly = poly * r + 1.3981999507e-3f;
  poly = poly * r + 8.3334519073e-3f;
  poly = poly * r + 4.1665795894e-2f;
  poly = poly * r + 1.6666665459e-1f;
  poly = poly * r + 5.0000001201e-1f;
  poly = poly * r * r + r + 1.0f;
  const mask exponent = __builtin_convertvector(n, mask) << 23;
  return (vec)((mask)poly + exponent);
}

float scribbleExponents(const ScribbleColumns& s, float L, float a, float b, float scale,
                        float* exponents) {
  vec minExponent = splat(std::numeric_limits<float>::infinity());
  for (std::size_t j = 0; j < s.size; j += kLanes) {
    const vec dL = load(s.L + j) - L, da = load(s.a + j) - a, db = load(s.b + j) - b;
    const vec e = (dL * dL + da * da + db * db) * scale;
    store(exponents + j, e);
    minExponent = minOf(e, minExponent);
  }
  float first = minExponent[0];
  for (std::size_t l = 1; l < kLanes; ++l) first = minExponent[l] < first ? minExponent[l] : first;
  return first;
}

float scribbleSum(const ScribbleColumns& s, const float* exponents, float minExponent) {
  vec sum = {};
  for (std::size_t j = 0; j < s.size; j += kLanes) {
    sum += load(s.weight + j) * expOfNegative(minExponent - load(exponents + j));
  }
  double total = 0.0;
  for (std::size_t l = 0; l < kLanes; ++l) total += static_cast<double>(sum[l]);
  return static_cast<float>(total);
}

}  // namespace

extern const DatatermLoops datatermLoops;
const DatatermLoops datatermLoops = {RATSEG_ISA_NAME, scribbleExponents, scribbleSum};

}  // namespace namespace_ratseg::RATSEG_ISA
