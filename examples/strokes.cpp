#include "strokes.h"

namespace namespace_ratseg {

namespace {

// Whether all pixels at most margin away from p, along both axes, have the label.
bool isInside(const std::vector<std::uint8_t>& truth, int w, int h, Point p, std::uint8_t label,
              int margin) {
  const int x0 = static_cast<int>(p.x);
  const int y0 = static_cast<int>(p.y);
  if (x0 < margin || y0 < margin || x0 + margin >= w || y0 + margin >= h) return false;
  for (int y = y0 - margin; y <= y0 + margin; ++y) {
    for (int x = x0 - margin; x <= x0 + margin; ++x) {
      if (truth[static_cast<std::size_t>(y) * w + x] != label) return false;
    }
  }
  return true;
}

// A pen's way from p, pixel by pixel, until it would leave the label or is long enough.
std::vector<Point> penWay(const std::vector<std::uint8_t>& truth, int w, int h, Point p,
                          std::uint8_t label, const StrokeStyle& style, Random& random) {
  std::vector<Point> way;
  Point d = random.direction();
  double bend = random.uniform(-0.04, 0.04);
  while (static_cast<int>(way.size()) < style.length &&
         isInside(truth, w, h, p, label, style.margin)) {
    way.push_back(p);
    bend += random.uniform(-0.01, 0.01);
    const Point turned = {d.x - bend * d.y, d.y + bend * d.x};
    const double length = std::sqrt(turned.x * turned.x + turned.y * turned.y);
    d = {turned.x / length, turned.y / length};
    p = {p.x + d.x, p.y + d.y};
  }
  return way;
}

}  // namespace

void drawStrokes(std::vector<std::uint8_t>& scribbles, const std::vector<std::uint8_t>& truth,
                 int w, int h, std::uint8_t label, const StrokeStyle& style, Random& random) {
  constexpr int kTries = 20000;
  int drawn = 0;
  for (int k = 0; k < kTries && drawn < style.strokes; ++k) {
    const Point start = random.inRectangle(w, h);
    const auto way = penWay(truth, w, h, start, label, style, random);
    if (static_cast<int>(way.size()) < style.shortest) continue;
    ++drawn;
    for (const Point& p : way) {
      // A pen three pixels wide.
      for (int y = static_cast<int>(p.y) - 1; y <= static_cast<int>(p.y) + 1; ++y) {
        for (int x = static_cast<int>(p.x) - 1; x <= static_cast<int>(p.x) + 1; ++x) {
          scribbles[static_cast<std::size_t>(y) * w + x] = static_cast<std::uint8_t>(label + 1);
        }
      }
    }
  }
}

}  // namespace namespace_ratseg
