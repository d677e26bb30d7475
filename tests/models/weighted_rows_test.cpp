#include "models/weighted_rows.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace namespace_ratseg {
namespace {

TEST(WeightedRows, AllInstructionSetsGiveTheSameBytesAtAllLengths) {
  for (const std::size_t n : {1u, 3u, 16u, 127u, 128u, 129u, 300u}) {
    std::vector<std::vector<float>> values(5, std::vector<float>(n));
    std::vector<const float*> rows;
    std::vector<float> weights;
    for (std::size_t j = 0; j < values.size(); ++j) {
      for (std::size_t x = 0; x < n; ++x) values[j][x] = 1.0f / static_cast<float>(1 + j + x * 7);
      rows.push_back(values[j].data());
      weights.push_back(0.3f - 0.1f * static_cast<float>(j));
    }
    std::vector<float> wanted(n);
    for (std::size_t x = 0; x < n; ++x) {
      float sum = 0;
      for (std::size_t j = 0; j < rows.size(); ++j) sum += weights[j] * rows[j][x];
      wanted[x] = sum;
    }
    for (const HostIsa isa : usableHostIsas()) {
      std::vector<float> out(n, -1);
      weightedRows(isa)(rows.data(), weights.data(), rows.size(), out.data(), n);
      EXPECT_EQ(std::memcmp(out.data(), wanted.data(), n * sizeof(float)), 0)
          << nameOf(isa) << ", " << n;
    }
  }
}

}  // namespace
}  // namespace namespace_ratseg
