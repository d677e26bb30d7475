#include "micrograph.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "random_field.h"
#include "strokes.h"

namespace namespace_ratseg {

namespace {

// Crystal grains: the cells of a jittered grid's Voronoi diagram.
class Grains {
 public:
  Grains(int w, int h, double size, Random& random)
      : size_(size),
        columns_(static_cast<int>(w / size) + 3),
        rows_(static_cast<int>(h / size) + 3) {
    for (int row = 0; row < rows_; ++row) {
      for (int column = 0; column < columns_; ++column) {
        const Point jitter = random.inRectangle(0.9, 0.9);
        sites_.push_back({(column - 1 + jitter.x) * size, (row - 1 + jitter.y) * size});
      }
    }
  }

  std::size_t count() const { return sites_.size(); }
  Point site(std::size_t k) const { return sites_[k]; }

  struct Place {
    std::size_t grain;
    double toBoundary;  // about the distance to the next grain
  };

  Place find(Point p) const {
    const int column = static_cast<int>(p.x / size_) + 1;
    const int row = static_cast<int>(p.y / size_) + 1;
    double nearest = 1e30;
    double second = 1e30;
    std::size_t grain = 0;
    for (int r = std::max(row - 2, 0); r <= std::min(row + 2, rows_ - 1); ++r) {
      for (int c = std::max(column - 2, 0); c <= std::min(column + 2, columns_ - 1); ++c) {
        const std::size_t k = static_cast<std::size_t>(r) * columns_ + c;
        const double dx = p.x - sites_[k].x;
        const double dy = p.y - sites_[k].y;
        const double distance = std::sqrt(dx * dx + dy * dy);
        if (distance < nearest) {
          second = nearest;
          nearest = distance;
          grain = k;
        } else {
          second = std::min(second, distance);
        }
      }
    }
    return {grain, (second - nearest) / 2};
  }

 private:
  double size_;
  int columns_;
  int rows_;
  std::vector<Point> sites_;
};

// A rounded particle, longer along its axis and with a wavy outline.
struct Particle {
  Point centre;
  Point axis;
  double radius;
  double elongation;

  bool contains(Point p, double waviness) const {
    const double dx = p.x - centre.x;
    const double dy = p.y - centre.y;
    const double along = (dx * axis.x + dy * axis.y) / elongation;
    const double across = dy * axis.x - dx * axis.y;
    return std::sqrt(along * along + across * across) < radius * (1 + 0.3 * waviness);
  }
};

class Painter {
 public:
  Painter(int w, int h, unsigned seed)
      : w_(w),
        h_(h),
        random_(seed),
        grains_(w, h, 62, random_),
        warpX_(w, h, 24, random_),
        warpY_(w, h, 24, random_),
        outline_(w, h, 7, random_),
        mottle_(w, h, 12, random_),
        places_(size()),
        truth_(size()),
        light_(size()) {}

  Micrograph paint() {
    findGrains();
    chooseGrainPhases();
    placeParticles(Micrograph::kIsland, 6800, 5.0, 10.0, true);
    placeParticles(Micrograph::kPore, 9000, 5.0, 11.0, false);
    shade();
    blur();
    Micrograph m;
    m.w = w_;
    m.h = h_;
    m.grey = expose();
    m.truth = truth_;
    m.scribbles = scribble();
    return m;
  }

 private:
  std::size_t size() const { return static_cast<std::size_t>(w_) * static_cast<std::size_t>(h_); }
  std::size_t index(int x, int y) const { return static_cast<std::size_t>(y) * w_ + x; }

  void findGrains() {
    for (int y = 0; y < h_; ++y) {
      for (int x = 0; x < w_; ++x) {
        const double px = x + 7 * warpX_.at(x, y);
        const double py = y + 7 * warpY_.at(x, y);
        places_[index(x, y)] =
            grains_.find({std::clamp(px, 0.0, w_ - 1.0), std::clamp(py, 0.0, h_ - 1.0)});
      }
    }
  }

  // Lamellar grains stand in groups, between matrix grains.
  void chooseGrainPhases() {
    const SmoothField groups(w_, h_, 130, random_);
    for (std::size_t k = 0; k < grains_.count(); ++k) {
      const Point s = grains_.site(k);
      const double group =
          groups.at(std::clamp(s.x, 0.0, w_ - 1.0), std::clamp(s.y, 0.0, h_ - 1.0));
      Grain grain;
      grain.phase =
          group + 0.5 * random_.uniform(-1, 1) > 0.12 ? Micrograph::kLamellar : Micrograph::kMatrix;
      grain.brightness = random_.uniform(-1, 1);
      grain.lamellae = random_.direction();
      grain.spacing = random_.uniform(5, 8);
      grain_.push_back(grain);
    }
    for (std::size_t i = 0; i < size(); ++i) truth_[i] = grain_[places_[i].grain].phase;
  }

  // Particles of a phase, one on each areaEach pixels: on the matrix's grain boundaries or
  // anywhere.
  void placeParticles(Micrograph::Phase phase, std::size_t areaEach, double smallest,
                      double largest, bool onBoundaries) {
    const std::size_t count = size() / areaEach;
    std::size_t placed = 0;
    for (std::size_t tries = 0; placed < count && tries < 100 * count; ++tries) {
      Particle particle;
      particle.centre = random_.inRectangle(w_, h_);
      particle.axis = random_.direction();
      particle.radius = random_.uniform(smallest, largest);
      particle.elongation = random_.uniform(1, 1.8);
      const std::size_t i =
          index(static_cast<int>(particle.centre.x), static_cast<int>(particle.centre.y));
      if (onBoundaries && (truth_[i] != Micrograph::kMatrix || places_[i].toBoundary > 5)) continue;
      stamp(particle, phase);
      ++placed;
    }
  }

  void stamp(const Particle& particle, Micrograph::Phase phase) {
    const double reach = particle.radius * particle.elongation * 1.3 + 1;
    const int x0 = std::max(static_cast<int>(particle.centre.x - reach), 0);
    const int x1 = std::min(static_cast<int>(particle.centre.x + reach), w_ - 1);
    const int y0 = std::max(static_cast<int>(particle.centre.y - reach), 0);
    const int y1 = std::min(static_cast<int>(particle.centre.y + reach), h_ - 1);
    for (int y = y0; y <= y1; ++y) {
      for (int x = x0; x <= x1; ++x) {
        const Point p = {static_cast<double>(x), static_cast<double>(y)};
        if (particle.contains(p, outline_.at(x, y))) truth_[index(x, y)] = phase;
      }
    }
  }

  // Light that each pixel sends back, 0 to 1.
  void shade() {
    for (int y = 0; y < h_; ++y) {
      for (int x = 0; x < w_; ++x) {
        const std::size_t i = index(x, y);
        light_[i] = reflectance(x, y, places_[i]) + 0.025 * mottle_.at(x, y);
      }
    }
  }

  double reflectance(int x, int y, const Grains::Place& place) const {
    const Grain& grain = grain_[place.grain];
    switch (truth_[index(x, y)]) {
      case Micrograph::kLamellar: {
        const double phase = (x * grain.lamellae.x + y * grain.lamellae.y) / grain.spacing;
        const double t = phase - std::floor(phase);
        const double wave = 16 * t * t * (1 - t) * (1 - t);  // 0 to 1
        return 0.32 + 0.20 * wave + 0.02 * grain.brightness;
      }
      case Micrograph::kIsland:
        return 0.47;
      case Micrograph::kPore:
        return 0.20;
      default: {
        const double groove = place.toBoundary < 1.2 ? -0.10 : 0.0;
        return 0.62 + 0.05 * grain.brightness + groove;
      }
    }
  }

  // The lens: a binomial filter of five pixels along each axis.
  void blur() {
    std::vector<double> rows(size());
    const auto clampX = [this](int x) { return std::clamp(x, 0, w_ - 1); };
    const auto clampY = [this](int y) { return std::clamp(y, 0, h_ - 1); };
    for (int y = 0; y < h_; ++y) {
      for (int x = 0; x < w_; ++x) {
        const auto at = [&](int dx) { return light_[index(clampX(x + dx), y)]; };
        rows[index(x, y)] = (at(-2) + at(2) + 4 * (at(-1) + at(1)) + 6 * at(0)) / 16;
      }
    }
    for (int y = 0; y < h_; ++y) {
      for (int x = 0; x < w_; ++x) {
        const auto at = [&](int dy) { return rows[index(x, clampY(y + dy))]; };
        light_[index(x, y)] = (at(-2) + at(2) + 4 * (at(-1) + at(1)) + 6 * at(0)) / 16;
      }
    }
  }

  // The lamp, brightest at the upper left, and the sensor's noise.
  std::vector<std::uint8_t> expose() {
    std::vector<std::uint8_t> grey(size());
    for (int y = 0; y < h_; ++y) {
      for (int x = 0; x < w_; ++x) {
        const double dx = static_cast<double>(x) / w_ - 0.35;
        const double dy = static_cast<double>(y) / h_ - 0.4;
        const double lamp = 1.06 - 0.24 * (dx * dx + dy * dy);
        const double light = std::max(light_[index(x, y)] * lamp, 0.0);
        const double value = light + (0.01 + 0.05 * std::sqrt(light)) * random_.gaussian();
        grey[index(x, y)] = static_cast<std::uint8_t>(std::clamp(value * 255 + 0.5, 0.0, 255.0));
      }
    }
    return grey;
  }

  std::vector<std::uint8_t> scribble() {
    std::vector<std::uint8_t> scribbles(size());
    const auto draw = [&](Micrograph::Phase phase, const StrokeStyle& style) {
      drawStrokes(scribbles, truth_, w_, h_, phase, style, random_);
    };
    draw(Micrograph::kLamellar, {5, 70, 30, 3});
    draw(Micrograph::kIsland, {9, 14, 6, 2});
    draw(Micrograph::kPore, {5, 14, 6, 2});
    draw(Micrograph::kMatrix, {5, 70, 30, 3});
    return scribbles;
  }

  struct Grain {
    Micrograph::Phase phase = Micrograph::kMatrix;
    double brightness = 0;
    Point lamellae;
    double spacing = 1;
  };

  int w_;
  int h_;
  Random random_;
  Grains grains_;
  SmoothField warpX_, warpY_, outline_, mottle_;
  std::vector<Grain> grain_;
  std::vector<Grains::Place> places_;
  std::vector<std::uint8_t> truth_;
  std::vector<double> light_;
};

}  // namespace

Micrograph Micrograph::draw(int w, int h, unsigned seed) { return Painter(w, h, seed).paint(); }

}  // namespace namespace_ratseg
