#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "extract_verify/manifest.h"
#include "platform/process.h"

namespace platform = ev::platform;

namespace {

// Appends everything `stream` yields, line by line, until its end. A read
// interrupted by a signal is repeated; any other read error ends the output
// early rather than spinning on a stream that will never reach its end.
void AppendAllLines(FILE* stream, std::string* output) {
  char line[128];
  memset(line, 0, sizeof(line));
  while (!feof(stream)) {
    errno = 0;
    if (fgets(line, sizeof(line), stream) != nullptr) {
      output->append(line);
      continue;
    }
    if (ferror(stream)) {
      if (errno != EINTR) break;
      clearerr(stream);
    }
  }
}

}  // namespace

std::string _GetSystemDate() {
  std::string date;
  const char* format = "%F";
  char command[100];
  memset(command, 0, sizeof(command));
  snprintf(command, sizeof(command), "date +%s", format);

  FILE* stream = platform::OpenCommandOutput(command);
  if (stream == nullptr) return date;
  AppendAllLines(stream, &date);
  platform::CloseCommandOutput(stream);  // the exit status does not matter here
  return date;
}
