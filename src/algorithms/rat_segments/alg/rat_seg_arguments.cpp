#include "algorithms/rat_segments/alg/rat_seg_arguments.h"

#include <cmath>
#include <iostream>
#include <limits>
#include <sstream>

#include "device/console.h"
#include "device/runtime.h"
#include "util/cudautil.h"

namespace namespace_ratseg {

namespace {

constexpr std::size_t kMaxThreads = 1024;  // of a block

// At most this many elements of a band's largest array: their bytes, those of all arrays together
// too, can then be counted.
constexpr std::size_t kMaxElements = std::numeric_limits<std::size_t>::max() / 64;

// The parts are put together first, so that lines of several threads do not mix.
template <class... Part>
bool refuse(const char* method, const Part&... part) {
  std::ostringstream line;
  line << "ERROR (" << method << "()): ";
  (line << ... << part) << "\n";
  console().error() << line.str() << std::flush;
  return false;
}

bool isNumber(float value, const char* method, const char* name) {
  if (!std::isnan(value)) return true;
  return refuse(method, name, " must be a number, but is ", value);
}

bool areDevices(const std::vector<int>& numbers) {
  if (numbers.empty()) return true;
  const int count = CudaUtil::numDevices();
  if (count == 0) {
    cudaGetLastError();
    return refuse("alloc", "gpu must hold device numbers, but there is no device");
  }
  for (const int number : numbers) {
    if (number < 0 || number >= count) {
      return refuse("alloc", "gpu must hold device numbers from 0 to ", count - 1, ", but holds ",
                    number);
    }
  }
  return true;
}

bool isCountable(const Params& par) {
  if (par.w == 0 || par.h == 0 || par.n == 0) return true;  // alloc() says so
  if (par.h < kMaxElements && par.w <= kMaxElements / (par.h + 1) &&
      par.n <= kMaxElements / (par.h + 1) / par.w) {
    return true;
  }
  return refuse("alloc", "w, h and n must give arrays that can be addressed, but are ", par.w, ", ",
                par.h, " and ", par.n);
}

bool isBlock(const Params& par) {
  if (par.threadsx == 0 || par.threadsy <= kMaxThreads / par.threadsx) return true;
  return refuse("alloc", "threadsx times threadsy must be at most ", kMaxThreads, ", but they are ",
                par.threadsx, " and ", par.threadsy);
}

}  // namespace

bool canAlloc(const Params& par) { return areDevices(par.gpu) && isCountable(par) && isBlock(par); }

bool canRun(const Params& par) {
  if (!(par.dt_multiplier > 0.0f) || std::isinf(par.dt_multiplier)) {
    return refuse("run", "dt_multiplier must be a finite number above 0, but is ",
                  par.dt_multiplier);
  }
  return isNumber(par.lambda, "run", "lambda") && isNumber(par.mu, "run", "mu") &&
         isNumber(par.eps, "run", "eps") && isNumber(par.tolerance, "run", "tolerance");
}

bool isGiven(const void* array, const char* method, const char* name) {
  return array != nullptr || refuse(method, name, " must not be null");
}

bool isBackgroundLabel(std::size_t label, const Params& par) {
  if (label < par.n) return true;
  return refuse("setRatios", "the background label must be one of 0 to ", par.n - 1, ", but is ",
                label);
}

bool areScribbles(const float4* image, const float4* const* scribbles,
                  const std::size_t* scribblesNum, float sigma, float thr, const Params& par) {
  constexpr const char* kMethod = "setDataterm";
  if (!isGiven(image, kMethod, "image") || !isGiven(scribbles, kMethod, "scribbles") ||
      !isGiven(scribblesNum, kMethod, "scribblesNum")) {
    return false;
  }
  const std::size_t pixels = par.w * par.h;
  for (std::size_t i = 0; i < par.n; ++i) {
    if (scribblesNum[i] > pixels) {
      return refuse(kMethod, "a label must have at most ", pixels, " scribble colours, but label ",
                    i, " has ", scribblesNum[i]);
    }
    if (scribblesNum[i] > 0 && scribbles[i] == nullptr) {
      return refuse(kMethod, "the scribbles of label ", i, " must not be null, since there are ",
                    scribblesNum[i]);
    }
  }
  return isNumber(sigma, kMethod, "sigma") && isNumber(thr, kMethod, "thr");
}

}  // namespace namespace_ratseg
