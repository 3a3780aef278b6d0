// The cycle counter and its rate.
#include "platform/clock.h"

#include <time.h>

#include <gtest/gtest.h>

namespace {

TEST(Clock, CountsNanosecondsOnLinux) { EXPECT_EQ(platform::CyclesPerSecond(), 1000000000u); }

TEST(Clock, NeverRunsBackwardsAndCountsAtLeastTheTimeSlept) {
  uint64_t previous = platform::ClockCycles();
  for (int i = 0; i < 1000; ++i) {
    uint64_t now = platform::ClockCycles();
    ASSERT_GE(now, previous);
    previous = now;
  }
  const uint64_t sleptCycles = platform::CyclesPerSecond() / 50;  // 20 ms
  struct timespec pause = {0, 20 * 1000 * 1000};
  uint64_t before = platform::ClockCycles();
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, &pause) != 0) {
  }
  EXPECT_GE(platform::ClockCycles() - before, sleptCycles);
}

}  // namespace
