#include "app/dataterm/colour_strokes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <tuple>
#include <unordered_map>

#include "files/file_error.h"

namespace namespace_ratseg {

namespace {

struct Counted {
  ColourNumber colour = 0;
  std::size_t count = 0;
};

std::array<int, 3> channels(ColourNumber c) {
  return {static_cast<int>(c >> 16), static_cast<int>(c >> 8 & 255), static_cast<int>(c & 255)};
}

// Whether c is a mixture of a and b.
bool isBetween(ColourNumber c, ColourNumber a, ColourNumber b) {
  constexpr double kNear = 8;  // of 255: rounding, and what premultiplied transparency loses
  const auto pc = channels(c), pa = channels(a), pb = channels(b);
  double along = 0, length = 0;
  for (std::size_t k = 0; k < 3; ++k) {
    along += static_cast<double>(pc[k] - pa[k]) * (pb[k] - pa[k]);
    length += static_cast<double>(pb[k] - pa[k]) * (pb[k] - pa[k]);
  }
  if (length == 0 || along <= 0 || along >= length) return false;
  double off = 0;
  for (std::size_t k = 0; k < 3; ++k) {
    const double there = pa[k] + along / length * (pb[k] - pa[k]);
    off = std::max(off, std::abs(pc[k] - there));
  }
  return off <= kNear;
}

std::vector<ColourNumber> colourPlane(const Raster& picture) {
  const bool deep = picture.samples.bits == 16;
  const auto byteAt = [&](std::size_t c, std::size_t p) {
    const float value = picture.plane(c < picture.channels ? c : 0)[p];
    const long byte = std::lround(deep ? value / 257 : value);
    return static_cast<ColourNumber>(std::clamp(byte, 0L, 255L));
  };
  std::vector<ColourNumber> colours(picture.count());
  for (std::size_t p = 0; p < colours.size(); ++p) {
    colours[p] = byteAt(0, p) << 16 | byteAt(1, p) << 8 | byteAt(2, p);
  }
  return colours;
}

// Unmarks what is transparent; half transparent pixels are rims.
void takeTransparency(const Raster& picture, ColourStrokes& strokes) {
  const std::vector<float>& alpha = picture.alpha;
  const float most = alpha.empty() ? 1 : *std::max_element(alpha.begin(), alpha.end());
  const float least = alpha.empty() ? 1 : *std::min_element(alpha.begin(), alpha.end());
  strokes.marked.assign(picture.count(), true);
  strokes.transparent = least < most || most <= 0;
  if (!strokes.transparent) return;
  constexpr float kFull = 0.97f;
  for (std::size_t p = 0; p < alpha.size(); ++p) {
    strokes.marked[p] = alpha[p] > 0 && alpha[p] >= kFull * most;
    if (alpha[p] > 0 && !strokes.marked[p]) ++strokes.left;
  }
}

// The colours of marked pixels, the most frequent first.
std::vector<Counted> countColours(const ColourStrokes& strokes) {
  std::unordered_map<ColourNumber, std::size_t> counts;
  for (std::size_t p = 0; p < strokes.pixels.size(); ++p) {
    if (strokes.marked[p]) ++counts[strokes.pixels[p]];
  }
  std::vector<Counted> list;
  for (const auto& [colour, count] : counts) list.push_back({colour, count});
  std::sort(list.begin(), list.end(), [](const Counted& a, const Counted& b) {
    return std::tuple(b.count, a.colour) < std::tuple(a.count, b.colour);
  });
  return list;
}

// For each rim colour of a candidate list, the pixels that lie within two pixels of a colour of a
// stroke.
class Neighbourhood {
 public:
  Neighbourhood(const ColourStrokes& strokes, std::size_t w) : strokes_(strokes), w_(w) {}

  // Pixels of each colour, once for all.
  void index(const std::vector<Counted>& colours) {
    std::unordered_map<ColourNumber, std::size_t> places;
    for (std::size_t k = 0; k < colours.size(); ++k) places[colours[k].colour] = k;
    pixels_.resize(colours.size());
    for (std::size_t p = 0; p < strokes_.pixels.size(); ++p) {
      if (!strokes_.marked[p]) continue;
      const auto found = places.find(strokes_.pixels[p]);
      if (found != places.end()) pixels_[found->second].push_back(p);
    }
  }

  // The part of a colour's pixels that lie beside one of the others.
  double beside(std::size_t colour, const std::vector<ColourNumber>& others) const {
    std::size_t count = 0;
    for (std::size_t p : pixels_[colour]) count += isBeside(p, others) ? 1 : 0;
    return static_cast<double>(count) / static_cast<double>(pixels_[colour].size());
  }

 private:
  bool isBeside(std::size_t p, const std::vector<ColourNumber>& others) const {
    const std::size_t h = strokes_.pixels.size() / w_;
    const std::size_t x = p % w_, y = p / w_;
    for (std::size_t j = y < 2 ? 0 : y - 2; j <= std::min(y + 2, h - 1); ++j) {
      for (std::size_t i = x < 2 ? 0 : x - 2; i <= std::min(x + 2, w_ - 1); ++i) {
        const std::size_t q = j * w_ + i;
        if (!strokes_.marked[q]) continue;
        if (std::find(others.begin(), others.end(), strokes_.pixels[q]) != others.end())
          return true;
      }
    }
    return false;
  }

  const ColourStrokes& strokes_;
  const std::size_t w_;
  std::vector<std::vector<std::size_t>> pixels_;
};

// The pure colours between which a colour lies; those of strokes only.
std::vector<ColourNumber> parentsOf(ColourNumber colour, const std::vector<Counted>& pure,
                                    const ColourStrokes& strokes) {
  std::vector<ColourNumber> parents;
  for (std::size_t a = 0; a < pure.size(); ++a) {
    const ColourNumber one = pure[a].colour;
    if (!strokes.transparent && isBetween(colour, strokes.unmarked, one)) parents.push_back(one);
    for (std::size_t b = a + 1; b < pure.size(); ++b) {
      if (!isBetween(colour, one, pure[b].colour)) continue;
      parents.push_back(one);
      parents.push_back(pure[b].colour);
    }
  }
  return parents;
}

// The colours of strokes among all, the most frequent first.
std::vector<Counted> pureColours(const std::vector<Counted>& all, const Neighbourhood& around,
                                 const ColourStrokes& strokes) {
  constexpr double kMostlyBeside = 0.5, kRare = 0.05, kNearlyAllBeside = 0.8;
  std::vector<Counted> pure;
  std::vector<ColourNumber> accepted;
  for (std::size_t k = 0; k < all.size(); ++k) {
    const auto [colour, count] = all[k];
    const std::vector<ColourNumber> parents = parentsOf(colour, pure, strokes);
    const bool mixed = !parents.empty() && around.beside(k, parents) >= kMostlyBeside;
    const bool rare =
        !pure.empty() && static_cast<double>(count) < kRare * static_cast<double>(pure[0].count);
    if (mixed || (rare && around.beside(k, accepted) >= kNearlyAllBeside)) continue;
    pure.push_back(all[k]);
    accepted.push_back(colour);
    constexpr std::size_t kMostLabels = 255;
    if (pure.size() > kMostLabels) {
      throw FileError("has " + std::to_string(all.size()) +
                      " colours, of which more than 255 are no rims of others; each label is one "
                      "pure colour");
    }
  }
  return pure;
}

}  // namespace

std::string colourText(ColourNumber colour) {
  char text[8];
  std::snprintf(text, sizeof text, "%06x", static_cast<unsigned>(colour));
  return text;
}

bool parseColours(const std::string& text, std::map<ColourNumber, std::size_t>& labels) {
  std::size_t at = 0;
  while (at <= text.size()) {
    const std::size_t end = std::min(text.find(',', at), text.size());
    unsigned colour = 0, label = 0;
    int used = 0;
    const std::string one = text.substr(at, end - at);
    const std::size_t skip = one.starts_with("#") ? 1 : 0;
    const bool hex = one.find_first_not_of("0123456789abcdefABCDEF", skip) == skip + 6 &&
                     one.size() > skip + 7 && one.size() < skip + 11 && one[skip + 6] == '=' &&
                     one.find_first_not_of("0123456789", skip + 7) == std::string::npos;
    if (!hex || std::sscanf(one.c_str() + skip, "%6x=%3u%n", &colour, &label, &used) != 2) {
      return false;
    }
    if (label > 254 || !labels.emplace(colour, label).second) return false;
    at = end + 1;
  }
  return !labels.empty();
}

std::vector<ColourNumber> ColourStrokes::byHue() const {
  const auto key = [](ColourNumber colour) {
    const auto [r, g, b] = channels(colour);
    const int high = std::max({r, g, b}), low = std::min({r, g, b});
    const int range = high - low;
    const double hue = range == 0  ? 0
                       : high == r ? std::fmod(6 + static_cast<double>(g - b) / range, 6)
                       : high == g ? 2 + static_cast<double>(b - r) / range
                                   : 4 + static_cast<double>(r - g) / range;
    return std::tuple(range == 0, hue, high + low, colour);
  };
  std::vector<ColourNumber> colours;
  for (const auto& [colour, count] : counts) colours.push_back(colour);
  std::sort(colours.begin(), colours.end(),
            [&](ColourNumber a, ColourNumber b) { return key(a) < key(b); });
  return colours;
}

ColourStrokes findStrokes(const Raster& picture) {
  ColourStrokes strokes;
  strokes.pixels = colourPlane(picture);
  takeTransparency(picture, strokes);
  std::vector<Counted> all = countColours(strokes);
  if (all.size() > kManyColours) {
    throw FileError("has " + std::to_string(all.size()) +
                    " colours, as photographs have; strokes are of a few pure ones, drawn on a "
                    "layer of their own");
  }
  if (!strokes.transparent && !all.empty()) {
    strokes.unmarked = all[0].colour;
    for (std::size_t p = 0; p < strokes.pixels.size(); ++p) {
      if (strokes.pixels[p] == strokes.unmarked) strokes.marked[p] = false;
    }
    all.erase(all.begin());
  }
  Neighbourhood around(strokes, picture.w);
  around.index(all);
  for (const auto& [colour, count] : pureColours(all, around, strokes)) {
    strokes.counts[colour] = count;
  }
  for (std::size_t p = 0; p < strokes.pixels.size(); ++p) {
    if (!strokes.marked[p] || strokes.counts.contains(strokes.pixels[p])) continue;
    strokes.marked[p] = false;
    ++strokes.left;
  }
  return strokes;
}

}  // namespace namespace_ratseg
