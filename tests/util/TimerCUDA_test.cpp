#include "util/TimerCUDA.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/forwarding_backend.h"
#include "support/machine.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;

// A machine on which the time between two events is told per device. Remembers what is done with
// events, as a word and the device.
class ToldTimes final : public ForwardingBackend {
 public:
  using ForwardingBackend::ForwardingBackend;

  cudaError_t eventCreate(cudaEvent_t* event) override {
    const cudaError_t error = ForwardingBackend::eventCreate(event);
    device_[*event] = current();
    remember("create");
    return error;
  }
  cudaError_t eventRecord(cudaEvent_t event, cudaStream_t stream) override {
    remember("record");
    used.push_back(event);
    EXPECT_EQ(stream, nullptr) << "not of the default stream";
    return ForwardingBackend::eventRecord(event, stream);
  }
  cudaError_t eventSynchronize(cudaEvent_t event) override {
    remember("wait");
    used.push_back(event);
    return ForwardingBackend::eventSynchronize(event);
  }
  cudaError_t eventElapsedTime(float* ms, cudaEvent_t start, cudaEvent_t stop) override {
    used.push_back(start);
    used.push_back(stop);
    *ms = milliseconds[device_.at(start)];
    return cudaSuccess;
  }
  cudaError_t eventDestroy(cudaEvent_t event) override {
    remember("destroy");
    return ForwardingBackend::eventDestroy(event);
  }

  std::vector<std::string> takeCalls() { return std::exchange(calls_, {}); }

  std::map<int, float> milliseconds;
  std::vector<cudaEvent_t> used;  // recorded, waited for, start and end of a time

 private:
  int current() {
    int device = -1;
    getDevice(&device);
    return device;
  }
  void remember(const std::string& call) { calls_.push_back(call + std::to_string(current())); }

  std::map<cudaEvent_t, int> device_;
  std::vector<std::string> calls_;
};

int currentDevice() {
  int device = -1;
  cudaGetDevice(&device);
  return device;
}

// Three devices with told times; device 1 is current.
class TimerCudaTest : public testing::Test {
 protected:
  TimerCudaTest() { cudaSetDevice(1); }
  ~TimerCudaTest() override { EXPECT_EQ(cudaGetLastError(), cudaSuccess); }

  HostMachine machine_{hostConfig(3)};
  ToldTimes times_{machine_.backend};
  BackendScope scope_{times_};
};

TEST_F(TimerCudaTest, SingleDeviceEntryIsOfTheDeviceItWasMadeOn) {
  TimerCUDA timer;
  EXPECT_EQ(timer.dev, nullptr);
  EXPECT_EQ(timer.ndev, 0);
  timer.begin("a");
  const auto* entry = dynamic_cast<TimerCUDA::TimeEntryGPU0*>(timer.entries.at("a").get());
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->singleDev_dev, 1);
  EXPECT_TRUE(entry->running);
  EXPECT_THAT(times_.takeCalls(), ElementsAre("create1", "create1", "record1", "wait1"));

  cudaSetDevice(2);
  timer.begin("a");
  EXPECT_THAT(times_.takeCalls(), ElementsAre("record1", "wait1"));
  EXPECT_EQ(currentDevice(), 2);
  timer.end("a");
  EXPECT_THAT(times_.takeCalls(), ElementsAre("record1", "wait1"));
  EXPECT_FALSE(entry->running);
  EXPECT_EQ(currentDevice(), 2);
  timer.clear("a");
  EXPECT_THAT(times_.takeCalls(), ElementsAre("destroy1", "destroy1"));
  EXPECT_EQ(currentDevice(), 2);
}

TEST_F(TimerCudaTest, SingleDeviceEntryAddsUpSeconds) {
  TimerCUDA timer;
  times_.milliseconds[1] = 1500;
  timer.begin("a");
  timer.end("a");
  times_.milliseconds[1] = 250;
  timer.begin("a");
  timer.end("a");
  EXPECT_EQ(timer.get("a"), 1.75f);
}

TEST_F(TimerCudaTest, SingleDeviceEntryTakesItsTimeFromStartToStop) {
  TimerCUDA::TimeEntryGPU0 entry;
  entry.begin();
  entry.end();
  const cudaEvent_t start = entry.singleDev_start, stop = entry.singleDev_stop;
  EXPECT_NE(start, stop);
  EXPECT_THAT(times_.used, ElementsAre(start, start, stop, stop, start, stop));
}

TEST_F(TimerCudaTest, EntryOfSeveralDevicesTakesEachTimeFromStartToStop) {
  const int dev[] = {2, 0};
  TimerCUDA::TimeEntryMultiGPU entry(dev, 2);
  entry.begin();
  entry.end();
  const auto& start = entry.multipleDevs_starts;
  const auto& stop = entry.multipleDevs_stops;
  EXPECT_THAT(times_.used, ElementsAre(start[0], start[0], start[1], start[1],  //
                                       stop[0], stop[0], start[0], stop[0],     //
                                       stop[1], stop[1], start[1], stop[1]));
}

TEST_F(TimerCudaTest, GetOfARunningEntryEndsIt) {
  TimerCUDA timer;
  times_.milliseconds[1] = 500;
  timer.begin("a");
  EXPECT_EQ(timer.get("a"), 0.5f);
  EXPECT_FALSE(timer.entries.at("a")->running);
  EXPECT_EQ(timer.get("a"), 0.5f);
}

TEST_F(TimerCudaTest, SeveralDevicesCountAsTheSlowest) {
  int dev[] = {0, 2, 1};
  TimerCUDA timer(dev, 3);
  times_.milliseconds = {{0, 1000}, {1, 500}, {2, 4000}};
  timer.begin("a");
  timer.end("a");
  EXPECT_EQ(timer.get("a"), 4);
  times_.milliseconds = {{0, 1000}, {1, 2000}, {2, 500}};
  timer.begin("a");
  timer.end("a");
  EXPECT_EQ(timer.get("a"), 6);
}

TEST_F(TimerCudaTest, SeveralDevicesCountAsTheSlowestEvenBelowZero) {
  int dev[] = {0, 2};
  TimerCUDA timer(dev, 2);
  times_.milliseconds = {{0, -3000}, {2, -1000}};
  timer.begin("a");
  timer.end("a");
  EXPECT_EQ(timer.get("a"), -1);
}

TEST_F(TimerCudaTest, SeveralDevicesAreVisitedInOrderAndTheCurrentOneIsRestored) {
  int dev[] = {2, 0};
  TimerCUDA timer(dev, 2);
  timer.begin("a");
  EXPECT_THAT(times_.takeCalls(), ElementsAre("create2", "create2", "create0", "create0", "record2",
                                              "wait2", "record0", "wait0"));
  EXPECT_TRUE(timer.entries.at("a")->running);
  EXPECT_EQ(currentDevice(), 1);
  timer.end("a");
  EXPECT_THAT(times_.takeCalls(), ElementsAre("record2", "wait2", "record0", "wait0"));
  EXPECT_FALSE(timer.entries.at("a")->running);
  EXPECT_EQ(currentDevice(), 1);
  timer.clear();
  EXPECT_THAT(times_.takeCalls(), ElementsAre("destroy2", "destroy2", "destroy0", "destroy0"));
  EXPECT_EQ(currentDevice(), 1);
}

TEST_F(TimerCudaTest, KeepsItsOwnCopyOfTheDeviceList) {
  int dev[] = {2, 0};
  TimerCUDA timer(dev, 2);
  dev[0] = 1;
  ASSERT_NE(timer.dev, dev);
  EXPECT_EQ(timer.ndev, 2);
  EXPECT_EQ(timer.dev[0], 2);
  timer.begin("a");
  const auto* entry = dynamic_cast<TimerCUDA::TimeEntryMultiGPU*>(timer.entries.at("a").get());
  ASSERT_NE(entry, nullptr);
  ASSERT_EQ(entry->multipleDevs_ndev, 2);
  EXPECT_NE(entry->multipleDevs_dev, timer.dev);
  EXPECT_EQ(entry->multipleDevs_dev[0], 2);
  EXPECT_EQ(entry->multipleDevs_dev[1], 0);
}

TEST_F(TimerCudaTest, EntriesMadeBeforeAChangeKeepTheirDevices) {
  int dev[] = {2, 0};
  TimerCUDA timer;
  timer.begin("single");
  timer.setMultiGPU(dev, 2);
  timer.begin("several");
  timer.setSingleGPU();
  EXPECT_EQ(timer.dev, nullptr);
  EXPECT_EQ(timer.ndev, 0);
  timer.begin("single again");
  times_.takeCalls();
  timer.end("single");
  EXPECT_THAT(times_.takeCalls(), ElementsAre("record1", "wait1"));
  timer.end("several");
  EXPECT_THAT(times_.takeCalls(), ElementsAre("record2", "wait2", "record0", "wait0"));
  timer.end("single again");
  EXPECT_THAT(times_.takeCalls(), ElementsAre("record1", "wait1"));
}

TEST_F(TimerCudaTest, TheDeviceListCanBeReplacedByItself) {
  int dev[] = {2, 0};
  TimerCUDA timer(dev, 2);
  timer.setMultiGPU(timer.dev, 1);
  EXPECT_EQ(timer.ndev, 1);
  EXPECT_EQ(timer.dev[0], 2);
}

// Does timer make stopwatches of the current device?
bool measuresCurrentDevice(TimerCUDA& timer) {
  const std::unique_ptr<Timer::TimeEntry> entry(timer.createEntry());
  return dynamic_cast<TimerCUDA::TimeEntryGPU0*>(entry.get()) != nullptr;
}

TEST_F(TimerCudaTest, ANullOrEmptyListMeansTheCurrentDevice) {
  int dev[] = {2, 0};
  TimerCUDA null(nullptr, 2);
  EXPECT_TRUE(measuresCurrentDevice(null));
  TimerCUDA empty(dev, 0);
  EXPECT_TRUE(measuresCurrentDevice(empty));
  TimerCUDA negative(dev, -1);
  EXPECT_TRUE(measuresCurrentDevice(negative));
  TimerCUDA one(dev, 1);
  EXPECT_FALSE(measuresCurrentDevice(one));
  one.ndev = 0;
  EXPECT_TRUE(measuresCurrentDevice(one));
  null.ndev = 1;
  EXPECT_TRUE(measuresCurrentDevice(null));
}

TEST_F(TimerCudaTest, IsATimer) {
  int dev[] = {0, 1};
  const std::unique_ptr<Timer> timer = std::make_unique<TimerCUDA>(dev, 2);
  const std::unique_ptr<Timer::TimeEntry> entry(timer->createEntry());
  EXPECT_NE(dynamic_cast<TimerCUDA::TimeEntryMultiGPU*>(entry.get()), nullptr);
}

}  // namespace
}  // namespace namespace_ratseg
