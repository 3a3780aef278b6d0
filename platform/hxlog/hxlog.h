// Stand-in for the head unit's platform logger.
//
// On the target the platform's own logger library provides these two names
// and this library is not linked. Here every emitted message becomes one line
// on standard error (or goes to a sink that a test installs).
//
// A message of level L is emitted only when bit L of g_LumLogParams.logMask is
// set. The mask starts at 0; at load time it is taken from the environment
// variable HXLOG_MASK (hexadecimal, for example 0x80800000), and it may be
// assigned at any time from any thread. HxLog may be called from any thread.
#ifndef HXLOG_HXLOG_H_
#define HXLOG_HXLOG_H_

#include <atomic>
#include <cstdint>

struct LumLogParams {
  std::atomic<uint32_t> logMask;
};

extern LumLogParams g_LumLogParams;

// Formats `format` with the arguments and emits it when bit `level` of the
// mask is set. The formatted text is passed on unchanged, line end included.
void HxLog(int sourceLine, int level, const char* functionName, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Receives each emitted message instead of standard error. Passing null
// restores standard error. Meant for tests; not part of the platform logger.
using HxLogSink = void (*)(void* context, int sourceLine, int level, const char* functionName,
                           const char* text);
void HxLogSetSink(HxLogSink sink, void* context);

#endif  // HXLOG_HXLOG_H_
