#include "platform/clock.h"

#if defined(__QNXNTO__)
#include <sys/neutrino.h>
#include <sys/syspage.h>
#else
#include <time.h>
#endif

namespace ev::platform {

#if defined(__QNXNTO__)

uint64_t ClockCycles() { return ::ClockCycles(); }

uint64_t CyclesPerSecond() { return SYSPAGE_ENTRY(qtime)->cycles_per_sec; }

#else

uint64_t ClockCycles() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

uint64_t CyclesPerSecond() { return 1000000000u; }

#endif

timespec DeadlineIn(int milliseconds) {
  timespec deadline{};
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000L;
  deadline.tv_sec += milliseconds / 1000 + deadline.tv_nsec / 1000000000L;
  deadline.tv_nsec %= 1000000000L;
  return deadline;
}

}  // namespace ev::platform
