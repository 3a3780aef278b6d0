#include "tools/cli/text_format.h"

#include <algorithm>
#include <cstdio>

namespace cli {

namespace {

// Columns that the bar itself may take, between the brackets.
const unsigned kBarMin = 10;
const unsigned kBarMax = 40;
// The rate is not shown before this much time has passed: the first
// chunks are read far faster than the archive can take them.
const double kRateAfterSeconds = 0.3;

}  // namespace

std::string HumanSize(uint64_t bytes) {
  static const char* const kUnits[] = {"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes) / 1024.0;
  size_t unit = 0;
  while (value >= 1024.0 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
    value /= 1024.0;
    ++unit;
  }
  char text[32];
  snprintf(text, sizeof text, value < 10.0 ? "%.2f %s" : "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string ClockDuration(uint64_t seconds) {
  char text[32];
  if (seconds >= 3600) {
    snprintf(text, sizeof text, "%llu:%02llu:%02llu",
             static_cast<unsigned long long>(seconds / 3600),
             static_cast<unsigned long long>(seconds / 60 % 60),
             static_cast<unsigned long long>(seconds % 60));
  } else {
    snprintf(text, sizeof text, "%llu:%02llu", static_cast<unsigned long long>(seconds / 60),
             static_cast<unsigned long long>(seconds % 60));
  }
  return text;
}

std::string ProgressLine(uint64_t bytesRead, uint64_t packageSize, double seconds, unsigned width) {
  double fraction =
      packageSize == 0
          ? 1.0
          : std::min(1.0, static_cast<double>(bytesRead) / static_cast<double>(packageSize));
  char percent[8];
  snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(fraction * 100.0));
  std::string tail =
      std::string("  ") + percent + "  " + HumanSize(bytesRead) + " / " + HumanSize(packageSize);
  if (seconds >= kRateAfterSeconds && bytesRead > 0) {
    double rate = static_cast<double>(bytesRead) / seconds;
    tail += "  " + HumanSize(static_cast<uint64_t>(rate)) + "/s";
    if (bytesRead < packageSize) {
      double left = static_cast<double>(packageSize - bytesRead) / rate;
      tail += "  " + ClockDuration(static_cast<uint64_t>(left + 0.5)) + " left";
    }
  }

  unsigned room = width > tail.size() + 2 ? width - static_cast<unsigned>(tail.size()) - 2 : 0;
  unsigned bar = std::min(kBarMax, room);
  if (bar < kBarMin) return tail.substr(2, width);  // too narrow for a bar
  unsigned filled = static_cast<unsigned>(fraction * bar);
  return "[" + std::string(filled, '#') + std::string(bar - filled, '.') + "]" + tail;
}

}  // namespace cli
