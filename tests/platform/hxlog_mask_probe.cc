// Prints the logger mask that the library took from HXLOG_MASK when it was
// loaded, then logs one information and one error line to standard error.
#include <cstdio>

#include "platform/hxlog/hxlog.h"

int main() {
  std::printf("%08x\n", static_cast<unsigned>(g_LumLogParams.logMask.load()));
  std::fflush(stdout);
  HxLog(7, 23, "probe", "info %d", 23);
  HxLog(8, 31, "probe", "error %d", 31);
  return 0;
}
