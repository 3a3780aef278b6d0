// Free-running cycle counter and its rate.
//
// On the target these are ClockCycles() and the cycles-per-second value of
// the system page; on Linux a monotonic nanosecond clock with a rate of 1e9.
// Both may be called from any thread.
#ifndef PLATFORM_CLOCK_H_
#define PLATFORM_CLOCK_H_

#include <cstdint>

namespace platform {

uint64_t ClockCycles();
uint64_t CyclesPerSecond();

}  // namespace platform

#endif  // PLATFORM_CLOCK_H_
