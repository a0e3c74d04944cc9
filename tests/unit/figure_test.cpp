#include "host/simulator/figure.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace {

using namespace std::chrono_literals;

using host::simulator::addSaturating;
using host::simulator::Figure;
using host::simulator::Nanoseconds;

constexpr uint64_t kMostCount = std::numeric_limits<uint64_t>::max();
constexpr int64_t kLargestNumber = std::numeric_limits<int64_t>::max();
constexpr int64_t kSmallestNumber = std::numeric_limits<int64_t>::min();

Figure swinging(uint64_t start, uint64_t swing, Nanoseconds period) {
  Figure figure(start);
  figure.swing = swing;
  figure.period = period;
  return figure;
}

TEST(FigureTest, AFigureWithoutGrowthStays) {
  const Figure figure = 7;
  EXPECT_EQ(figure.at(0s), 7U);
  EXPECT_EQ(figure.at(1000s), 7U);
}

TEST(FigureTest, GrowthIsAddedEverySecond) {
  const Figure figure = Figure::growing(100, 3);
  EXPECT_EQ(figure.at(0s), 100U);
  EXPECT_EQ(figure.at(1s), 103U);
  EXPECT_EQ(figure.at(1500ms), 104U);  // 4.5, of which the whole counts
  EXPECT_EQ(figure.at(1h), 10900U);
}

TEST(FigureTest, GrowthHasMillionths) {
  Figure figure;
  figure.growth = 1;
  EXPECT_EQ(figure.at(999'999s), 0U);
  EXPECT_EQ(figure.at(1'000'000s), 1U);
}

TEST(FigureTest, AFallingFigureEndsAtZero) {
  const Figure figure = Figure::growing(10, -4);
  EXPECT_EQ(figure.at(2s), 2U);
  EXPECT_EQ(figure.at(3s), 0U);
  EXPECT_EQ(figure.at(1000h), 0U);
}

TEST(FigureTest, ASwingGoesUpDownAndBack) {
  const Figure figure = swinging(100, 40, 8s);
  EXPECT_EQ(figure.at(0s), 100U);
  EXPECT_EQ(figure.at(1s), 120U);
  EXPECT_EQ(figure.at(2s), 140U);
  EXPECT_EQ(figure.at(3s), 120U);
  EXPECT_EQ(figure.at(4s), 100U);
  EXPECT_EQ(figure.at(5s), 80U);
  EXPECT_EQ(figure.at(6s), 60U);
  EXPECT_EQ(figure.at(7s), 80U);
  EXPECT_EQ(figure.at(8s), 100U);
  EXPECT_EQ(figure.at(10s), 140U);
}

TEST(FigureTest, ASwingBelowZeroIsCutOff) {
  EXPECT_EQ(swinging(10, 40, 8s).at(6s), 0U);
}

TEST(FigureTest, AFigureBeforeItsTimeIsContinuedBackwards) {
  Figure figure = Figure::growing(100, 10);
  figure.from = 5s;
  EXPECT_EQ(figure.at(5s), 100U);
  EXPECT_EQ(figure.at(2s), 70U);
  Figure swing = swinging(100, 40, 8s);
  swing.from = 2s;
  EXPECT_EQ(swing.at(0s), 60U);  // three quarters of a period are over
}

TEST(FigureTest, WithAnotherValueTheGrowthGoesOn) {
  const Figure figure = Figure::growing(0, 10).setTo(1000, 50s);
  EXPECT_EQ(figure.at(50s), 1000U);
  EXPECT_EQ(figure.at(52s), 1020U);
}

TEST(FigureTest, ALaterFigureIsTheSameLater) {
  const Figure figure = Figure::growing(5, 10).later(3s);
  EXPECT_EQ(figure.at(3s), 5U);
  EXPECT_EQ(figure.at(4s), 15U);
}

TEST(FigureTest, WhatDoesNotFitIsCutOff) {
  EXPECT_EQ(Figure::growing(kMostCount - 5, 10).at(1s), kMostCount);
  EXPECT_EQ(swinging(kMostCount, kMostCount, 4s).at(1s), kMostCount);
  EXPECT_EQ(swinging(kMostCount, kMostCount, 4s).at(3s), 0U);
  EXPECT_EQ(Figure::growing(0, kLargestNumber).growth, kLargestNumber);
  EXPECT_EQ(Figure::growing(0, kSmallestNumber).growth, kSmallestNumber);
  EXPECT_EQ(addSaturating(Nanoseconds::max(), 1ns), Nanoseconds::max());
  EXPECT_EQ(addSaturating(Nanoseconds::min(), -1ns), Nanoseconds::min());
  EXPECT_EQ(Figure(1).later(Nanoseconds::max()).later(1ns).from, Nanoseconds::max());
}

// A growth of 2^63 millionths over 2^64 - 1 nanoseconds is 170141183460 and a bit times 10^12.
TEST(FigureTest, TheLargestProductsAreExact) {
  Figure figure;
  figure.growth = kSmallestNumber;
  figure.from = Nanoseconds::max();
  EXPECT_EQ(figure.at(Nanoseconds::min()), kMostCount);
  figure.growth = 1'000'000;
  figure.from = Nanoseconds::min();
  EXPECT_EQ(figure.at(Nanoseconds::max()), 18'446'744'073U);
  figure.growth = -1'000'000;
  figure.start = 18'446'744'074U;
  EXPECT_EQ(figure.at(Nanoseconds::max()), 1U);
}

TEST(FigureTest, EveryValueOfEveryFieldIsDefined) {
  const std::vector<uint64_t> counts = {0, 1, kMostCount / 2, kMostCount};
  const std::vector<int64_t> numbers = {kSmallestNumber,    kSmallestNumber + 1, -1, 0, 1,
                                        kLargestNumber - 1, kLargestNumber};
  size_t figures = 0;
  for (const uint64_t start : counts) {
    for (const uint64_t swing : counts) {
      for (const int64_t period : numbers) {
        for (const int64_t from : numbers) {
          Figure figure = swinging(start, swing, Nanoseconds{period});
          figure.from = Nanoseconds{from};
          // Without growth, what is at its own moment is its start.
          EXPECT_EQ(figure.at(Nanoseconds{from}), start);
          for (const int64_t growth : numbers) {
            figure.growth = growth;
            EXPECT_EQ(figure.at(Nanoseconds{from}), start);
            for (const int64_t time : numbers) {
              const uint64_t value = figure.at(Nanoseconds{time});
              ++figures;
              if (swing != 0 && period > 0) continue;
              if ((growth >= 0) == (time >= from)) {
                EXPECT_GE(value, start);
              } else {
                EXPECT_LE(value, start);
              }
            }
          }
        }
      }
    }
  }
  EXPECT_EQ(figures, 4U * 4 * 7 * 7 * 7 * 7);
}

}  // namespace
