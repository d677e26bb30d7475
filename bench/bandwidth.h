#ifndef RATSEG_BENCH_BANDWIDTH_H
#define RATSEG_BENCH_BANDWIDTH_H

// How fast a device reads and writes memory: the limit of an iteration that does not fit into
// caches.

#include <vector>

namespace namespace_ratseg {

double secondsNow();

double median(std::vector<double> values);

// Bytes per second, read and written ones, of an array far larger than the caches.
class Bandwidth {
 public:
  virtual ~Bandwidth() = default;
  // Once through the array: on the host a = a s + b in place, on a GPU a copy within its memory.
  virtual double measureOnce() = 0;
};

class HostBandwidth final : public Bandwidth {
 public:
  HostBandwidth();
  double measureOnce() override;

 private:
  std::vector<float> array_;
};

class DeviceBandwidth final : public Bandwidth {
 public:
  DeviceBandwidth();
  ~DeviceBandwidth() override;
  DeviceBandwidth(const DeviceBandwidth&) = delete;
  DeviceBandwidth& operator=(const DeviceBandwidth&) = delete;
  double measureOnce() override;

 private:
  double copy(int times);

  void* a_ = nullptr;
  void* b_ = nullptr;
};

}  // namespace namespace_ratseg

#endif
