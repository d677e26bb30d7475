#include "models/strokes.h"

#include <algorithm>
#include <map>

namespace namespace_ratseg {

namespace {

// Goes over strokes breadth first.
class Walker {
 public:
  explicit Walker(const Marks& marks) : marks_(marks), seen_(marks.w * marks.h) {}

  // The pixels that hang together with first, the nearest first.
  std::vector<std::size_t> walk(std::size_t first) {
    std::vector<std::size_t> found = {first};
    seen_[first] = true;
    for (std::size_t k = 0; k < found.size(); ++k) visitAround(found[k], found);
    return found;
  }

  void forget(const std::vector<std::size_t>& pixels) {
    for (const std::size_t p : pixels) seen_[p] = false;
  }

  bool isNew(std::size_t p) const { return marks_.values[p] != 0 && !seen_[p]; }

 private:
  void visitAround(std::size_t p, std::vector<std::size_t>& found) {
    const std::size_t x = p % marks_.w, y = p / marks_.w;
    for (std::size_t v = y - (y > 0); v <= std::min(y + 1, marks_.h - 1); ++v) {
      for (std::size_t u = x - (x > 0); u <= std::min(x + 1, marks_.w - 1); ++u) {
        const std::size_t q = v * marks_.w + u;
        if (seen_[q] || marks_.values[q] != marks_.values[p]) continue;
        seen_[q] = true;
        found.push_back(q);
      }
    }
  }

  const Marks& marks_;
  std::vector<bool> seen_;
};

// Cuts the longest pieces until there are as many as folds, as far as pixels go.
void cut(std::vector<Stroke>& pieces, std::size_t folds) {
  const auto shorter = [](const Stroke& a, const Stroke& b) {
    return a.pixels.size() < b.pixels.size();
  };
  while (pieces.size() < folds) {
    Stroke& longest = *std::max_element(pieces.begin(), pieces.end(), shorter);
    if (longest.pixels.size() < 2) return;
    const auto middle =
        longest.pixels.begin() + static_cast<std::ptrdiff_t>((longest.pixels.size() + 1) / 2);
    Stroke rest{longest.label, {middle, longest.pixels.end()}};
    longest.pixels.erase(middle, longest.pixels.end());
    pieces.push_back(std::move(rest));
  }
}

// Gives each piece, the longest first, to the fold that has the fewest pixels of the label.
std::vector<std::uint32_t> foldsOf(const std::vector<Stroke>& pieces, std::size_t folds) {
  std::vector<std::uint32_t> result(pieces.size(), kNeverHeldOut);
  if (pieces.size() < 2) return result;
  std::vector<std::size_t> order(pieces.size());
  for (std::size_t k = 0; k < order.size(); ++k) order[k] = k;
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return pieces[a].pixels.size() > pieces[b].pixels.size();
  });
  std::vector<std::size_t> filled(folds);
  for (const std::size_t k : order) {
    const auto least = std::min_element(filled.begin(), filled.end());
    *least += pieces[k].pixels.size();
    result[k] = static_cast<std::uint32_t>(least - filled.begin());
  }
  return result;
}

}  // namespace

std::vector<Stroke> strokesOf(const Marks& marks) {
  Walker walker(marks);
  std::vector<Stroke> strokes;
  for (std::size_t p = 0; p < marks.w * marks.h; ++p) {
    if (!walker.isNew(p)) continue;
    // The pixel that is reached last is an end.
    const std::vector<std::size_t> found = walker.walk(p);
    walker.forget(found);
    strokes.push_back({marks.values[p] - std::size_t{1}, walker.walk(found.back())});
  }
  return strokes;
}

std::vector<Sample> samplesOf(const std::vector<Stroke>& strokes, std::size_t perLabel,
                              std::size_t folds) {
  std::map<std::size_t, std::vector<Stroke>> byLabel;
  for (const Stroke& stroke : strokes) byLabel[stroke.label].push_back(stroke);
  std::vector<Sample> samples;
  std::uint32_t number = 0;
  for (auto& [label, pieces] : byLabel) {
    cut(pieces, folds);
    const std::vector<std::uint32_t> fold = foldsOf(pieces, folds);
    std::size_t all = 0, seen = 0;
    for (const Stroke& piece : pieces) all += piece.pixels.size();
    const std::size_t taken = std::min(all, perLabel);
    for (std::size_t k = 0; k < pieces.size(); ++k, ++number) {
      for (const std::size_t pixel : pieces[k].pixels) {
        // Each time that the part of the pixels seen passes a multiple of 1 / taken.
        const bool isTaken = (seen + 1) * taken / all > seen * taken / all;
        ++seen;
        if (!isTaken) continue;
        samples.push_back({pixel, static_cast<std::uint32_t>(label), fold[k], number});
      }
    }
  }
  std::sort(samples.begin(), samples.end(),
            [](const Sample& a, const Sample& b) { return a.pixel < b.pixel; });
  return samples;
}

}  // namespace namespace_ratseg
