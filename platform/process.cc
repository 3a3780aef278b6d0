#include "platform/process.h"

#include <errno.h>
#include <stdio.h>

#include <atomic>

namespace platform {

namespace {

std::atomic<bool> g_failCommandStarts{false};

}  // namespace

FILE* OpenCommandOutput(const char* command) {
  if (g_failCommandStarts.load(std::memory_order_relaxed)) {
    errno = EAGAIN;
    return nullptr;
  }
  return popen(command, "r");
}

int CloseCommandOutput(FILE* stream) { return pclose(stream); }

void InjectCommandStartFailure(bool fail) {
  g_failCommandStarts.store(fail, std::memory_order_relaxed);
}

}  // namespace platform
