// Small text helpers for the tool's messages. Any thread.
#ifndef TOOLS_CLI_TEXT_FORMAT_H_
#define TOOLS_CLI_TEXT_FORMAT_H_

#include <cstdint>
#include <string>

namespace cli {

// "512 B", "1.5 KiB", "27.0 MiB", "3.20 GiB".
std::string HumanSize(uint64_t bytes);

// "0:07", "12:30", "1:02:03" for a number of seconds.
std::string ClockDuration(uint64_t seconds);

// One line of the progress display, at most `width` columns:
// "[#####.....]  48%  12.0 MiB / 25.0 MiB  40.1 MiB/s  0:01 left".
// `seconds` is the time since the package's size became known.
std::string ProgressLine(uint64_t bytesRead, uint64_t packageSize, double seconds, unsigned width);

}  // namespace cli

#endif  // TOOLS_CLI_TEXT_FORMAT_H_
