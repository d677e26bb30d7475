#include "app/dataterm/eight_bits.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "app/dataterm/input_error.h"
#include "app/messages.h"
#include "files/stretch.h"

namespace namespace_ratseg {

namespace {

std::string numberText(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value));
  return text;
}

std::string rangeText(const ValueRange& range) {
  return numberText(range.low) + " " + numberText(range.high);
}

// How many of the channels the image shows: the first one or the first three.
std::size_t shownChannels(const Raster& raster) { return raster.channels >= 3 ? 3 : 1; }

bool isEightBits(const Raster& raster) {
  return raster.samples.kind == SampleKind::unsignedInteger && raster.samples.bits <= 8;
}

std::vector<ValueRange> givenRanges(const std::vector<float>& numbers, std::size_t channels) {
  if (numbers.size() != 2 && numbers.size() != 2 * channels) {
    throw InputError("-range",
                     std::string("2 numbers") + (channels > 1 ? " or " : "") +
                         (channels > 1 ? std::to_string(2 * channels) : ""),
                     std::to_string(numbers.size()));
  }
  std::vector<ValueRange> ranges;
  for (std::size_t c = 0; c < channels; ++c) {
    const std::size_t at = numbers.size() == 2 ? 0 : 2 * c;
    ranges.push_back({numbers[at], numbers[at + 1]});
  }
  return ranges;
}

// Red, green and blue have one range, so that colours stay what they are; other channels each their
// own.
std::vector<ValueRange> foundRanges(const Raster& raster, std::size_t channels) {
  if (isEightBits(raster)) {
    const auto white = static_cast<float>((1 << raster.samples.bits) - 1);
    return std::vector<ValueRange>(channels, {0, white});
  }
  if (raster.colours == Raster::Colours::rgb) {
    return std::vector<ValueRange>(channels, rangeOf(raster.values.data(), raster.values.size()));
  }
  std::vector<ValueRange> ranges;
  for (std::size_t c = 0; c < channels; ++c) {
    ranges.push_back(rangeOf(raster.plane(c), raster.count()));
  }
  return ranges;
}

void tellChannels(const std::string& file, const Raster& raster) {
  const std::size_t shown = shownChannels(raster);
  if (raster.colours != Raster::Colours::other || raster.channels == shown) return;
  note(file + " has " + std::to_string(raster.channels) + " channels, of which colour costs see " +
       (shown == 1 ? "the first one" : "the first three (as red, green and blue)"));
}

void tellRange(const std::string& file, const Raster& raster, bool given,
               const std::vector<ValueRange>& ranges) {
  if (isEightBits(raster) && !given) return;
  std::string text;
  bool same = true, any = false;
  for (const ValueRange& range : ranges) {
    any = any || range.low < range.high;
    if (!text.empty()) text += " ";
    text += rangeText(range);
    same = same && range.low == ranges[0].low && range.high == ranges[0].high;
  }
  if (!any) return;
  if (same) text = rangeText(ranges[0]);
  note(file + " has " + sampleText(raster.samples) + "; black and white are at -range " + text +
       (given ? ""
              : ", found from its values (give this -range to other pictures of the series too)"));
}

void warnOfOneValue(const std::string& file, const std::vector<ValueRange>& ranges) {
  for (const ValueRange& range : ranges) {
    if (range.low < range.high) continue;
    warn(file + " has a channel whose values are all " + numberText(range.low) + "; it is black");
  }
}

// Black to 0, white to 1. A single pair of numbers is for all channels.
void scaleValues(const std::vector<float>& range, std::vector<ValueRange> ranges, Raster& raster) {
  for (std::size_t c = ranges.size(); c < raster.channels; ++c) {
    ranges.push_back(range.size() == 2 ? ValueRange{range[0], range[1]}
                                       : rangeOf(raster.plane(c), raster.count()));
  }
  for (std::size_t c = 0; c < raster.channels; ++c) {
    const float low = ranges[c].low;
    const float scale = ranges[c].high > low ? 1 / (ranges[c].high - low) : 0.0f;
    float* plane = raster.plane(c);
    for (std::size_t p = 0; p < raster.count(); ++p) plane[p] = (plane[p] - low) * scale;
  }
}

}  // namespace

void makeEightBits(const std::string& file, const std::vector<float>& range, Raster& raster,
                   InputPicture& picture) {
  const std::size_t shown = shownChannels(raster);
  const bool given = !range.empty();
  const std::vector<ValueRange> ranges =
      given ? givenRanges(range, shown) : foundRanges(raster, shown);
  tellChannels(file, raster);
  tellRange(file, raster, given, ranges);
  warnOfOneValue(file, ranges);
  Image& image = picture.image;
  image.w = static_cast<int>(raster.w);
  image.h = static_cast<int>(raster.h);
  image.pixels = std::make_unique_for_overwrite<RGB[]>(raster.count());
  picture.grey = shown == 1;
  std::array<std::vector<std::uint8_t>, 3> planes;
  for (std::size_t c = 0; c < shown; ++c) {
    planes[c] = stretched(raster.plane(c), raster.count(), ranges[c]);
  }
  const auto part = [&](std::size_t c, std::size_t p) {
    return static_cast<float>(planes[c < shown ? c : 0][p]) / 255;
  };
  for (std::size_t p = 0; p < raster.count(); ++p) {
    image.pixels[p] = {part(0, p), part(1, p), part(2, p), 1};
  }
  scaleValues(range, ranges, raster);
}

void stretchImage(const std::string& file, const std::vector<float>& range, Image& image) {
  const std::vector<ValueRange> ranges = givenRanges(range, 3);
  const std::size_t count = image.count();
  std::vector<float> plane(count);
  const std::array<float RGB::*, 3> channels = {&RGB::x, &RGB::y, &RGB::z};
  for (std::size_t c = 0; c < 3; ++c) {
    for (std::size_t p = 0; p < count; ++p) plane[p] = image.pixels[p].*channels[c] * 255;
    const std::vector<std::uint8_t> bytes = stretched(plane.data(), count, ranges[c]);
    for (std::size_t p = 0; p < count; ++p) {
      image.pixels[p].*channels[c] = static_cast<float>(bytes[p]) / 255;
    }
  }
  note(file + " was stretched as -range says");
}

}  // namespace namespace_ratseg
