#include "util/cudautil.h"
#include "device/console.h"

#include <algorithm>
#include <iostream>
#include <tuple>
#include <utility>

#include "device/ceil_div.h"
#include "device/cuda/cuda_backend.h"
#include "device/runtime.h"
#include "util/cudadefs.h"
#include "util/cudautil_launch.h"
#include "util/device_scope.h"

namespace namespace_ratseg {

namespace {

// The path and lines that the checks of getDevices print: fixed, because what a failed call prints
// is known by them, so they are not the lines that the checks stand in.
constexpr const char* kFile = "src/util/cudautil";
constexpr unsigned long kLineOfCount = 99;
constexpr unsigned long kLineOfEnd = 174;

bool isBetter(const cudaDeviceProp& a, const cudaDeviceProp& b) {
  const auto key = [](const cudaDeviceProp& p) {
    return std::tie(p.major, p.minor, p.clockRate, p.multiProcessorCount, p.l2CacheSize);
  };
  return key(a) > key(b);
}

// Insertion sort of devices with their properties, best first and stable.
void sortDevices(int* dev, cudaDeviceProp* prop, int count) {
  for (int i = 1; i < count; ++i) {
    for (int j = i; j > 0 && isBetter(prop[j], prop[j - 1]); --j) {
      std::swap(dev[j], dev[j - 1]);
      std::swap(prop[j], prop[j - 1]);
    }
  }
}

void printDevices(const int* dev, const cudaDeviceProp* prop, int count) {
  for (int i = 0; i < count; ++i) {
    console().out() << (i == 0 ? "" : ", ") << "[" << dev[i] << "] " << prop[i].name;
  }
  console().out() << std::endl;
}

}  // namespace

int CudaUtil::numDevices() {
  int count = 0;
  cudaGetDeviceCount(&count);
  const cudaError_t error = cudaPeekAtLastError();
  if (error == cudaErrorNoDevice || error == cudaErrorInsufficientDriver) return 0;
  return count;
}

bool CudaUtil::hasCuda() { return numDevices() > 0; }

void CudaUtil::getDevices(int** dev0, int* nDev0, cudaDeviceProp** prop0, bool silent) {
  int previous = 0;
  cudaGetDevice(&previous);
  if (dev0 == nullptr || nDev0 == nullptr) {
    console().error() << "ERROR (CudaUtil::getDevices()): NULL arguments" << std::endl;
    return;
  }
  *nDev0 = 0;
  *dev0 = nullptr;
  if (prop0 != nullptr) *prop0 = nullptr;

  cudaGetDeviceCount(nDev0);
  const cudaError_t error = cudaPeekAtLastError();
  if (error != cudaSuccess && error != cudaErrorNoDevice) cuda_check(kFile, kLineOfCount);
  if (error == cudaErrorNoDevice) *nDev0 = 0;
  const int count = *nDev0;
  if (count == 0) {
    console().error() << "No CUDA Devices" << std::endl;
    return;
  }

  if (!silent) console().out() << "CUDA Devices: ";
  int* dev = new int[static_cast<std::size_t>(count)];
  cudaDeviceProp* prop = new cudaDeviceProp[static_cast<std::size_t>(count)];
  for (int i = 0; i < count; ++i) {
    cudaSetDevice(i);
    dev[i] = i;
    cudaGetDeviceProperties(&prop[i], i);
  }
  sortDevices(dev, prop, count);
  if (!silent) printDevices(dev, prop, count);

  *dev0 = dev;
  if (prop0 != nullptr) {
    *prop0 = prop;
  } else {
    delete[] prop;
  }
  cudaSetDevice(previous);
  cuda_check(kFile, kLineOfEnd);
}

int CudaUtil::getBestDevices(int** dev0, int num, cudaDeviceProp** prop0, bool silent) {
  int* all = nullptr;
  int count = 0;
  getDevices(&all, &count, prop0, silent);
  if (count < 1) return 0;
  if (num <= 0) {
    *dev0 = all;
    return count;
  }
  const int best = std::min(count, num);
  *dev0 = new int[static_cast<std::size_t>(best)];
  std::copy(all, all + best, *dev0);
  return best;  // The full list is deliberately left behind.
}

void CudaUtil::enablePeerAccess(int* dev, std::size_t nDev, bool** canAccess_array) {
  bool* canAccess = nullptr;
  if (canAccess_array != nullptr) {
    canAccess = new bool[nDev * nDev];
    *canAccess_array = canAccess;
  }
  for (std::size_t i = 0; i < nDev; ++i) {
    cudaSetDevice(dev[i]);
    for (std::size_t j = 0; j < nDev; ++j) {
      int can = -1;
      cudaDeviceCanAccessPeer(&can, dev[i], dev[j]);
      if (canAccess != nullptr) canAccess[j * nDev + i] = dev[i] == dev[j] || can != 0;
      if (can != 0) {
        cudaDeviceEnablePeerAccess(dev[j], 0);
        cudaGetLastError();  // of access that was enabled before
      }
    }
  }
}

void CudaUtil::assignYRanges(int h, int ndev, int* ymin, int* ymax, std::size_t ptrDiff) {
  if (ndev <= 0) return;
  const long long step = ceilDiv(static_cast<long long>(h), ndev);
  const auto write = [ptrDiff](int* first, int k, long long value) {
    char* entry = reinterpret_cast<char*>(first) + static_cast<std::size_t>(k) * ptrDiff;
    *reinterpret_cast<int*>(entry) = static_cast<int>(value);
  };
  for (int k = 0; k < ndev; ++k) write(ymin, k, k * step);
  if (ymax == nullptr) return;
  for (int k = 0; k < ndev - 1; ++k) write(ymax, k, (k + 1) * step);
  write(ymax, ndev - 1, h);
}

void CudaUtil::listDevices() {
  int* dev = nullptr;
  int count = 0;
  getDevices(&dev, &count);
  delete[] dev;
}

void CudaUtil::memGetInfo(int ndev, int* /*dev*/, std::size_t* memFree0, std::size_t* memTotal0) {
  std::size_t sumFree = 0;
  std::size_t sumTotal = 0;
  for (int i = 0; i < ndev; ++i) {
    std::size_t bytesFree = 0;
    std::size_t bytesTotal = 0;
    cudaMemGetInfo(&bytesFree, &bytesTotal);
    sumFree += bytesFree;
    sumTotal += bytesTotal;
  }
  if (memFree0 != nullptr) *memFree0 = sumFree >> 20;
  if (memTotal0 != nullptr) *memTotal0 = sumTotal >> 20;
}

int CudaUtil::cudaArch() {
  int device = 0;
  cudaGetDevice(&device);
  if (peekCudaError()) return 0;

  int* archDevice = nullptr;
  cudaMalloc(&archDevice, sizeof(int));
  if (peekCudaError()) return 0;
  int arch = 0;
  cudaUtilKernels().get_CUDA_ARCH(LaunchShape{}, archDevice);
  if (!peekCudaError()) cudaMemcpy(&arch, archDevice, sizeof(int), cudaMemcpyDeviceToHost);
  cudaFree(archDevice);
  if (peekCudaError()) return 0;

  cudaDeviceProp prop;
  cudaGetDeviceProperties(&prop, device);
  if (peekCudaError()) return 0;
  return std::min(prop.major * 10 + prop.minor, arch / 10);
}

}  // namespace namespace_ratseg
