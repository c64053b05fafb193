#include "engine/util/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

using namespace lumivale;

TEST(ParallelForTest, VisitsEveryIndexOnce) {
  for (std::size_t count : {0u, 1u, 2u, 7u, 1000u}) {
    std::vector<std::atomic<int>> hits(count);
    parallelFor(count, [&](std::size_t i) { hits[i]++; });
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(hits[i].load(), 1) << i;
  }
}

TEST(ParallelForTest, NestedLoopsFinish) {
  std::atomic<int> total{0};
  parallelFor(8, [&](std::size_t) { parallelFor(8, [&](std::size_t) { total++; }); });
  EXPECT_EQ(total.load(), 64);
}

TEST(ParallelForTest, RethrowsTheBodysErrorAfterAllCallsEnded) {
  std::atomic<int> calls{0};
  EXPECT_THROW(parallelFor(100,
                           [&](std::size_t i) {
                             calls++;
                             if (i == 13) throw std::runtime_error("boom");
                           }),
               std::runtime_error);
  EXPECT_EQ(calls.load(), 100);
  EXPECT_GE(workerCount(), 1u);
}
