#include "ratseg/ratseg.hpp"

#include <omp.h>

#include <algorithm>
#include <cfloat>
#include <chrono>
#include <cmath>
#include <exception>
#include <new>
#include <numeric>
#include <sstream>
#include <utility>

#include "algorithms/rat_segments/alg/rat_seg.h"
#include "device/console.h"
#include "device/host/host_config.h"
#include "device/runtime.h"
#include "device/selection.h"
#include "util/cudadefs.h"
#include "util/imagetransforms.h"

namespace ratseg {

namespace inner = namespace_ratseg;

// ---------------------------------------------------------------------------------------- errors

Error::~Error() = default;
InvalidArgument::~InvalidArgument() = default;
OutOfMemory::~OutOfMemory() = default;
DeviceError::~DeviceError() = default;

InvalidArgument::InvalidArgument(const std::string& argument, const std::string& expected,
                                 const std::string& found)
    : Error(argument + ": expected " + expected + ", but found " + found),
      argument_(argument),
      expected_(expected),
      found_(found) {}

namespace {

template <class T>
std::string text(const T& value) {
  return (std::ostringstream() << value).str();
}

// ----------------------------------------------------------------------------- what lies below

// Keeps what the code below says; where it would end the process it throws.
class QuietConsole final : public inner::Console {
 public:
  std::ostream& out() override { return said_; }
  std::ostream& error() override { return said_; }

  // The text written so far, in one line.
  std::string line() const {
    std::string all = said_.str();
    while (!all.empty() && all.back() == '\n') all.pop_back();
    all.erase(0, all.find_first_not_of('\n'));
    std::replace(all.begin(), all.end(), '\n', ' ');
    return all;
  }

 private:
  void doEnd() override { throw DeviceError(line()); }

  std::ostringstream said_;
};

// The host's number of threads, for a scope.
class ThreadsScope {
 public:
  explicit ThreadsScope(int threads) : before_(omp_get_max_threads()) {
    if (threads > 0) omp_set_num_threads(threads);
  }
  ~ThreadsScope() { omp_set_num_threads(before_); }
  ThreadsScope(const ThreadsScope&) = delete;
  ThreadsScope& operator=(const ThreadsScope&) = delete;

 private:
  int before_;
};

inner::Backend& backendOf(const Device& device) {
  inner::Backend* cuda = nullptr;
  if (device.kind() != Device::Kind::host) cuda = inner::cudaBackendIfUsable();
  if (cuda != nullptr) return *cuda;
  if (device.kind() == Device::Kind::cuda) {
    throw DeviceError("there is no CUDA GPU that this library has code for");
  }
  return inner::hostBackend();
}

// The device of the calling thread while one of its calls lasts.
class Below {
 public:
  explicit Below(const Device& device)
      : scope_(console), backend_(backendOf(device)), threads_(device.threads()) {}

  QuietConsole console;

 private:
  inner::ConsoleScope scope_;
  inner::ThreadBackendScope backend_;
  ThreadsScope threads_;
};

inner::cudaDeviceProp propertiesOf(const Device& device) {
  const Below below(device);
  int count = 0;
  inner::cudaGetDeviceCount(&count);
  inner::cudaDeviceProp properties;
  if (device.number() < 0 || device.number() >= count ||
      inner::cudaGetDeviceProperties(&properties, device.number()) != inner::cudaSuccess) {
    inner::cudaGetLastError();
    throw DeviceError("there is no CUDA GPU " + std::to_string(device.number()) + ", but " +
                      std::to_string(count));
  }
  return properties;
}

// ----------------------------------------------------------------------------------- arguments

void checkSize(std::size_t labels, std::size_t rows, std::size_t columns) {
  if (labels == 0 || rows == 0 || columns == 0) {
    throw InvalidArgument("size", "at least one label, row and column",
                          std::to_string(labels) + " labels, " + std::to_string(rows) +
                              " rows and " + std::to_string(columns) + " columns");
  }
}

std::string sizeText(std::size_t rows, std::size_t columns) {
  return std::to_string(rows) + " rows x " + std::to_string(columns) + " columns";
}

// The position of an element, for messages.
std::string place(std::size_t index, std::size_t rows, std::size_t columns, bool planes) {
  const std::size_t pixel = index % (rows * columns);
  const std::string where =
      "row " + std::to_string(pixel / columns) + ", column " + std::to_string(pixel % columns);
  return planes ? "label " + std::to_string(index / (rows * columns)) + ", " + where : where;
}

template <class T>
void checkPicture(const char* argument, const Picture<T>& picture, std::size_t rows,
                  std::size_t columns) {
  if (picture.data == nullptr) throw InvalidArgument(argument, "an array", "a null pointer");
  if (picture.rows != rows || picture.columns != columns) {
    throw InvalidArgument(argument, sizeText(rows, columns),
                          sizeText(picture.rows, picture.columns));
  }
}

template <class T>
void checkPicture(const char* argument, const Picture<T>& picture) {
  checkSize(1, picture.rows, picture.columns);
  checkPicture(argument, picture, picture.rows, picture.columns);
}

void checkShares(const Shares& shares, std::size_t labels) {
  const bool ofImage = shares.of == Shares::Of::image;
  const std::size_t expected = ofImage ? labels : labels - 1;
  const std::string count = std::to_string(expected) + " numbers, one for each " +
                            (ofImage ? "label" : "foreground label (all but the last)");
  if (shares.means.size() != expected) {
    throw InvalidArgument("shares.means", count, std::to_string(shares.means.size()));
  }
  if (shares.spreads.size() != expected) {
    throw InvalidArgument("shares.spreads", count, std::to_string(shares.spreads.size()));
  }
  double sum = 0;
  for (std::size_t k = 0; k < expected; ++k) {
    const float mean = shares.means[k];
    const float spread = shares.spreads[k];
    if (!(mean >= 0 && mean <= 1)) {
      throw InvalidArgument("shares.means", "numbers from 0 to 1",
                            text(mean) + " for label " + std::to_string(k));
    }
    if (!(spread >= 0 && spread <= FLT_MAX)) {
      throw InvalidArgument("shares.spreads", "numbers from 0 on",
                            text(spread) + " for label " + std::to_string(k));
    }
    sum += static_cast<double>(mean);
  }
  constexpr double kTolerance = 0.05;
  if (expected > 1 && std::abs(sum - 1) > kTolerance) {
    throw InvalidArgument(
        "shares.means",
        std::string("parts of the ") + (ofImage ? "picture" : "foreground") + " that sum to 1",
        "a sum of " + text(sum));
  }
}

void checkSettings(const Settings& s) {
  const auto check = [](const char* name, bool ok, const char* expected, float value) {
    if (!ok) throw InvalidArgument(std::string("settings.") + name, expected, text(value));
  };
  check("lambda", s.lambda >= 0, "a number from 0 on", s.lambda);
  check("mu", !std::isnan(s.mu), "a number", s.mu);
  check("epsilon", s.epsilon > 0, "a number above 0", s.epsilon);
  check("tolerance", s.tolerance >= 0, "a number from 0 on", s.tolerance);
  if (!(s.progressSeconds >= 0)) {
    throw InvalidArgument("settings.progressSeconds", "a number from 0 on",
                          text(s.progressSeconds));
  }
}

// ------------------------------------------------------------------------------------- results

// The label of the largest value at each pixel, the lowest one on ties; values of at most 0 and NaN
// count as 0.
std::vector<std::int32_t> bestLabels(const std::vector<float>& u, std::size_t labels,
                                     std::size_t pixels) {
  std::vector<std::int32_t> result(pixels);
  std::vector<float> best(pixels);
  for (std::size_t i = 0; i < labels; ++i) {
    for (std::size_t p = 0; p < pixels; ++p) {
      if (u[i * pixels + p] <= best[p] || std::isnan(u[i * pixels + p])) continue;
      best[p] = u[i * pixels + p];
      result[p] = static_cast<std::int32_t>(i);
    }
  }
  return result;
}

std::optional<Certificate> certificateOf(const inner::Statistics& s) {
  if (s.certifiedIteration == 0) return std::nullopt;
  return Certificate{s.certifiedIteration, s.energy, s.labelingEnergy, s.bound, s.gap,
                     s.labelingGap};
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

// --------------------------------------------------------------------------------------- devices

std::vector<Device> Device::list() {
  std::vector<Device> all;
  if (inner::cudaBackendIfUsable() != nullptr) {
    const Below below(automatic());
    int count = 0;
    inner::cudaGetDeviceCount(&count);
    for (int k = 0; k < count; ++k) all.push_back(cuda(k));
  }
  all.push_back(host());
  return all;
}

Device Device::resolved() const {
  if (kind_ == Kind::automatic) return inner::cudaBackendIfUsable() != nullptr ? cuda() : host();
  if (kind_ == Kind::host && value_ < 0) {
    throw InvalidArgument("device", "a number of threads from 0 on", std::to_string(value_));
  }
  propertiesOf(*this);
  return *this;
}

std::string Device::name() const { return propertiesOf(resolved()).name; }

std::size_t Device::memory() const {
  const Device device = resolved();
  const Below below(device);
  int before = 0;
  std::size_t free = 0, all = 0;
  inner::cudaGetDevice(&before);
  inner::cudaSetDevice(device.number());
  inner::cudaMemGetInfo(&free, &all);
  inner::cudaSetDevice(before);
  return all;
}

// ---------------------------------------------------------------------------------------- solver

struct Solver::Impl {
  Impl(std::size_t labels_, std::size_t rows_, std::size_t columns_, const Shares& shares,
       const Device& device_)
      : labels(labels_), rows(rows_), columns(columns_), device(device_.resolved()), of(shares.of) {
    const Below below(device);
    inner::Params& par = solver.getParams();
    par.w = columns;
    par.h = rows;
    par.n = planes();
    par.outModulo = 0;
    par.gpu = {device.number()};
    try {
      if (solver.alloc()) return;
    } catch (const std::bad_alloc&) {
      throw OutOfMemory("not enough memory on the host for the solver");
    }
    solver.free();
    const std::string reason = below.console.line();
    if (reason.find("Insufficient GPU memory") != std::string::npos) {
      throw OutOfMemory("not enough memory on " + device.name() + " for " +
                        std::to_string(planes()) + " labels and " + sizeText(rows, columns));
    }
    throw DeviceError(reason);
  }

  ~Impl() {
    if (!dead.empty()) return;
    try {
      const Below below(device);
      solver.free();
    } catch (...) {  // a device that failed; its memory goes with the process
    }
  }

  // With the void label.
  std::size_t planes() const { return of == Shares::Of::image ? labels + 1 : labels; }
  std::size_t pixels() const { return rows * columns; }

  // Calls f with the device, and turns what it throws into the errors of this interface.
  template <class F>
  auto guarded(F&& f) {
    if (!dead.empty()) throw DeviceError("the solver ended before: " + dead);
    const Below below(device);
    try {
      return f();
    } catch (const DeviceError& e) {
      dead = e.what();
      throw;
    } catch (const std::bad_alloc&) {
      throw OutOfMemory("not enough memory on the host");
    }
  }

  const std::size_t labels, rows, columns;
  const Device device;
  const Shares::Of of;
  inner::RatSeg solver;
  bool hasCosts = false;
  std::string dead;  // why, when the device has failed
};

namespace {

// Passes a run's progress on.
class Watcher final : public inner::RunWatcher {
 public:
  Watcher(const Settings& settings, std::size_t labels, std::size_t planes, std::size_t pixels)
      : settings_(settings), labels_(labels), planes_(planes), pixels_(pixels) {}

  bool goOn(inner::RunState& state) override {
    if (settings_.stop.stop_requested()) return false;
    if (!settings_.progress || !isDue(state.statistics().iterations)) return true;
    Seen seen(*this, state);
    return settings_.progress(seen);
  }

 private:
  class Seen final : public Progress {
   public:
    Seen(const Watcher& watcher, inner::RunState& state) : watcher_(watcher), state_(state) {
      iterations = state.statistics().iterations;
      limit = watcher.settings_.iterations;
      seconds = secondsSince(watcher.start_);
      certificate = certificateOf(state.statistics());
    }
    std::vector<std::int32_t> labels() const override {
      std::vector<float> u(watcher_.planes_ * watcher_.pixels_);
      state_.getSolution(u.data());
      return bestLabels(u, watcher_.labels_, watcher_.pixels_);
    }

   private:
    const Watcher& watcher_;
    inner::RunState& state_;
  };

  bool isDue(std::size_t iterations) {
    const double seconds = secondsSince(start_);
    const bool first = !called_;
    const bool byCount = settings_.progressIterations > 0 &&
                         iterations >= lastIterations_ + settings_.progressIterations;
    const bool byTime =
        settings_.progressSeconds > 0 && seconds >= lastSeconds_ + settings_.progressSeconds;
    if (!first && !byCount && !byTime) return false;
    called_ = true;
    lastIterations_ = iterations;
    lastSeconds_ = seconds;
    return true;
  }

  const Settings& settings_;
  const std::size_t labels_, planes_, pixels_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  bool called_ = false;
  std::size_t lastIterations_ = 0;
  double lastSeconds_ = 0;
};

void countShares(Result& result, std::size_t labels, bool ofImage) {
  std::vector<std::size_t> counts(labels);
  for (const std::int32_t label : result.labels) ++counts[static_cast<std::size_t>(label)];
  const auto part = [](std::size_t count, std::size_t whole) {
    return whole == 0 ? 0.0 : static_cast<double>(count) / static_cast<double>(whole);
  };
  for (const std::size_t count : counts) {
    result.sharesOfImage.push_back(part(count, result.labels.size()));
  }
  if (ofImage) return;
  const std::size_t foreground = result.labels.size() - counts.back();
  for (std::size_t k = 0; k + 1 < labels; ++k) {
    result.sharesOfForeground.push_back(part(counts[k], foreground));
  }
}

}  // namespace

Solver::Solver(std::size_t labels, std::size_t rows, std::size_t columns, const Shares& shares,
               Device device) {
  checkSize(labels, rows, columns);
  checkShares(shares, labels);
  impl_ = std::make_unique<Impl>(labels, rows, columns, shares, device);
  setShares(shares);
}
Solver::~Solver() = default;
Solver::Solver(Solver&&) noexcept = default;
Solver& Solver::operator=(Solver&&) noexcept = default;

void Solver::setShares(const Shares& shares) {
  checkShares(shares, impl_->labels);
  if (shares.of != impl_->of) {
    throw InvalidArgument("shares.of", "the same whole as when the solver was made", "another one");
  }
  std::vector<float> means = shares.means;
  std::vector<float> spreads = shares.spreads;
  means.push_back(0);
  spreads.push_back(0);
  impl_->guarded([&] {
    impl_->solver.setRatios(means.data(), spreads.data(), means.size() - 1, nullptr, nullptr);
  });
}

void Solver::setCosts(const Planes& costs) {
  const Impl& s = *impl_;
  if (costs.data == nullptr) throw InvalidArgument("costs", "an array", "a null pointer");
  if (costs.labels != s.labels || costs.rows != s.rows || costs.columns != s.columns) {
    throw InvalidArgument(
        "costs", std::to_string(s.labels) + " labels x " + sizeText(s.rows, s.columns),
        std::to_string(costs.labels) + " labels x " + sizeText(costs.rows, costs.columns));
  }
  float largest = 0;
  for (std::size_t k = 0; k < costs.size(); ++k) {
    const float cost = std::abs(costs.data[k]);
    if (std::isnan(cost)) {
      throw InvalidArgument("costs", "numbers", "NaN at " + place(k, s.rows, s.columns, true));
    }
    if (cost < FLT_MAX) largest = std::max(largest, cost);
  }
  impl_->guarded([&] {
    if (s.planes() == s.labels) {
      impl_->solver.setDataterm(const_cast<float*>(costs.data));
      return;
    }
    constexpr float kVoid = 100;
    const float voidCost = largest > 0 ? std::min(kVoid * largest, 1e30f) : kVoid;
    std::vector<float> rho(s.planes() * s.pixels(), voidCost);
    std::copy_n(costs.data, costs.size(), rho.begin());
    impl_->solver.setDataterm(rho.data());
  });
  impl_->hasCosts = true;
}

void Solver::setWeight(const Picture<float>& weight) {
  checkPicture("weight", weight, impl_->rows, impl_->columns);
  for (std::size_t k = 0; k < weight.size(); ++k) {
    if (weight.data[k] >= 0) continue;
    throw InvalidArgument(
        "weight", "numbers from 0 on",
        text(weight.data[k]) + " at " + place(k, weight.rows, weight.columns, false));
  }
  impl_->guarded([&] { impl_->solver.setWeight(const_cast<float*>(weight.data)); });
}

Result Solver::run(const Settings& settings) {
  checkSettings(settings);
  if (!impl_->hasCosts) throw InvalidArgument("costs", "setCosts() before run()", "none");
  Impl& s = *impl_;
  return s.guarded([&] {
    Watcher watcher(settings, s.labels, s.planes(), s.pixels());
    inner::Params& par = s.solver.getParams();
    par.lambda = settings.lambda;
    par.mu = settings.mu;
    par.eps = settings.epsilon;
    par.Nsteps = settings.iterations;
    par.tolerance = settings.tolerance;
    par.accelerate = settings.accelerate;
    par.watcher = &watcher;
    s.solver.reinit();
    Result result;
    const auto start = std::chrono::steady_clock::now();
    s.solver.run();
    result.seconds = secondsSince(start);
    par.watcher = nullptr;

    std::vector<float> u(s.planes() * s.pixels());
    s.solver.getSolution_smooth(u.data());
    result.rows = s.rows;
    result.columns = s.columns;
    result.labels = bestLabels(u, s.labels, s.pixels());
    if (settings.keepRelaxed) {
      u.resize(s.labels * s.pixels());
      result.relaxed = std::move(u);
    }
    countShares(result, s.labels, s.of == Shares::Of::image);
    const inner::Statistics& done = s.solver.getStatistics();
    result.certificate = certificateOf(done);
    result.iterations = done.iterations;
    result.finite = done.finite;
    result.reason = done.stopped        ? Stop::asked
                    : done.toleranceMet ? Stop::tolerance
                                        : Stop::iterations;
    result.device = s.device;
    return result;
  });
}

Result segment(const Planes& costs, const Shares& shares, const Settings& settings,
               const Picture<float>& weight, Device device) {
  checkSettings(settings);
  Solver solver(costs.labels, costs.rows, costs.columns, shares, device);
  solver.setCosts(costs);
  if (weight.data != nullptr) solver.setWeight(weight);
  return solver.run(settings);
}

// ---------------------------------------------------------------------------------------- inputs

std::vector<float> scribbleCosts(const Picture<Colour>& image, const Picture<std::uint8_t>& marks,
                                 std::size_t labels, float sigma, float largest, Device device) {
  checkPicture("image", image);
  checkPicture("marks", marks, image.rows, image.columns);
  if (!(sigma > 0 && sigma <= FLT_MAX)) {
    throw InvalidArgument("sigma", "a number above 0", text(sigma));
  }
  if (!(largest > 0 && largest <= FLT_MAX)) {
    throw InvalidArgument("largest", "a number above 0", text(largest));
  }
  const std::size_t marked = *std::max_element(marks.data, marks.data + marks.size());
  if (marked == 0) throw InvalidArgument("marks", "marked pixels", "none");
  if (labels == 0) labels = marked;
  if (marked > labels) {
    throw InvalidArgument("marks", "numbers up to " + std::to_string(labels),
                          std::to_string(marked));
  }
  const Device where = device.resolved();
  const Below below(where);
  try {
    std::vector<inner::float4> colours(image.size());
    std::vector<std::vector<inner::float4>> lists(labels);
    for (std::size_t k = 0; k < image.size(); ++k) {
      const Colour& c = image.data[k];
      colours[k] = {c.red, c.green, c.blue, 1};
      if (marks.data[k] > 0) lists[marks.data[k] - 1u].push_back(colours[k]);
    }
    std::vector<inner::float4*> first;
    std::vector<std::size_t> counts;
    for (auto& list : lists) {
      first.push_back(list.data());
      counts.push_back(list.size());
    }
    std::vector<float> costs(labels * image.size());
    inner::RatSeg solver;
    inner::Params& par = solver.getParams();
    par.w = image.columns;
    par.h = image.rows;
    par.n = labels;
    par.gpu = {where.number()};
    if (!solver.alloc()) throw OutOfMemory("not enough memory on " + where.name());
    solver.setDataterm(colours.data(), first.data(), counts.data(), sigma, largest);
    solver.getDataterm(costs.data());
    solver.free();
    return costs;
  } catch (const std::bad_alloc&) {
    throw OutOfMemory("not enough memory on the host");
  }
}

std::vector<float> edgeWeight(const Picture<Colour>& image, float gamma) {
  checkPicture("image", image);
  if (std::isnan(gamma)) throw InvalidArgument("gamma", "a number", "NaN");
  try {
    std::vector<float> weight(image.size(), 1.0f);
    if (gamma == 0) return weight;
    std::vector<inner::float4> colours(image.size());
    for (std::size_t k = 0; k < image.size(); ++k) {
      const Colour& c = image.data[k];
      colours[k] = {c.red, c.green, c.blue, 1};
    }
    inner::ImageTransforms::computeWeight(weight.data(), colours.data(),
                                          static_cast<int>(image.columns),
                                          static_cast<int>(image.rows), 1.0f, &gamma);
    if (!std::isfinite(gamma)) {
      throw InvalidArgument("gamma", "a number from 0 on for an image of a single colour",
                            "a negative one");
    }
    return weight;
  } catch (const std::bad_alloc&) {
    throw OutOfMemory("not enough memory on the host");
  }
}

const char* version() { return RATSEG_VERSION; }

}  // namespace ratseg
