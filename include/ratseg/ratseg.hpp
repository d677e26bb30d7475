#ifndef RATSEG_RATSEG_HPP
#define RATSEG_RATSEG_HPP

// ratseg as a library: cuts a picture into labels when one knows roughly how much of it each label
// should cover. This header is all that most programs need.
//
//   std::vector<float> costs = ...;  // labels x rows x columns, the background's plane last
//   ratseg::Result r = ratseg::segment({costs.data(), 4, rows, columns},
//                                      {.means = {0.85f, 0.08f, 0.07f}, .spreads = {0.02f, 0.02f,
//                                      0.02f}});
//   // r.labels: rows x columns numbers from 0 to 3
//
// The model, the energy and every update of the iteration: docs/math.md. Settings have the names
// that they have there.
//
// Nothing here prints or ends the process. What goes wrong is an exception derived from
// ratseg::Error; std::bad_alloc is not thrown, but OutOfMemory. Arrays that are handed over belong
// to the caller and are only read, during the call that takes them. Any number of solvers may work
// in any number of threads at the same time; one solver is used by one thread at a time.
//
// The same problem on the same device gives the same bytes, with any number of threads
// (docs/devices.md).

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

#if defined(__GNUC__)
#define RATSEG_API __attribute__((visibility("default")))
#else
#define RATSEG_API
#endif

namespace ratseg {

// ---------------------------------------------------------------------------------------- errors

class RATSEG_API Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~Error() override;
};

// An argument that cannot be used. what() is "ARGUMENT: expected EXPECTED, but found FOUND".
class RATSEG_API InvalidArgument : public Error {
 public:
  InvalidArgument(const std::string& argument, const std::string& expected,
                  const std::string& found);
  ~InvalidArgument() override;

  const std::string& argument() const { return argument_; }
  const std::string& expected() const { return expected_; }
  const std::string& found() const { return found_; }

 private:
  std::string argument_, expected_, found_;
};

// The device, or the host, has too little memory.
class RATSEG_API OutOfMemory : public Error {
 public:
  using Error::Error;
  ~OutOfMemory() override;
};

// There is no such device, or it failed. After a failure of its device a solver is dead: all its
// calls throw this again, and what it had on the device is left to the end of the process.
class RATSEG_API DeviceError : public Error {
 public:
  using Error::Error;
  ~DeviceError() override;
};

// --------------------------------------------------------------------------------------- devices

// The device to compute on: a value.
class RATSEG_API Device {
 public:
  enum class Kind { automatic, host, cuda };

  // The first CUDA GPU that this library has code for, otherwise the host.
  static Device automatic() { return {Kind::automatic, 0}; }
  // The processor, with so many threads at most; 0 means one per core, or what OMP_NUM_THREADS
  // says.
  static Device host(int threads = 0) { return {Kind::host, threads}; }
  // A CUDA GPU by its number.
  static Device cuda(int number = 0) { return {Kind::cuda, number}; }

  // All that there are: the CUDA GPUs that this library has code for, then the host.
  static std::vector<Device> list();

  Kind kind() const { return kind_; }
  int threads() const { return kind_ == Kind::host ? value_ : 0; }  // of the host; 0: its default
  int number() const { return kind_ == Kind::cuda ? value_ : 0; }   // of the GPU

  // "Host (2 threads)", or the GPU's own name. Throws DeviceError where there is no such device.
  std::string name() const;
  // All of its memory, in bytes. Throws DeviceError where there is no such device.
  std::size_t memory() const;

  // The device that automatic() stands for; every other one as it is. Throws DeviceError where
  // there is no such device.
  Device resolved() const;

  bool operator==(const Device&) const = default;

 private:
  Device(Kind kind, int value) : kind_(kind), value_(value) {}

  Kind kind_;
  int value_;
};

// ---------------------------------------------------------------------------------------- arrays

// A picture of one number per pixel, or one colour: rows x columns elements, element (row, column)
// at row * columns + column.
template <class T>
struct Picture {
  const T* data = nullptr;
  std::size_t rows = 0;
  std::size_t columns = 0;

  std::size_t size() const { return rows * columns; }
};

// One picture per label: labels x rows x columns numbers, element (label, row, column) at
// (label * rows + row) * columns + column.
struct Planes {
  const float* data = nullptr;
  std::size_t labels = 0;
  std::size_t rows = 0;
  std::size_t columns = 0;

  std::size_t size() const { return labels * rows * columns; }
};

// Red, green and blue from 0 to 1.
struct Colour {
  float red = 0;
  float green = 0;
  float blue = 0;
};

// ------------------------------------------------------------------------------------ the problem

// The share that each label should cover, and of what.
struct Shares {
  enum class Of {
    // means are parts of the foreground, all pixels without the background label, which is the last
    // one of the costs: one mean fewer than labels. They should sum to 1; how large the foreground
    // is as a whole is left to the costs. With a single foreground label they have nothing to say.
    foreground,
    // means are parts of the whole picture, one for each label, and should sum to 1. The solver
    // adds a void background label that costs 100 times the largest finite cost everywhere, so that
    // it is never chosen; no result shows it.
    image,
  };

  std::vector<float> means;    // from 0 to 1
  std::vector<float> spreads;  // how far off each may be, >= 0; 0 makes a share strict
  Of of = Of::foreground;
};

// The figures of a certificate (docs/math.md, section 11): no labeling has less energy than bound.
struct Certificate {
  std::size_t iteration = 0;  // that they belong to
  double energy = 0;          // of the relaxed labeling
  double labelingEnergy = 0;  // of the hard labeling; infinite if a constraint forbids it
  double bound = 0;
  double gap = 0;          // (energy - bound) / size of the energy
  double labelingGap = 0;  // (labelingEnergy - bound) / the same size
};

// The progress of a run.
class RATSEG_API Progress {
 public:
  std::size_t iterations = 0;              // so far
  std::size_t limit = 0;                   // Settings::iterations
  double seconds = 0;                      // since it began
  std::optional<Certificate> certificate;  // of the last check

  // The labeling as it is now, rows x columns numbers. It costs about as much as two iterations,
  // and the copy.
  virtual std::vector<std::int32_t> labels() const = 0;

 protected:
  ~Progress() = default;
};

// The settings of a run. The defaults are a good start.
struct Settings {
  float lambda = 2;    // cost of a pixel of boundary, in units of the costs, >= 0
  float mu = 500;      // weight of the shares; 0 = none, negative = strict
  float epsilon = 10;  // tolerance of the shares, > 0; smaller pulls harder
  std::size_t iterations = 1000;
  float tolerance = 0;  // > 0: stop when no labeling can have an energy this part below; iterations
                        // is then the limit
  bool accelerate = true;  // an exact step of the shares: the same optimum in fewer iterations

  bool keepRelaxed = false;  // Result::relaxed

  // Called before the first iteration, then after about as many iterations or seconds, whichever
  // comes first (0: never for that reason). It returns whether to go on. What it throws leaves the
  // call of run().
  std::function<bool(const Progress&)> progress;
  std::size_t progressIterations = 0;
  double progressSeconds = 0.1;

  // Another thread may ask to stop, before the run or during it.
  std::stop_token stop;
};

enum class Stop {
  iterations,  // all that were allowed
  tolerance,   // the gap is within the tolerance
  asked,       // by progress or by stop
};

// The result of a run.
struct Result {
  std::size_t rows = 0;
  std::size_t columns = 0;
  std::vector<std::int32_t> labels;        // rows x columns
  std::vector<float> relaxed;              // labels x rows x columns, if Settings::keepRelaxed
  std::vector<double> sharesOfForeground;  // of each foreground label; empty for Shares::Of::image
  std::vector<double> sharesOfImage;       // of each label
  std::optional<Certificate> certificate;  // with a tolerance
  std::size_t iterations = 0;
  Stop reason = Stop::iterations;
  double seconds = 0;  // of the iteration
  bool finite = true;  // false when the computation met NaN or infinite values: labels mean nothing
  Device device = Device::automatic();  // that computed
};

// ------------------------------------------------------------------------------------- the solver

// Holds a problem on a device, for several runs on it. Move-only; releases everything.
class RATSEG_API Solver {
 public:
  // Memory for costs of that size on the device. Throws InvalidArgument, OutOfMemory, DeviceError,
  // as all calls do.
  Solver(std::size_t labels, std::size_t rows, std::size_t columns, const Shares& shares,
         Device device = Device::automatic());
  ~Solver();
  Solver(Solver&&) noexcept;
  Solver& operator=(Solver&&) noexcept;

  // The costs of each label at each pixel, needed before run(). A cost of FLT_MAX or more forbids a
  // label, one of -FLT_MAX or less forces it. NaN is refused.
  void setCosts(const Planes& costs);

  // Other shares, of the same whole as the ones before.
  void setShares(const Shares& shares);

  // The price of boundaries at each pixel, >= 0; 1 everywhere without it (edgeWeight()).
  void setWeight(const Picture<float>& weight);

  // From the pixelwise best labels on.
  Result run(const Settings& settings = {});

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// One solve. weight without data: boundaries cost the same everywhere.
RATSEG_API Result segment(const Planes& costs, const Shares& shares, const Settings& settings = {},
                          const Picture<float>& weight = {}, Device device = Device::automatic());

// ----------------------------------------------------------------------------------------- inputs

// Costs from scribbles: marks holds 0 where nothing is marked and k + 1 where label k is. Each
// label's cost is -ln of how near a colour is to those marked with it, at most largest
// (docs/math.md, section 3.2); a label without marks costs largest everywhere. labels = 0: as many
// as the largest mark says. sigma is in units of CIELAB. Returns labels x rows x columns numbers.
RATSEG_API std::vector<float> scribbleCosts(const Picture<Colour>& image,
                                            const Picture<std::uint8_t>& marks,
                                            std::size_t labels = 0, float sigma = 5,
                                            float largest = 10,
                                            Device device = Device::automatic());

// exp(-gamma |gradient of the image|) at each pixel, at least 1e-15; a gamma below 0 is chosen by
// the image's mean gradient (docs/math.md, section 4).
RATSEG_API std::vector<float> edgeWeight(const Picture<Colour>& image, float gamma = 5);

// "0.1.0"
RATSEG_API const char* version();

}  // namespace ratseg

#endif
