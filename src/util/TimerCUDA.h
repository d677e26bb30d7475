#ifndef RATSEG_UTIL_TIMERCUDA_H
#define RATSEG_UTIL_TIMERCUDA_H

#include <vector>

#include "device/runtime.h"
#include "util/Timer.h"

namespace namespace_ratseg {

// Named stopwatches of device time, taken with events: of one device, or of several at once, of
// which the slowest counts. begin and end wait for the work that was queued before them. Runtime
// errors are not looked at here and stay pending.
class TimerCUDA : public Timer {
 public:
  // Time of the device that is current when the stopwatch is made.
  class TimeEntryGPU0 : public TimeEntry {
   public:
    TimeEntryGPU0();
    ~TimeEntryGPU0() override;
    TimeEntryGPU0(const TimeEntryGPU0&) = delete;
    TimeEntryGPU0& operator=(const TimeEntryGPU0&) = delete;
    void begin() override;
    void end() override;

    cudaEvent_t singleDev_start = nullptr;
    cudaEvent_t singleDev_stop = nullptr;
    int singleDev_dev = 0;
  };

  // Time of the slowest of ndev devices.
  class TimeEntryMultiGPU : public TimeEntry {
   public:
    TimeEntryMultiGPU(const int* dev, int ndev);  // copies dev
    ~TimeEntryMultiGPU() override;
    TimeEntryMultiGPU(const TimeEntryMultiGPU&) = delete;
    TimeEntryMultiGPU& operator=(const TimeEntryMultiGPU&) = delete;
    void begin() override;
    void end() override;

    std::vector<cudaEvent_t> multipleDevs_starts;  // one per device
    std::vector<cudaEvent_t> multipleDevs_stops;
    int* multipleDevs_dev;  // own copy of the device list
    int multipleDevs_ndev;
  };

  // Stopwatches of the current device.
  TimerCUDA() = default;
  // Stopwatches of the ndev devices of dev; see setMultiGPU.
  TimerCUDA(int* dev, int ndev);
  ~TimerCUDA() override;

  TimeEntry* createEntry() override;

  // Stopwatches made from now on are of the ndev0 devices of dev0 (copied), or of the current
  // device. Those made before keep their devices. A null or empty list means the current device.
  virtual void setMultiGPU(int* dev0, int ndev0);
  virtual void setSingleGPU();

  int* dev = nullptr;  // own copy of the device list; null for the current device
  int ndev = 0;        // 0 for the current device
};

}  // namespace namespace_ratseg

#endif
