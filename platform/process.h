// Running a shell command and reading what it prints.
//
// OpenCommandOutput starts `command` through the system shell (popen in read
// mode) and returns the stream of its standard output, or null when it cannot
// be started; the caller owns the stream and gives it back to
// CloseCommandOutput (pclose), which waits for the command and returns its
// status. Both may be called from any thread; each stream is used by one.
#ifndef PLATFORM_PROCESS_H_
#define PLATFORM_PROCESS_H_

#include <cstdio>

namespace ev::platform {

FILE* OpenCommandOutput(const char* command);
int CloseCommandOutput(FILE* stream);

// Test hook, in the test build only: while set, OpenCommandOutput fails with
// EAGAIN without starting anything. Any thread.
void InjectCommandStartFailure(bool fail);

}  // namespace ev::platform

#endif  // PLATFORM_PROCESS_H_
