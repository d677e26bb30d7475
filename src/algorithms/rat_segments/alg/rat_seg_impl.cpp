// Devices, bands and memory of the solver.

#include "algorithms/rat_segments/alg/rat_seg_impl.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <string>

#include "algorithms/rat_segments/alg/plain/checked_steps.h"
#include "algorithms/rat_segments/alg/plain/plain_steps.h"
#include "device/ceil_div.h"
#include "device/console.h"
#include "device/runtime.h"
#include "util/cudautil.h"

namespace namespace_ratseg {

namespace {

dim3 shape3(std::size_t x, std::size_t y, std::size_t z) {
  return {static_cast<unsigned>(x), static_cast<unsigned>(y), static_cast<unsigned>(z)};
}

constexpr std::size_t kMaxRowsOfGrid = 65535;

// Makes a block of x by y threads higher and narrower until a grid covers h rows.
void coverRows(std::size_t& x, std::size_t& y, std::size_t h) {
  while (ceilDiv(h, y) > kMaxRowsOfGrid && x > 1) {
    x /= 2;
    y *= 2;
  }
}

// Bytes of the band's arrays in whole MiB, rounded up. The arrays of the scribble data term are
// left out.
std::size_t memoryMiB(const gpudata& g, std::size_t n) {
  const std::size_t bytes =
      4 * g.NOffset + 4 * g.NOffset + 8 * g.NOffset + 10 * 4 * n + 4 * g.N + 4 * g.NOmega;
  return ceilDiv(bytes, std::size_t{1} << 20);
}

// A number of MiB in groups of 1024 with their units, from the highest non-zero one down.
std::string mixedUnits(std::size_t mib) {
  static const char* const units[] = {"B", "KB", "MB", "GB", "TB", "PB", "EB", "ZB", "YB"};
  constexpr int kMega = 2;
  int highest = 0;
  while (highest < 6 && (mib >> (10 * (highest + 1))) != 0) ++highest;
  std::string text;
  for (int j = highest; j >= 0; --j) {
    text += std::to_string((mib >> (10 * j)) & 1023) + " " + units[kMega + j];
    if (j > 0) text += " ";
  }
  return text;
}

}  // namespace

bool RatSegImpl::chooseDevices() {
  int* found = nullptr;
  int count = 0;
  CudaUtil::getDevices(&found, &count, nullptr, true);
  std::vector<int> chosen = par.gpu;
  if (chosen.empty()) {
    const long long wanted =
        par.gpu_num != 0 ? std::min<long long>(-static_cast<long long>(par.gpu_num), count) : count;
    if (wanted > 0) chosen.assign(found, found + wanted);
  }
  nDev = static_cast<int>(chosen.size());
  if (nDev == 0) {
    if (count > 0) {
      console().error() << "ERROR: gpu_num must be 0 or negative, but is " << par.gpu_num
                        << std::endl;
    }
    delete[] found;
    return false;
  }
  dev = new int[chosen.size()];
  std::copy(chosen.begin(), chosen.end(), dev);

  {
    const std::lock_guard lock(standardOutputMutex);
    console().out() << "Using: ";
    for (int d = 0; d < nDev; ++d) console().out() << (d == 0 ? "" : ", ") << dev[d];
    console().out() << std::endl;
  }

  CudaUtil::enablePeerAccess(dev, static_cast<std::size_t>(nDev), &canAccess_array);
  delete[] found;
  return true;
}

bool RatSegImpl::setUpBands() {
  if (par.w == 0 || par.h == 0 || par.n == 0 || par.threadsx == 0 || par.threadsy == 0) {
    console().error() << "ERROR: w, h, n, threadsx and threadsy must be positive, but are " << par.w
                      << ", " << par.h << ", " << par.n << ", " << par.threadsx << " and "
                      << par.threadsy << std::endl;
    return false;
  }
  const auto bands = static_cast<std::size_t>(nDev);
  const std::size_t chunk = ceilDiv(par.h, bands);
  if ((bands - 1) * chunk >= par.h) {
    console().error() << "ERROR: " << par.h << " image rows cannot be split over " << bands
                      << " devices in bands of " << chunk << " rows: only the first "
                      << ceilDiv(par.h, chunk) << " would get any" << std::endl;
    return false;
  }
  for (std::size_t d = 0; d < bands; ++d) {
    gpudata& g = arrays[d];
    g.ymin = d * chunk;
    g.ymax = d + 1 < bands ? (d + 1) * chunk : par.h;
    g.h = g.ymax - g.ymin;
    g.NOmega = g.h * par.w;
    g.NOmegaOffset = (g.h + 1) * par.w;
    g.N = g.NOmega * par.n;
    g.NOffset = g.NOmegaOffset * par.n;
    std::size_t x = par.threadsx;
    std::size_t y = par.threadsy;
    coverRows(x, y, g.h);
    g.block = shape3(x, y, 1);
    g.grid = shape3(ceilDiv(par.w, x), ceilDiv(g.h, y), 1);
  }
  block_copy = shape3(par.threadsx, 1, 1);
  grid_copy = shape3(ceilDiv(par.w, par.threadsx), par.n, 1);
  return true;
}

// The scratch of ratseg_prim_u grows with the number of labels. Where a block of the usual shape
// would need more shared memory than the current device has, a smaller block is launched.
void RatSegImpl::setUpPrimUShape(gpudata& g) {
  cudaDeviceProp prop;
  int device = 0;
  cudaGetDevice(&device);
  cudaGetDeviceProperties(&prop, device);
  check();
  std::size_t x = par.threadsx;
  std::size_t y = par.threadsy;
  const std::size_t perThread = sizeof(float) * par.n;
  while (x * y > 1 && x * y * perThread > prop.sharedMemPerBlockOptin) {
    if (y > 1) {
      y = (y + 1) / 2;
    } else {
      x = (x + 1) / 2;
    }
  }
  coverRows(x, y, g.h);
  g.primU.block = shape3(x, y, 1);
  g.primU.grid = shape3(ceilDiv(par.w, x), ceilDiv(g.h, y), 1);
  g.primU.sharedBytes = x * y * perThread;
}

void RatSegImpl::printMemoryNeeded() {
  std::size_t total = 0;
  for (int d = 0; d < nDev; ++d) total += memoryMiB(arrays[d], par.n);
  const std::lock_guard lock(standardOutputMutex);
  console().out() << "GPU memory needed: " << mixedUnits(total) << std::endl;
  if (nDev == 1) return;
  for (int d = 0; d < nDev; ++d) {
    console().out() << "  device " << dev[d] << ": " << memoryMiB(arrays[d], par.n) << " MB";
    std::size_t available = 0;
    std::size_t whole = 0;
    cudaSetDevice(dev[d]);
    check();
    cudaMemGetInfo(&available, &whole);
    check();
    console().out() << ",  available: " << (available >> 20) << " MB"
                    << ",  total: " << (whole >> 20) << " MB" << std::endl;
  }
}

void RatSegImpl::allocateArrays() {
  const std::size_t n = par.n;
  for (int d = 0; d < nDev; ++d) {
    gpudata& g = arrays[d];
    select(d);
    g.u.alloc(g.NOffset);
    checkMalloc();
    g.u_bar.alloc(g.NOffset);
    checkMalloc();
    g.p.alloc(g.NOffset);
    checkMalloc();
    g.a.alloc(n);
    checkMalloc();
    g.a_bar.alloc(n);
    checkMalloc();
    g.gamma.alloc(n);
    checkMalloc();
    g.sum_u.alloc(n);
    checkMalloc();
    g.alpha.alloc(n);
    checkMalloc();
    g.beta.alloc(n);
    checkMalloc();
    g.ratios.alloc(n);
    checkMalloc();
    g.sigmas.alloc(n);
    checkMalloc();
    g.mins.alloc(n);
    checkMalloc();
    g.maxs.alloc(n);
    checkMalloc();
    g.rho.alloc(g.N);
    checkMalloc();
    g.weight.alloc(g.NOmega);
    checkMalloc();
    g.scribbles.alloc(par.w * par.h);
    checkMalloc();
    g.image.alloc(g.NOmega);
    checkMalloc();
    setUpPrimUShape(g);
    cudaEventCreate(&g.queued);
    check();
  }
}

// Releases what chooseDevices and the record array hold; for problems that are refused before any
// device memory is allocated.
void RatSegImpl::forgetRecords() {
  delete[] arrays;
  delete[] dev;
  delete[] canAccess_array;
  arrays = nullptr;
  dev = nullptr;
  canAccess_array = nullptr;
}

bool RatSegImpl::alloc() {
  free();
  if (!chooseDevices()) return false;
  arrays = new gpudata[static_cast<std::size_t>(nDev)];
  if (!setUpBands()) {
    forgetRecords();
    return false;
  }
  printMemoryNeeded();
  try {
    allocateArrays();
  } catch (cudaMallocException& e) {
    e.printError();
    // Intentionally releases nothing: what was allocated before stays with its records.
    free();
    return false;
  }
  allocatedArrays = true;
  allocatedSizes = {par.w, par.h, par.n};
  kind_weight = kind_weight_none;  // the arrays of an earlier alloc() are gone
  scaleOmega = 128.0f / std::sqrt(static_cast<float>(par.w * par.h));
  constGamma = static_cast<float>(par.w * par.h);
  constAlpha = 1.0f;
  sum_u_host = new float[par.n * static_cast<std::size_t>(nDev)];
  // The new arrays hold the zeros that reinit() would set.
  if (par.initLocalSolution) setLocalSolution();
  return true;
}

void RatSegImpl::free() {
  if (!allocatedArrays) return;
  for (int d = 0; d < nDev; ++d) {
    gpudata& g = arrays[d];
    select(d);
    const auto release = [](auto&... array) {
      const auto one = [](auto& a) {
        a.free();
        check();
      };
      (one(array), ...);
    };
    release(g.u, g.u_bar, g.p, g.a, g.a_bar, g.gamma, g.sum_u, g.alpha, g.beta, g.ratios, g.sigmas,
            g.mins, g.maxs, g.rho, g.weight, g.scribbles, g.image);
    cudaEventDestroy(g.queued);
    check();
  }
  forgetRecords();
  delete[] sum_u_host;
  sum_u_host = nullptr;
  allocatedArrays = false;
}

bool RatSegImpl::sizesHold(const char* method) const {
  const Sizes now = {par.w, par.h, par.n};
  const Sizes& then = allocatedSizes;
  if (!allocatedArrays || now == then) return true;
  console().error() << "ERROR (" << method << "()): w, h and n must stay as they were at alloc(), "
                    << then.w << ", " << then.h << " and " << then.n << ", but are " << now.w
                    << ", " << now.h << " and " << now.n << std::endl;
  return false;
}

void RatSegImpl::copyExtraRegions_p() { PlainSteps(*this).copyExtraRegions_p(); }
void RatSegImpl::copyExtraRegions_u() { PlainSteps(*this).copyExtraRegions_u(); }
void RatSegImpl::computeSumU__save_on_gpu0() { PlainSteps(*this).computeSumU__save_on_gpu0(); }

float RatSegImpl::energy_gap(float* ep0, float* ed0) {
  if (ep0 != nullptr) *ep0 = 0.0f;
  if (ed0 != nullptr) *ed0 = 0.0f;
  return std::numeric_limits<float>::quiet_NaN();
}

void RatSegImpl::getUsedDevices(int*& devices, int& count) {
  count = bands();
  devices = nullptr;
  if (count == 0) return;
  devices = new int[static_cast<std::size_t>(count)];
  std::copy(dev, dev + count, devices);
}

}  // namespace namespace_ratseg
