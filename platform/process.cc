#include "platform/process.h"

#include <errno.h>
#include <stdio.h>

#include <atomic>

namespace ev::platform {

namespace {

#if defined(EV_TEST_SEAMS)
std::atomic<bool> g_failCommandStarts{false};

bool CommandStartFails() { return g_failCommandStarts.load(std::memory_order_relaxed); }
#else
bool CommandStartFails() { return false; }
#endif

}  // namespace

FILE* OpenCommandOutput(const char* command) {
  if (CommandStartFails()) {
    errno = EAGAIN;
    return nullptr;
  }
  return popen(command, "r");
}

int CloseCommandOutput(FILE* stream) { return pclose(stream); }

#if defined(EV_TEST_SEAMS)
void InjectCommandStartFailure(bool fail) {
  g_failCommandStarts.store(fail, std::memory_order_relaxed);
}
#endif

}  // namespace ev::platform
