#include "device/host/host_launch.h"

#include <gtest/gtest.h>
#include <omp.h>

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

}  // namespace
}  // namespace namespace_ratseg
