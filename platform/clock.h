// Free-running cycle counter and its rate.
//
// On the target these are ClockCycles() and the cycles-per-second value of
// the system page; on Linux a monotonic nanosecond clock with a rate of 1e9.
// Both may be called from any thread.
#ifndef PLATFORM_CLOCK_H_
#define PLATFORM_CLOCK_H_

#include <time.h>

#include <cstdint>

namespace ev::platform {

uint64_t ClockCycles();
uint64_t CyclesPerSecond();

// The instant `milliseconds` from now, on the clock that condition waits
// with a deadline measure (pthread_cond_timedwait's default).
timespec DeadlineIn(int milliseconds);

}  // namespace ev::platform

#endif  // PLATFORM_CLOCK_H_
