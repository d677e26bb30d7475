#include "util/Timer.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace namespace_ratseg {
namespace {

// A stopwatch whose spans are told.
class ToldEntry final : public Timer::TimeEntry {
 public:
  explicit ToldEntry(int& alive) : alive_(alive) { ++alive_; }
  ~ToldEntry() override { --alive_; }
  void begin() override { running = true; }
  void end() override {
    tOverall += span;
    running = false;
    ++ends;
  }

  float span = 0;
  int ends = 0;

 private:
  int& alive_;
};

class ToldTimer final : public Timer {
 public:
  explicit ToldTimer(int& alive) : alive_(alive) {}
  TimeEntry* createEntry() override { return new ToldEntry(alive_); }
  ToldEntry& entry(const std::string& name) { return static_cast<ToldEntry&>(*entries.at(name)); }
  // A stopwatch that has measured seconds.
  void tell(const std::string& name, float seconds) {
    begin(name);
    entry(name).span = seconds;
    end(name);
  }

 private:
  int& alive_;
};

class TimerTest : public testing::Test {
 protected:
  int alive_ = 0;
  ToldTimer timer_{alive_};
};

// Text that run writes to standard output or standard error.
template <class F>
std::string output(F run) {
  testing::internal::CaptureStdout();
  run();
  return testing::internal::GetCapturedStdout();
}
template <class F>
std::string errors(F run) {
  testing::internal::CaptureStderr();
  run();
  return testing::internal::GetCapturedStderr();
}

TEST_F(TimerTest, BeginMakesAnEntryOnceAndStartsIt) {
  timer_.begin("a");
  EXPECT_EQ(timer_.entries.size(), 1u);
  EXPECT_TRUE(timer_.entry("a").running);
  const Timer::TimeEntry* first = timer_.entries.at("a").get();
  timer_.end("a");
  EXPECT_FALSE(timer_.entry("a").running);
  timer_.begin("a");
  EXPECT_EQ(timer_.entries.at("a").get(), first);
  EXPECT_EQ(alive_, 1);
}

TEST_F(TimerTest, AddsUpItsSpans) {
  timer_.tell("a", 1.5f);
  timer_.tell("a", 2.25f);
  EXPECT_EQ(timer_.get("a"), 3.75f);
}

TEST_F(TimerTest, EndOfAnUnknownNameIsReportedAndCreatesNothing) {
  EXPECT_EQ(errors([&] { timer_.end("some name"); }),
            "Timer: ERROR: Call of 'end(\"some name\")' without previous call of "
            "'begin(\"some name\")'.\n");
  EXPECT_TRUE(timer_.entries.empty());
}

TEST_F(TimerTest, GetOfAnUnknownNameIsReportedAndZero) {
  float seconds = 1;
  EXPECT_EQ(errors([&] { seconds = timer_.get("some name"); }),
            "Timer: ERROR: Element <some name> not found\n");
  EXPECT_EQ(seconds, 0);
  EXPECT_TRUE(timer_.entries.empty());
}

TEST_F(TimerTest, GetEndsARunningEntryFirst) {
  timer_.begin("a");
  timer_.entry("a").span = 4;
  EXPECT_EQ(timer_.get("a"), 4);
  EXPECT_FALSE(timer_.entry("a").running);
  EXPECT_EQ(timer_.entry("a").ends, 1);
  EXPECT_EQ(timer_.get("a"), 4);
  EXPECT_EQ(timer_.entry("a").ends, 1);
}

TEST_F(TimerTest, GetRoundsToTenMicroseconds) {
  timer_.tell("below", 0.0000049f);
  timer_.tell("above", 0.0000051f);
  timer_.tell("more", 1.234564f);
  timer_.tell("most", 1.234567f);
  EXPECT_EQ(timer_.get("below"), 0.0f);
  EXPECT_EQ(timer_.get("above"), 0.00001f);
  EXPECT_EQ(timer_.get("more"), 1.23456f);
  EXPECT_EQ(timer_.get("most"), 1.23457f);
}

TEST_F(TimerTest, ClearForgetsOneOrAll) {
  timer_.begin("a");
  timer_.begin("b");
  timer_.begin("c");
  timer_.clear("b");
  timer_.clear("never begun");
  EXPECT_EQ(timer_.entries.size(), 2u);
  EXPECT_EQ(timer_.entries.count("b"), 0u);
  EXPECT_EQ(alive_, 2);
  timer_.clear();
  EXPECT_TRUE(timer_.entries.empty());
  EXPECT_EQ(alive_, 0);
}

TEST_F(TimerTest, ClearedEntryStartsFromZero) {
  timer_.tell("a", 5);
  timer_.clear("a");
  timer_.tell("a", 1);
  EXPECT_EQ(timer_.get("a"), 1);
}

TEST(TimerDestruction, DeletesItsEntries) {
  int alive = 0;
  {
    ToldTimer timer(alive);
    timer.begin("a");
    timer.begin("b");
    EXPECT_EQ(alive, 2);
  }
  EXPECT_EQ(alive, 0);
}

// --- printAll ---

TEST_F(TimerTest, PrintsNamesTimesAndSharesAligned) {
  timer_.tell("overall", 1.5f);
  timer_.tell("b", 0.25f);
  timer_.tell("a", 0.0625f);
  EXPECT_EQ(output([&] { timer_.printAll("# "); }),
            "# Times:\n"
            "#     a:         62 ms     3.42%\n"
            "#     b:        250 ms    13.79%\n"
            "#     overall: 1500 ms    82.78%\n");
}

TEST_F(TimerTest, PrintsWithoutAPrefixByDefault) {
  timer_.tell("x", 2);
  EXPECT_EQ(output([&] { timer_.printAll(); }), "Times:\n    x: 2000 ms    100%\n");
}

TEST_F(TimerTest, BlanksBetweenTheColumnsGoToStandardOutputWhateverTheStream) {
  timer_.tell("a", 1);
  timer_.tell("b", 3);
  std::ostringstream out;
  EXPECT_EQ(output([&] { timer_.printAll(out, "> "); }), "        ");
  EXPECT_EQ(out.str(), "> Times:\n>     a: 1000 ms25%\n>     b: 3000 ms75%\n");
}

TEST_F(TimerTest, WithoutEntriesPrintsTheHeaderAlone) {
  std::ostringstream out;
  EXPECT_EQ(output([&] { timer_.printAll(out, "> "); }), "");
  EXPECT_EQ(out.str(), "> Times:\n");
}

// The last column of each line.
std::vector<std::string> shares(ToldTimer& timer) {
  std::ostringstream out;
  output([&] { timer.printAll(out, ""); });
  std::vector<std::string> result;
  std::istringstream lines(out.str());
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) result.push_back(line.substr(line.find("ms") + 2));
  return result;
}

TEST_F(TimerTest, MillisecondsAreCutOffNotRounded) {
  timer_.tell("a", 0.0019f);
  std::ostringstream out;
  output([&] { timer_.printAll(out, ""); });
  EXPECT_EQ(out.str(), "Times:\n    a: 1 ms100%\n");
}

TEST_F(TimerTest, SharesHaveTwoDecimalsCutOff) {
  timer_.tell("a", 0.002f);
  timer_.tell("b", 0.001f);
  EXPECT_EQ(shares(timer_), std::vector<std::string>({"66.66%", "33.33%"}));
}

TEST_F(TimerTest, SharesAreOfTheSumOfTheWholeMilliseconds) {
  timer_.tell("a", 0.0039f);
  timer_.tell("b", 0.0019f);
  EXPECT_EQ(shares(timer_), std::vector<std::string>({"75%", "25%"}));
}

TEST_F(TimerTest, SharesDropTrailingZerosAndAlignRight) {
  timer_.tell("a", 0.995f);
  timer_.tell("b", 0.005f);
  EXPECT_EQ(shares(timer_), std::vector<std::string>({"99.5%", " 0.5%"}));
}

TEST_F(TimerTest, NothingMeasuredIsNoShare) {
  timer_.tell("a", 0);
  EXPECT_EQ(shares(timer_), std::vector<std::string>({"0%"}));
}

TEST_F(TimerTest, PrintingEndsWhatIsRunning) {
  timer_.begin("a");
  timer_.entry("a").span = 0.5f;
  EXPECT_EQ(output([&] { timer_.printAll(); }), "Times:\n    a: 500 ms    100%\n");
  EXPECT_FALSE(timer_.entry("a").running);
}

// --- CPU stopwatches ---

TEST(TimeEntryCPU, IsWhatATimerMakes) {
  Timer timer;
  const std::unique_ptr<Timer::TimeEntry> entry(timer.createEntry());
  EXPECT_NE(dynamic_cast<Timer::TimeEntryCPU*>(entry.get()), nullptr);
}

TEST(TimeEntryCPU, StartsWithNothingMeasured) {
  Timer::TimeEntryCPU entry;
  EXPECT_EQ(entry.tOverall, 0);
  EXPECT_FALSE(entry.running);
  EXPECT_EQ(entry.get(), 0);
}

TEST(TimeEntryCPU, AddsTheTicksBetweenItsEndsAsSeconds) {
  Timer::TimeEntryCPU entry;
  entry.begin();
  EXPECT_TRUE(entry.running);
  entry.start -= 2500000;
  entry.end();
  EXPECT_FALSE(entry.running);
  const float first = static_cast<float>(entry.stop - entry.start) / 1000000;
  EXPECT_GE(first, 2.5f);
  EXPECT_EQ(entry.tOverall, first);
  entry.begin();
  EXPECT_GE(entry.start, entry.stop) << "a span starts at its begin()";
  entry.end();
  EXPECT_GE(entry.stop, entry.start);
  EXPECT_EQ(entry.tOverall, first + static_cast<float>(entry.stop - entry.start) / 1000000);
}

TEST(TimeEntryCPU, GetIncludesTheSpanThatIsRunning) {
  Timer::TimeEntryCPU entry;
  entry.begin();
  entry.start -= 1000000;
  EXPECT_GE(entry.get(), 1.0f);
  EXPECT_FALSE(entry.running);
}

}  // namespace
}  // namespace namespace_ratseg
