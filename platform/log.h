// The library's two message channels.
//
// Nearly every message is printed to standard output and also logged through
// the platform logger, at the information level (23) or the error level (31).
// EV_LOG tests the mask before it formats anything, so a disabled level costs
// one load and one test. The function name logged is the caller's own.
#ifndef PLATFORM_LOG_H_
#define PLATFORM_LOG_H_

#include <cstdio>

#include "platform/hxlog/hxlog.h"

namespace ev {

enum { kLogInfo = 23, kLogError = 31 };

inline bool LogEnabled(int level) {
  return (g_LumLogParams.logMask.load(std::memory_order_relaxed) & (1u << level)) != 0;
}

}  // namespace ev

// Logs under the name `function`: for helpers that speak for the entry
// point they serve, so that all of its messages carry one name.
#define EV_LOG_AS(function, level, ...)                                             \
  do {                                                                              \
    if (::ev::LogEnabled(level)) HxLog(__LINE__, (level), (function), __VA_ARGS__); \
  } while (0)

#define EV_LOG(level, ...) EV_LOG_AS(__func__, level, __VA_ARGS__)

#define EV_LOG_INFO(...) EV_LOG(::ev::kLogInfo, __VA_ARGS__)
#define EV_LOG_ERROR(...) EV_LOG(::ev::kLogError, __VA_ARGS__)

// One text on both channels: printed with a line end, logged without one.
// For the messages whose wording is the library's own, so that the printed
// and the logged form cannot drift apart.
#define EV_SAY_AS(function, level, format, ...)        \
  do {                                                 \
    printf(format "\n", ##__VA_ARGS__);                \
    EV_LOG_AS(function, level, format, ##__VA_ARGS__); \
  } while (0)

#define EV_SAY(level, format, ...) EV_SAY_AS(__func__, level, format, ##__VA_ARGS__)

// Entry and exit marks of the library's functions.
#define EV_LOG_ENTER() EV_LOG_INFO("+")
#define EV_LOG_LEAVE() EV_LOG_INFO("-")

#endif  // PLATFORM_LOG_H_
