#include "device/host/host_launch.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <atomic>
#include <new>
#include <numeric>
#include <vector>

namespace namespace_ratseg {
namespace {

// How often parallelFor visits each index, and by how many threads at once.
struct Visits {
  std::vector<int> counts;
  int threads = 0;
};

Visits visit(std::size_t count, std::size_t work) {
  Visits visits;
  visits.counts.resize(count);
  std::vector<int> threads(count);
  parallelFor(count, work, [&](std::size_t i) {
    ++visits.counts[i];
    threads[i] = omp_get_num_threads();
  });
  if (count > 0) visits.threads = threads[0];
  return visits;
}

class ParallelForTest : public testing::Test {
 protected:
  ParallelForTest() { omp_set_num_threads(3); }
  ~ParallelForTest() override { omp_set_num_threads(before_); }

 private:
  int before_ = omp_get_max_threads();
};

TEST_F(ParallelForTest, VisitsEachIndexOnce) {
  for (const std::size_t count : {0, 1, 2, 3, 4, 1000}) {
    EXPECT_EQ(visit(count, kParallelWork).counts, std::vector<int>(count, 1));
    EXPECT_EQ(visit(count, 0).counts, std::vector<int>(count, 1));
  }
}

TEST_F(ParallelForTest, SpreadsOnlyEnoughWorkOverThreads) {
  EXPECT_EQ(visit(10, kParallelWork - 1).threads, 1);
  EXPECT_EQ(visit(10, kParallelWork).threads, 3);
}

TEST_F(ParallelForTest, TheSecondPartBeginsWhenTheFirstAndWhatIsBetweenAreDone) {
  for (const std::size_t work : {std::size_t{0}, kParallelWork}) {
    constexpr std::size_t kCount = 1000;
    std::vector<int> first(kCount), seen(kCount);
    int sum = 0, times = 0;
    parallelForInTwoParts(
        kCount, work, [&](std::size_t i) { ++first[i]; },
        [&] {
          ++times;
          for (const int x : first) sum += x;
        },
        [&](std::size_t i) { seen[i] += sum; });
    EXPECT_EQ(times, 1);
    EXPECT_EQ(seen, std::vector<int>(kCount, kCount));
  }
}

TEST_F(ParallelForTest, WhatABodyThrowsReachesTheCallerWhenTheOthersAreDone) {
  for (const std::size_t work : {std::size_t{0}, kParallelWork}) {
    std::vector<int> done(1000);
    const auto body = [&](std::size_t i) {
      if (i % 100 == 50) throw std::bad_alloc();
      ++done[i];
    };
    EXPECT_THROW(parallelFor(done.size(), work, body), std::bad_alloc);
    EXPECT_EQ(std::accumulate(done.begin(), done.end(), 0), 990);
  }
}

TEST_F(ParallelForTest, AnExceptionEndsTwoPartsWithThePartThatThrewIt) {
  for (const std::size_t work : {std::size_t{0}, kParallelWork}) {
    // Which of the three throws, and how many calls of each come to their end.
    struct Case {
      int thrower;
      std::vector<int> ended;
    };
    for (const Case& c : {Case{0, {99, 0, 0}}, {1, {100, 0, 0}}, {2, {100, 1, 99}}}) {
      std::array<std::atomic<int>, 3> ended = {0, 0, 0};
      const auto part = [&](int k, std::size_t i) {
        if (c.thrower == k && i == 50) throw std::bad_alloc();
        ++ended[k];
      };
      EXPECT_THROW(parallelForInTwoParts(
                       100, work, [&](std::size_t i) { part(0, i); }, [&] { part(1, 50); },
                       [&](std::size_t i) { part(2, i); }),
                   std::bad_alloc);
      EXPECT_EQ(std::vector<int>(ended.begin(), ended.end()), c.ended);
    }
  }
}

}  // namespace
}  // namespace namespace_ratseg
