#ifndef RATSEG_UTIL_CUDAUTIL_H
#define RATSEG_UTIL_CUDAUTIL_H

#include <cstddef>

#include "device/types.h"

namespace namespace_ratseg {

// Finds, ranks and connects devices. A device is named by its number, 0 .. count-1. Arrays handed
// out are made with new[] and belong to the caller (delete[]).
class CudaUtil {
 public:
  // Number of devices; 0 when there is no device or no driver. An error of asking stays pending.
  static int numDevices();

  // True when there is a device.
  static bool hasCuda();

  // All devices, best first: *dev0 their numbers, *nDev0 their count, *prop0 (unless prop0 is null)
  // their properties in the same order. The device with the greater (major, minor, clockRate,
  // multiProcessorCount, l2CacheSize), compared in this order, is the better one; equals keep the
  // order of their numbers. Lists them in one line on standard output unless silent.
  // Without devices, or with a null dev0 or nDev0: one line on standard error, and the outputs that
  // are there are empty. Any other error ends the process (cuda_check).
  static void getDevices(int** dev0, int* nDev0, cudaDeviceProp** prop0 = nullptr,
                         bool silent = false);

  // The best num devices in *dev0, all of them when num <= 0 or there are fewer; returns how many
  // these are. With none, *dev0 is left as it was. *prop0 (unless prop0 is null) gets the
  // properties of all devices, as in getDevices.
  static int getBestDevices(int** dev0, int num, cudaDeviceProp** prop0 = nullptr,
                            bool silent = false);

  // Lets each of the nDev devices of dev read the memory of each other one that it can reach. If
  // canAccess_array is not null, *canAccess_array becomes a new bool[nDev * nDev], whose entry
  // j * nDev + i says whether dev[i] reaches dev[j]; a device always reaches itself.
  // The last device of the list is current afterwards.
  static void enablePeerAccess(int* dev, std::size_t nDev, bool** canAccess_array = nullptr);

  // Cuts image rows 0 .. h-1 into ndev bands [ymin, ymax) of ceil(h / ndev) rows, the last of which
  // ends at h: it is shorter when the rows don't divide, and empty with ymin > ymax when the bands
  // before it hold more than h rows. Bound k is written k * ptrDiff bytes behind ymin and ymax, so
  // that bounds can go straight into an array of records. ymax may be null.
  static void assignYRanges(int h, int ndev, int* ymin, int* ymax, std::size_t ptrDiff);

  // Prints the line of getDevices.
  static void listDevices();

  // ndev times the free and total memory of the current device in MiB, rounded down; where the
  // pointers are null, nothing is written. Deliberately asks the current device each time, and
  // never the ones in dev.
  static void memGetInfo(int ndev, int* dev, std::size_t* memFree0, std::size_t* memTotal0);

  // Compute capability times 10 that kernels run at on the current device: the lesser of the
  // device's and that of the code built for it. 0 on any error, an older pending one too.
  static int cudaArch();
};

}  // namespace namespace_ratseg

#endif
