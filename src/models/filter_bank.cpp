#include "models/filter_bank.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "device/host/host_launch.h"
#include "models/weighted_rows.h"
#include "util/cielab.h"

namespace namespace_ratseg {

namespace {

constexpr const char* kFilterNames[] = {"gaussian",    "gradient",  "laplacian", "structure 0",
                                        "structure 1", "hessian 0", "hessian 1"};
static_assert(std::size(kFilterNames) == FilterBank::kFilterCount);
enum Filter { gaussian, gradient, laplacian, structure0, structure1, hessian0, hessian1 };

// The window of the structure tensor, in units of the scale.
constexpr double kWindow = 0.5;

// The place in [0, n) that mirroring about the outermost ones takes i to.
std::size_t mirrored(std::ptrdiff_t i, std::size_t n) {
  if (n == 1) return 0;
  const auto last = static_cast<std::ptrdiff_t>(n) - 1;
  const std::ptrdiff_t period = 2 * last;
  i = ((i % period) + period) % period;
  return static_cast<std::size_t>(i <= last ? i : period - i);
}

// The derivative of that order, 0 to 2, of a Gaussian that is sampled up to 4 sigma and sums to 1;
// to be correlated with.
std::vector<float> gaussianKernel(double sigma, unsigned order) {
  const auto radius = static_cast<int>(4 * sigma + 0.5);
  const double variance = sigma * sigma;
  double sum = 0;
  for (int x = -radius; x <= radius; ++x) sum += std::exp(-0.5 * x * x / variance);
  std::vector<float> kernel;
  for (int x = -radius; x <= radius; ++x) {
    const double factor = order == 0   ? 1
                          : order == 1 ? x / variance
                                       : (x * x - variance) / (variance * variance);
    kernel.push_back(static_cast<float>(factor * std::exp(-0.5 * x * x / variance) / sum));
  }
  return kernel;
}

float sane(float v) {
  constexpr float kMost = 1e9f;
  return std::isfinite(v) ? std::clamp(v, -kMost, kMost) : 0.0f;
}

// Eigenvalues of a symmetric matrix, the greater one first.
struct Eigenvalues {
  float first, second;
  Eigenvalues(float xx, float xy, float yy) {
    const float mean = (xx + yy) / 2, half = (xx - yy) / 2;
    const float root = std::sqrt(half * half + xy * xy);
    first = mean + root;
    second = mean - root;
  }
};

// Filters along a row, with its ends mirrored.
class RowFilter {
 public:
  explicit RowFilter(std::size_t w) : w_(w) {}

  void set(const float* row, std::size_t margin) {
    margin_ = margin;
    padded_.resize(w_ + 2 * margin);
    std::copy(row, row + w_, padded_.begin() + static_cast<std::ptrdiff_t>(margin));
    for (std::size_t k = 1; k <= margin; ++k) {
      const auto step = static_cast<std::ptrdiff_t>(k);
      padded_[margin - k] = row[mirrored(-step, w_)];
      padded_[margin + w_ - 1 + k] = row[mirrored(static_cast<std::ptrdiff_t>(w_) - 1 + step, w_)];
    }
  }

  void filter(const std::vector<float>& kernel, float* out) {
    const std::size_t radius = kernel.size() / 2;
    rows_.clear();
    for (std::size_t j = 0; j < kernel.size(); ++j) {
      rows_.push_back(padded_.data() + margin_ - radius + j);
    }
    weightedRows()(rows_.data(), kernel.data(), kernel.size(), out, w_);
  }

 private:
  std::size_t w_;
  std::size_t margin_ = 0;
  std::vector<float> padded_;
  std::vector<const float*> rows_;
};

}  // namespace

struct FilterBank::Rows {
  std::size_t w = 0, h = 0;  // of the picture
  std::size_t begin = 0, end = 0;
  std::vector<float> values;

  Rows(const Channels& picture, std::size_t first, std::size_t last)
      : w(picture.w), h(picture.h), begin(first), end(last), values((last - first) * w) {}

  float* row(std::size_t y) { return values.data() + (y - begin) * w; }
  const float* row(std::size_t y) const { return values.data() + (y - begin) * w; }

  // out = the rows around y, which is in the picture, weighted by the kernel.
  void filter(std::size_t y, const std::vector<float>& kernel, float* out) const {
    thread_local std::vector<const float*> rows;
    rows.clear();
    const auto radius = static_cast<std::ptrdiff_t>(kernel.size() / 2);
    for (std::ptrdiff_t j = -radius; j <= radius; ++j) {
      rows.push_back(row(mirrored(static_cast<std::ptrdiff_t>(y) + j, h)));
    }
    weightedRows()(rows.data(), kernel.data(), kernel.size(), out, w);
  }
};

std::size_t FilterBank::Kernels::reach() const {
  return std::max({radius(0), radius(1), radius(2)}) + outerRadius();
}

FilterBank::FilterBank(const Channels& picture) : picture_(picture), planes_(picture.data.size()) {
  for (const double scale : kScales) {
    Kernels kernels;
    for (unsigned k = 0; k < 3; ++k) kernels.order[k] = gaussianKernel(scale, k);
    kernels.outer = gaussianKernel(kWindow * scale, 0);
    kernels_.push_back(kernels);
  }
}

std::string FilterBank::featureName(std::size_t planes, std::size_t feature) {
  if (feature < planes) return "plane " + std::to_string(feature);
  const std::size_t filter = (feature - planes) % kFilterCount;
  const std::size_t scale = (feature - planes) / kFilterCount % kScaleCount;
  const std::size_t plane = (feature - planes) / kFilterCount / kScaleCount;
  std::string number = std::to_string(kScales[scale]);
  number.resize(number.find('.') + 2);
  return "plane " + std::to_string(plane) + ", " + kFilterNames[filter] + ", scale " + number;
}

std::size_t FilterBank::rowsWithin(std::size_t bytes) const {
  const std::size_t perRow = picture_.w * featureCount() * sizeof(float);
  return std::clamp<std::size_t>(bytes / perRow, 1, picture_.h);
}

FilterBank::Rows FilterBank::planeRows(std::size_t plane, std::size_t first,
                                       std::size_t last) const {
  Rows rows(picture_, first, last);
  const std::size_t w = picture_.w, step = picture_.step;
  parallelFor(last - first, rows.values.size(), [&](std::size_t k) {
    float* out = rows.row(first + k);
    const std::size_t offset = (first + k) * w * step;
    const auto at = [&](std::size_t c, std::size_t x) {
      return sane(picture_.data[c][offset + x * step]);
    };
    for (std::size_t x = 0; x < w; ++x) {
      if (picture_.kind != ChannelKind::colour) {
        out[x] = at(plane, x);
        continue;
      }
      const float4 lab = tile::labFromRgb({at(0, x), at(1, x), at(2, x), 0});
      out[x] = plane == 0 ? lab.x : plane == 1 ? lab.y : lab.z;
    }
  });
  return rows;
}

void FilterBank::compute(std::size_t first, std::size_t last, float* out,
                         const std::function<void()>& step) const {
  const std::size_t size = (last - first) * picture_.w;
  std::size_t reach = 0;
  for (const Kernels& kernels : kernels_) reach = std::max(reach, kernels.reach());
  const std::size_t from = first > reach ? first - reach : 0;
  const std::size_t to = std::min(picture_.h, last + reach);
  for (std::size_t plane = 0; plane < planes_; ++plane) {
    const Rows rows = planeRows(plane, from, to);
    std::copy_n(rows.row(first), size, out + plane * size);
    for (std::size_t scale = 0; scale < kScaleCount; ++scale) {
      const std::size_t feature = planes_ + (plane * kScaleCount + scale) * kFilterCount;
      computeScale(kernels_[scale], rows, first, last, out + feature * size);
      if (step) step();
    }
  }
}

// First along the rows, then across them. The structure tensor's products are filtered once more,
// and mirrored at the borders of the picture as they are there.
void FilterBank::computeScale(const Kernels& kernels, const Rows& plane, std::size_t first,
                              std::size_t last, float* out) const {
  const std::size_t w = picture_.w, h = picture_.h, size = (last - first) * w;
  const std::size_t outer = kernels.outerRadius();
  const std::size_t inner = std::max({kernels.radius(0), kernels.radius(1), kernels.radius(2)});
  const std::size_t begin = first > outer ? first - outer : 0;
  const std::size_t end = std::min(h, last + outer);
  const std::size_t from = begin > inner ? begin - inner : 0;
  const std::size_t to = std::min(h, end + inner);
  Rows along[3] = {{picture_, from, to}, {picture_, from, to}, {picture_, from, to}};
  parallelFor(to - from, (to - from) * w, [&](std::size_t k) {
    RowFilter filter(w);
    filter.set(plane.row(from + k), inner);
    for (unsigned order = 0; order < 3; ++order) {
      filter.filter(kernels.order[order], along[order].row(from + k));
    }
  });
  const auto plane_of = [&](Filter filter, std::size_t y) {
    return out + filter * size + (y - first) * w;
  };
  Rows products[3] = {{picture_, begin, end}, {picture_, begin, end}, {picture_, begin, end}};
  parallelFor(end - begin, (end - begin) * w, [&](std::size_t k) {
    const std::size_t y = begin + k;
    std::vector<float> dx(w), dy(w), product(w);
    along[1].filter(y, kernels.order[0], dx.data());
    along[0].filter(y, kernels.order[1], dy.data());
    if (y >= first && y < last) {
      float* lengths = plane_of(gradient, y);
      for (std::size_t x = 0; x < w; ++x) lengths[x] = std::sqrt(dx[x] * dx[x] + dy[x] * dy[x]);
    }
    RowFilter filter(w);
    const std::vector<float>* factors[3][2] = {{&dx, &dx}, {&dx, &dy}, {&dy, &dy}};
    for (unsigned i = 0; i < 3; ++i) {
      const std::vector<float>&a = *factors[i][0], &b = *factors[i][1];
      for (std::size_t x = 0; x < w; ++x) product[x] = a[x] * b[x];
      filter.set(product.data(), outer);
      filter.filter(kernels.outer, products[i].row(y));
    }
  });
  parallelFor(last - first, size, [&](std::size_t k) {
    const std::size_t y = first + k;
    along[0].filter(y, kernels.order[0], plane_of(gaussian, y));
    std::vector<float> xx(w), xy(w), yy(w);
    along[2].filter(y, kernels.order[0], xx.data());
    along[1].filter(y, kernels.order[1], xy.data());
    along[0].filter(y, kernels.order[2], yy.data());
    for (std::size_t x = 0; x < w; ++x) {
      const Eigenvalues values(xx[x], xy[x], yy[x]);
      plane_of(laplacian, y)[x] = xx[x] + yy[x];
      plane_of(hessian0, y)[x] = values.first;
      plane_of(hessian1, y)[x] = values.second;
    }
    products[0].filter(y, kernels.outer, xx.data());
    products[1].filter(y, kernels.outer, xy.data());
    products[2].filter(y, kernels.outer, yy.data());
    for (std::size_t x = 0; x < w; ++x) {
      const Eigenvalues values(xx[x], xy[x], yy[x]);
      plane_of(structure0, y)[x] = values.first;
      plane_of(structure1, y)[x] = values.second;
    }
  });
}

}  // namespace namespace_ratseg
