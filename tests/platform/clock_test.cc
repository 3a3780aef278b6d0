// The cycle counter and its rate.
#include "platform/clock.h"

#include <errno.h>
#include <time.h>

#include <gtest/gtest.h>

namespace {

TEST(Clock, CountsNanosecondsOnLinux) { EXPECT_EQ(platform::CyclesPerSecond(), 1000000000u); }

// The sleep is measured on the monotonic clock, so the count cannot fall short.
TEST(Clock, CountsAtLeastTheTimeSlept) {
  const uint64_t sleptCycles = platform::CyclesPerSecond() / 50;  // 20 ms
  struct timespec pause = {0, 20 * 1000 * 1000};
  uint64_t before = platform::ClockCycles();
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, &pause) == EINTR) {
  }
  EXPECT_GE(platform::ClockCycles() - before, sleptCycles);
}

}  // namespace
