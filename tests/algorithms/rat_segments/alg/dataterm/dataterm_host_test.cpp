// The scribble data term on the host, on every instruction set that this processor runs.

#include "algorithms/rat_segments/alg/dataterm/dataterm_host.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "algorithms/rat_segments/alg/dataterm/dataterm_kernels.h"

namespace namespace_ratseg {
namespace {

std::vector<float4> randomColours(std::size_t count, unsigned seed) {
  std::mt19937 generator(seed);
  const auto channel = [&] { return static_cast<float>(generator() >> 8) * 0x1p-24f; };
  std::vector<float4> colours(count);
  for (float4& c : colours) c = {channel(), channel(), channel(), 1.0f};
  return colours;
}

std::vector<float> costs(const std::vector<float4>& image, const std::vector<float4>& scribbles,
                         float sigma, float thr, HostIsa isa) {
  std::vector<float> out(image.size());
  scribbleDatatermHost(out.data(), image.data(), image.size(), scribbles.data(), scribbles.size(),
                       sigma, thr, datatermLoops(isa));
  return out;
}

// The formula in double precision from the same CIELAB colours.
double costOf(const float4& pixel, const std::vector<float4>& scribbles, double sigma, double thr) {
  const float4 p = tile::labFromRgb(pixel);
  double sum = 0.0;
  for (const float4& scribble : scribbles) {
    const float4 q = tile::labFromRgb(scribble);
    const double dL = double(p.x) - double(q.x), da = double(p.y) - double(q.y),
                 db = double(p.z) - double(q.z);
    sum += std::exp(-(dL * dL + da * da + db * db) / (2.0 * sigma * sigma));
  }
  return std::min(thr, -std::log(sum / static_cast<double>(scribbles.size())));
}

class DatatermOnEveryIsa : public testing::TestWithParam<HostIsa> {};

TEST_P(DatatermOnEveryIsa, UsesTheLoopsOfItsInstructionSet) {
  EXPECT_STREQ(datatermLoops(GetParam()).isa, nameOf(GetParam()));
}

TEST_P(DatatermOnEveryIsa, FollowsTheFormula) {
  const std::vector<float4> image = randomColours(300, 1);
  for (const std::size_t count : {1u, 3u, 4u, 5u, 8u, 15u, 16u, 17u, 33u, 500u}) {
    const std::vector<float4> scribbles = randomColours(count, 2);
    for (const float sigma : {2.0f, 20.0f}) {
      const std::vector<float> got = costs(image, scribbles, sigma, 40.0f, GetParam());
      for (std::size_t k = 0; k < image.size(); ++k) {
        const double expected = costOf(image[k], scribbles, double(sigma), 40.0);
        ASSERT_NEAR(got[k], expected, 1e-5 * (1.0 + expected))
            << count << " scribbles, sigma " << sigma << ", pixel " << k;
      }
    }
  }
}

// The square of sigma is too small for single precision.
TEST_P(DatatermOnEveryIsa, ATinySigmaLeavesColoursThatAreEqual) {
  const std::vector<float4> scribbles = randomColours(5, 3);
  std::vector<float4> image = {scribbles[2], randomColours(1, 4)[0]};
  for (const float sigma : {1e-18f, 1e-25f}) {
    const std::vector<float> got = costs(image, scribbles, sigma, 10.0f, GetParam());
    EXPECT_NEAR(got[0], std::log(5.0f), 1e-6f);
    EXPECT_EQ(got[1], 10.0f);
  }
}

TEST_P(DatatermOnEveryIsa, ThreadsChangeNothing) {
  const std::vector<float4> image = randomColours(3000, 5);
  const std::vector<float4> scribbles = randomColours(100, 6);
  const int usual = omp_get_max_threads();
  const std::vector<float> once = costs(image, scribbles, 5.0f, 10.0f, GetParam());
  for (const int threads : {1, 2, 5}) {
    omp_set_num_threads(threads);
    EXPECT_EQ(costs(image, scribbles, 5.0f, 10.0f, GetParam()), once) << threads << " threads";
  }
  omp_set_num_threads(usual);
}

INSTANTIATE_TEST_SUITE_P(Isa, DatatermOnEveryIsa, testing::ValuesIn(usableHostIsas()),
                         [](const auto& named) { return std::string(nameOf(named.param)); });

}  // namespace
}  // namespace namespace_ratseg
