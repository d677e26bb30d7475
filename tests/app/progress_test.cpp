#include "app/progress.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "app/status_line.h"

namespace namespace_ratseg {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ProgressForm, IsARewrittenLineOnTerminalsAndLinesElsewhere) {
  const auto asked = progressForm(ProgressWanted::always, true);
  EXPECT_TRUE(asked->isRewritten);
  EXPECT_EQ(asked->begin, 0);
  const auto log = progressForm(ProgressWanted::always, false);
  EXPECT_FALSE(log->isRewritten);
  EXPECT_EQ(log->begin, 10);
  EXPECT_EQ(log->every, 10);
}

TEST(ProgressForm, IsOfLongRunsOnTerminalsUnlessItIsAskedFor) {
  const auto unasked = progressForm(ProgressWanted::automatic, true);
  EXPECT_TRUE(unasked->isRewritten);
  EXPECT_EQ(unasked->begin, 2);
  EXPECT_FALSE(progressForm(ProgressWanted::automatic, false));
}

TEST(ProgressForm, IsNoneWhereItIsNotWanted) {
  EXPECT_FALSE(progressForm(ProgressWanted::never, true));
  EXPECT_FALSE(progressForm(ProgressWanted::never, false));
}

TEST(DurationText, HasTheTwoLargestUnits) {
  EXPECT_EQ(durationText(0), "0 s");
  EXPECT_EQ(durationText(59.4), "59 s");
  EXPECT_EQ(durationText(59.6), "1 min 00 s");
  EXPECT_EQ(durationText(108), "1 min 48 s");
  EXPECT_EQ(durationText(3599.4), "59 min 59 s");
  EXPECT_EQ(durationText(3599.6), "1 h 00 min");
  EXPECT_EQ(durationText(7 * 3600 + 5 * 60 + 29), "7 h 05 min");
  EXPECT_EQ(durationText(47.99 * 3600), "47 h 59 min");
  EXPECT_EQ(durationText(48 * 3600), "2 days");
  EXPECT_EQ(durationText(86400.0 * 1000), "1000 days");
}

TEST(ProgressText, SaysIterationsRateAndTimeLeft) {
  EXPECT_EQ(progressText({.done = 0, .limit = 5000}), "0 of 5000 iterations");
  EXPECT_EQ(progressText({.done = 1200, .limit = 5000, .seconds = 34.1}),
            "1200 of 5000 iterations, 35.2 per second, 1 min 48 s left");
  EXPECT_EQ(progressText({.done = 1, .limit = 11, .seconds = 32}),
            "1 of 11 iterations, 0.0312 per second, 5 min 20 s left");
  EXPECT_EQ(progressText({.done = 20000, .limit = 20000, .seconds = 2}),
            "20000 of 20000 iterations, 10000 per second, 0 s left");
  EXPECT_EQ(progressText({.done = 1, .limit = 11, .seconds = 0}), "1 of 11 iterations, 0 s left");
}

TEST(ProgressText, SaysTheGapOnceItWasChecked) {
  EXPECT_EQ(
      progressText({.done = 100, .limit = 1000, .seconds = 10, .gap = NAN, .tolerance = 0.001}),
      "100 of 1000 iterations, 10 per second, at most 1 min 30 s left");
  EXPECT_EQ(
      progressText({.done = 500, .limit = 1000, .seconds = 50, .gap = 0.00234, .tolerance = 0.001}),
      "500 of 1000 iterations, 10 per second, at most 50 s left, gap 0.00234 (goal 0.001)");
}

TEST(ProgressEnd, SaysHowLongItTook) {
  EXPECT_EQ(progressEnd({.done = 5000, .limit = 5000, .seconds = 142}),
            "5000 of 5000 iterations in 2 min 22 s, 35.2 per second");
  EXPECT_EQ(progressEnd({.done = 0, .limit = 0, .seconds = 0}), "0 of 0 iterations in 0 s");
}

class FakeScreen final : public ProgressScreen {
 public:
  void show(const std::string& line) override { seen.push_back(line); }
  void erase() override { seen.emplace_back("(erased)"); }
  double now() override { return time; }

  double time = 1000;
  std::vector<std::string> seen;
};

class FakeRun final : public RunState {
 public:
  const Statistics& statistics() const override { return now; }
  void getSolution(float*) override { ADD_FAILURE() << "progress needs no labeling"; }

  Statistics now;
};

class ProgressTest : public testing::Test {
 protected:
  ProgressTest() { par_.Nsteps = 100; }
  // Each iteration takes so many seconds.
  void run(Progress& progress, std::size_t iterations, double seconds) {
    for (std::size_t k = 0; k < iterations; ++k) {
      EXPECT_TRUE(progress.goOn(run_));
      screen_.time += seconds;
      ++run_.now.iterations;
    }
  }

  Params par_;
  FakeScreen screen_;
  FakeRun run_;
};

TEST_F(ProgressTest, IsShownFromItsBeginOnAndNotTooOften) {
  Progress progress(par_, {true, 2, 5}, screen_);
  run(progress, 20, 1);
  EXPECT_THAT(screen_.seen, ElementsAre("2 of 100 iterations, 1 per second, 1 min 38 s left",
                                        "7 of 100 iterations, 1 per second, 1 min 33 s left",
                                        "12 of 100 iterations, 1 per second, 1 min 28 s left",
                                        "17 of 100 iterations, 1 per second, 1 min 23 s left"));
}

TEST_F(ProgressTest, IsErasedAtTheEndOfARewrittenLine) {
  Progress progress(par_, {true, 0, 5}, screen_);
  run(progress, 2, 1);
  progress.end(run_.now);
  EXPECT_THAT(screen_.seen, ElementsAre("0 of 100 iterations", "(erased)"));
}

TEST_F(ProgressTest, EndsALogWithALine) {
  Progress progress(par_, {false, 10, 10}, screen_);
  run(progress, 4, 0.5);
  EXPECT_THAT(screen_.seen, IsEmpty());
  progress.end(run_.now);
  EXPECT_THAT(screen_.seen, ElementsAre("(erased)", "4 of 100 iterations in 2 s, 2 per second"));
}

TEST_F(ProgressTest, HasTheGapOfARunWithATolerance) {
  par_.tolerance = 0.01f;
  run_.now.gap = 0.5;
  Progress progress(par_, {true, 0, 5}, screen_);
  run(progress, 1, 1);
  EXPECT_THAT(screen_.seen, ElementsAre("0 of 100 iterations, gap 0.5 (goal 0.01)"));
}

TEST(RewrittenLine, CoversWhatStandsThereAndDoesNotWrap) {
  EXPECT_EQ(rewrittenLine("four", 0, 80), "\rfour");
  EXPECT_EQ(rewrittenLine("four", 4, 80), "\rfour");
  EXPECT_EQ(rewrittenLine("four", 6, 80), "\rfour  \rfour");
  EXPECT_EQ(rewrittenLine("", 6, 80), "\r      \r");
  EXPECT_EQ(rewrittenLine("four", 0, 4), "\rfou");
  EXPECT_EQ(rewrittenLine("four", 0, 1), "\r");
  EXPECT_EQ(rewrittenLine("four", 0, 0), "\r");
}

}  // namespace
}  // namespace namespace_ratseg
