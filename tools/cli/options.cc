#include "tools/cli/options.h"

#include <cstdlib>
#include <ctime>

namespace cli {

bool g_verbose = false;

void AddVerboseFlag(CLI::App* command) {
  command->add_flag("--verbose", g_verbose,
                    "also print the library's lines and the details behind an error");
}

void AddLocalTimeFlag(CLI::App* command, bool* localTime) {
  command->add_flag("--local-time", *localTime,
                    "check the signer's validity in this process's time zone, as the library "
                    "does when called directly (default: UTC, as on the head unit)");
}

std::string UseVerificationTimeZone(bool localTime) {
  if (!localTime) {
    // POSIX form: needs no time zone database on the target.
    setenv("TZ", "UTC0", 1);
    tzset();
    return "UTC";
  }
  tzset();
  const char* zone = getenv("TZ");
  return zone != nullptr ? std::string("local time (TZ=") + zone + ")" : "local time";
}

}  // namespace cli
