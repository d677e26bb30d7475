#ifndef RATSEG_ALG_RAT_SEG_H
#define RATSEG_ALG_RAT_SEG_H

// The solver. Given a data term, an edge weight and, per foreground label, a mean and a spread of
// its share of the foreground, it computes a labeling that balances data term, boundary length and
// the deviation of the shares. The model: docs/math.md, section 2; every update: section 6.
//
//   RatSeg solver;
//   Params& par = solver.getParams();
//   par.w = w; par.h = h; par.n = n; par.lambda = 5; par.mu = 500; par.eps = 10;
//   if (!solver.alloc()) return false;
//   solver.setRatios(means, sigmas, n - 1, nullptr, nullptr);
//   solver.setDataterm(rho);
//   solver.setWeight(weight);
//   solver.run();
//   solver.getSolution(u);
//   solver.free();
//
// Host arrays belong to the caller and are copied. A per-pixel array of all labels holds n planes
// of w*h floats, element (x, y, i) at i*w*h + y*w + x; labels are numbered 0 to n-1.
//
// The shares are those of the foreground: the prior compares a_i / (1 - a_background) with the
// label's mean. With a single foreground label that quotient is always 1, so the prior has nothing
// to say. For shares of the whole image make every real label foreground and append a void
// background label that costs much but not infinitely much everywhere: 100 times the scale of the
// data term. (Not FLT_MAX: the projection onto the simplex lifts a forbidden label wherever the
// others sum to less than one.)
//
// A call that is misused does nothing but say why, in one line on standard error that begins with
// "ERROR": a null array (where null means nothing), a background label that there is not, sizes
// that are not those of alloc(), and what else stands at the calls below. Before alloc()
// setRatios(), setWeight(), setDataterm() of costs, getDataterm() and run() do nothing but say so
// on standard output, setDataterm() of scribbles and reinit() do nothing, and getSolution() makes a
// labeling of whatever its array holds. The values of arrays are not looked at: NaN in them gives a
// labeling without meaning. An error of a device, but for too little memory in alloc(), ends the
// process (docs/devices.md); too little memory of the host throws std::bad_alloc.
//
// Solvers of different threads may compute at the same time, on the same devices or on others. A
// solver may be used by one thread after the other, but by one at a time, except for
// Params::cancel. It computes on the devices of the backend that is current (device/selection.h)
// from alloc() to free().

#include <cstddef>

#include "algorithms/rat_segments/alg/params.h"
#include "device/types.h"

namespace namespace_ratseg {

class RatSegImpl;

class RatSeg {
 public:
  RatSeg();
  // Does not release device memory: call free() first, or leave it to the end of the process (also
  // in a thread that ends before).
  virtual ~RatSeg();
  RatSeg(const RatSeg&) = delete;
  RatSeg& operator=(const RatSeg&) = delete;

  Params& getParams() { return par_; }

  // Chooses the devices, splits the image into one band of rows per device, reports on standard
  // output and allocates. False, with one line on standard error, when device memory runs out, when
  // there is no device, when the bands would leave a device without rows, when w, h, n, threadsx or
  // threadsy is 0, when the arrays would have more bytes than there are addresses, and when
  // threadsx and threadsy, gpu or gpu_num are not as Params wants them. What was allocated before
  // memory ran out stays allocated. A second alloc() begins with free().
  bool alloc();

  // Sets the iteration back to its start; data term, weight and shares stay.
  void reinit();

  // Releases device memory. Nothing happens when nothing is allocated, or a second time.
  void free();

  // Per-pixel weight of the length term (not null), w*h floats >= 0; FLT_MAX or more = no bound on
  // the dual of the pixel's two differences. Without it the weight is 1 everywhere.
  void setWeight(float* weight);

  // Data term rho (not null), n*w*h floats: the cost of each label at each pixel. FLT_MAX or more
  // forbids a label, -FLT_MAX or less forces it. Also sets the labeling to its start, but not the
  // duals and shares: before a second run() from the start call reinit().
  void setDataterm(float* rho);

  // Data term from colour scribbles: image has w*h colours with channels in [0, 1], scribbles[i]
  // holds the scribblesNum[i] (at most w*h, may be 0) colours marked with label i. The cost is
  // min(thr, -ln of the mean over the scribbles of exp(-D^2 / (2 sigma^2))), D the CIELAB distance
  // (docs/math.md, section 3.2). Refused: null lists, a null list of a label that has colours, more
  // colours than pixels, NaN as sigma or thr.
  void setDataterm(float4* image, float4** scribbles, std::size_t* scribblesNum, float sigma,
                   float thr);

  // The data term in use, into n*w*h floats (not null).
  void getDataterm(float* rho);

  // Shares: n means and n spreads (not null), the background label's index (below n), and n lower
  // and upper bounds for the interval prior; null bounds mean ratios -/+ 3 sigmas within [0, 1].
  // The entries of the background label are not used; the other means should sum to 1.
  void setRatios(float* ratios, float* sigmas, std::size_t ind_bgr0, float* mins, float* maxs);

  // Runs Nsteps iterations from the current state; with a tolerance, fewer where it is met before.
  // A second run() goes on where the first ended. Refused: see Params.
  void run();

  // Figures of the last run(); valid until the next. No iterations when that one was refused.
  const Statistics& getStatistics() const;

  // The labeling, into n*w*h floats (not null): 1 for the label of the greatest value at each pixel
  // (the lowest on ties), 0 for the others.
  void getSolution(float* uh);

  // The relaxed labeling, into n*w*h floats (not null).
  void getSolution_smooth(float* uh);

  // Placeholder: writes 0 through each pointer that is not null and returns a quiet NaN.
  float energy_gap(float* ep0, float* ed0);

  // The device numbers in use, in the order of the bands, as a new array (the caller releases it
  // with delete[]), and their count. Null and 0 before a successful alloc().
  void getUsedDevices(int*& devices, int& count);

 private:
  Params par_;
  RatSegImpl* impl_;
};

}  // namespace namespace_ratseg

#endif
