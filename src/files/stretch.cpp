#include "files/stretch.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace namespace_ratseg {

namespace {

// Numbers in the order of the floats, so that ranks can be found by counting.
std::uint32_t orderOf(float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  return (bits & 0x80000000u) != 0 ? ~bits : bits | 0x80000000u;
}

float valueOf(std::uint32_t order) {
  return std::bit_cast<float>((order & 0x80000000u) != 0 ? order & 0x7fffffffu : ~order);
}

// The value that `rank` others are not greater than: first the upper half of its bits, then the
// lower one.
float valueOfRank(const float* values, std::size_t count, std::size_t rank) {
  std::vector<std::size_t> upper(65536), lower(65536);
  for (std::size_t k = 0; k < count; ++k) {
    if (std::isfinite(values[k])) ++upper[orderOf(values[k]) >> 16];
  }
  std::uint32_t high = 0;
  for (; high < 65535 && rank >= upper[high]; ++high) rank -= upper[high];
  for (std::size_t k = 0; k < count; ++k) {
    const std::uint32_t order = orderOf(values[k]);
    if (std::isfinite(values[k]) && order >> 16 == high) ++lower[order & 65535];
  }
  std::uint32_t low = 0;
  for (; low < 65535 && rank >= lower[low]; ++low) rank -= lower[low];
  return valueOf(high << 16 | low);
}

}  // namespace

MendedValues mendValues(Raster& raster) {
  MendedValues mended;
  for (std::size_t c = 0; c < raster.channels; ++c) {
    float* const plane = raster.plane(c);
    float low = std::numeric_limits<float>::max(), high = std::numeric_limits<float>::lowest();
    bool any = false;
    for (std::size_t p = 0; p < raster.count(); ++p) {
      if (!std::isfinite(plane[p])) continue;
      any = true;
      low = std::min(low, plane[p]);
      high = std::max(high, plane[p]);
    }
    if (!any) low = high = 0;
    for (std::size_t p = 0; p < raster.count(); ++p) {
      if (std::isfinite(plane[p])) continue;
      ++(std::isnan(plane[p]) ? mended.nans : mended.infinite);
      plane[p] = plane[p] > 0 ? high : low;
    }
  }
  return mended;
}

ValueRange rangeOf(const float* planes, std::size_t values) {
  constexpr double kLeftOut = 0.001;
  std::size_t finite = 0;
  ValueRange all = {std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest()};
  for (std::size_t k = 0; k < values; ++k) {
    if (!std::isfinite(planes[k])) continue;
    ++finite;
    all = {std::min(all.low, planes[k]), std::max(all.high, planes[k])};
  }
  if (finite == 0) return {0, 0};
  const auto outside = static_cast<std::size_t>(kLeftOut * static_cast<double>(finite));
  const ValueRange range = {valueOfRank(planes, values, outside),
                            valueOfRank(planes, values, finite - 1 - outside)};
  return range.low < range.high ? range : all;
}

std::vector<std::uint8_t> stretched(const float* plane, std::size_t count,
                                    const ValueRange& range) {
  std::vector<std::uint8_t> bytes(count);
  const double low = range.low;
  const double width = static_cast<double>(range.high) - low;
  if (!(width > 0)) return bytes;
  for (std::size_t p = 0; p < count; ++p) {
    const double part = std::clamp((static_cast<double>(plane[p]) - low) / width, 0.0, 1.0);
    bytes[p] = static_cast<std::uint8_t>(std::lround(255 * part));
  }
  return bytes;
}

}  // namespace namespace_ratseg
