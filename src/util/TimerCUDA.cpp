#include "util/TimerCUDA.h"

#include <algorithm>
#include <cfloat>

#include "util/device_scope.h"

namespace namespace_ratseg {

namespace {

int* copyDevices(const int* dev, int ndev) {
  int* copy = new int[static_cast<std::size_t>(ndev)];
  std::copy(dev, dev + ndev, copy);
  return copy;
}

// Takes the time of event on the current device, once all work queued there before is done.
void recordAndWait(cudaEvent_t event) {
  cudaEventRecord(event, 0);
  cudaEventSynchronize(event);
}

float milliseconds(cudaEvent_t start, cudaEvent_t stop) {
  float ms = 0;
  cudaEventElapsedTime(&ms, start, stop);
  return ms;
}

}  // namespace

TimerCUDA::TimeEntryGPU0::TimeEntryGPU0() {
  cudaGetDevice(&singleDev_dev);
  cudaEventCreate(&singleDev_start);
  cudaEventCreate(&singleDev_stop);
}

TimerCUDA::TimeEntryGPU0::~TimeEntryGPU0() {
  const DeviceScope scope(singleDev_dev);
  cudaEventDestroy(singleDev_start);
  cudaEventDestroy(singleDev_stop);
}

void TimerCUDA::TimeEntryGPU0::begin() {
  const DeviceScope scope(singleDev_dev);
  recordAndWait(singleDev_start);
  running = true;
}

void TimerCUDA::TimeEntryGPU0::end() {
  const DeviceScope scope(singleDev_dev);
  recordAndWait(singleDev_stop);
  tOverall += milliseconds(singleDev_start, singleDev_stop) / 1000;
  running = false;
}

TimerCUDA::TimeEntryMultiGPU::TimeEntryMultiGPU(const int* dev, int ndev)
    : multipleDevs_starts(static_cast<std::size_t>(ndev)),
      multipleDevs_stops(static_cast<std::size_t>(ndev)),
      multipleDevs_dev(copyDevices(dev, ndev)),
      multipleDevs_ndev(ndev) {
  for (std::size_t i = 0; i < multipleDevs_starts.size(); ++i) {
    const DeviceScope scope(multipleDevs_dev[i]);
    cudaEventCreate(&multipleDevs_starts[i]);
    cudaEventCreate(&multipleDevs_stops[i]);
  }
}

TimerCUDA::TimeEntryMultiGPU::~TimeEntryMultiGPU() {
  for (std::size_t i = 0; i < multipleDevs_starts.size(); ++i) {
    const DeviceScope scope(multipleDevs_dev[i]);
    cudaEventDestroy(multipleDevs_starts[i]);
    cudaEventDestroy(multipleDevs_stops[i]);
  }
  delete[] multipleDevs_dev;
}

void TimerCUDA::TimeEntryMultiGPU::begin() {
  for (std::size_t i = 0; i < multipleDevs_starts.size(); ++i) {
    const DeviceScope scope(multipleDevs_dev[i]);
    recordAndWait(multipleDevs_starts[i]);
  }
  running = true;
}

void TimerCUDA::TimeEntryMultiGPU::end() {
  float slowest = -FLT_MAX;
  for (std::size_t i = 0; i < multipleDevs_stops.size(); ++i) {
    const DeviceScope scope(multipleDevs_dev[i]);
    recordAndWait(multipleDevs_stops[i]);
    slowest = std::max(slowest, milliseconds(multipleDevs_starts[i], multipleDevs_stops[i]));
  }
  tOverall += slowest / 1000;
  running = false;
}

TimerCUDA::TimerCUDA(int* dev_, int ndev_) { TimerCUDA::setMultiGPU(dev_, ndev_); }

TimerCUDA::~TimerCUDA() { delete[] dev; }

Timer::TimeEntry* TimerCUDA::createEntry() {
  if (dev != nullptr && ndev >= 1) return new TimeEntryMultiGPU(dev, ndev);
  return new TimeEntryGPU0();
}

void TimerCUDA::setMultiGPU(int* dev0, int ndev0) {
  const bool several = dev0 != nullptr && ndev0 >= 1;
  int* copy = several ? copyDevices(dev0, ndev0) : nullptr;
  delete[] dev;
  dev = copy;
  ndev = several ? ndev0 : 0;
}

void TimerCUDA::setSingleGPU() {
  delete[] dev;
  dev = nullptr;
  ndev = 0;
}

}  // namespace namespace_ratseg
