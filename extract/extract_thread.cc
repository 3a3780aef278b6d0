#include "extract/extract_thread.h"

#include <archive.h>

#include <cstdio>

#include "extract/archive_input.h"
#include "extract/entry_walker.h"
#include "extract/file_threads.h"
#include "extract/run_stop.h"
#include "extract_verify/buffers.h"
#include "extract_verify/resources.h"
#include "platform/file_io.h"
#include "platform/log.h"
#include "platform/thread.h"

namespace ev {

namespace {

// Every message of the thread carries its name, whichever helper emits it.
const char kThreadName[] = "extractThread";
#define EXTRACT_LOG(level, ...) EV_LOG_AS(kThreadName, level, __VA_ARGS__)

// Opens the archive over the read ring and walks it; then finishes every
// file pipeline of the run.
void ExtractArchive(archive* reader, ArchiveInput& input) {
  ReadAndExtractBuffer& buffer = *input.ring;
  int opened = OpenPackageArchive(reader, &input);
  if (opened != ARCHIVE_OK) {
    // A failed open need not leave an error text (a gzip trailer cut short
    // leaves none); print what glibc prints for a null string rather than
    // handing null to printf on the target.
    const char* error = archive_error_string(reader);
    if (error == nullptr) error = "(null)";
    printf("Failed to create archive file: (%d) (%s)\n", opened, error);
    EXTRACT_LOG(kLogError, "Failed to create archive file: (%d) (%s)", opened, error);
    buffer.m_eStatus = PKG_ERR03;
    buffer.extractStopped();
    return;
  }
  ArchiveFile file(reader, opened);
  EXTRACT_LOG(kLogInfo, " Entering extract thread main while loop");
  const bool archiveEnded = WalkEntries(reader, buffer);
  // No more chunks are taken: a reader waiting for a free one must not wait
  // for ever, whatever remains of the package.
  buffer.extractStopped(archiveEnded);

  EXTRACT_LOG(kLogInfo, " Exiting extract thread main while loop");
  printf("Waiting for child threads to join\n");
  EXTRACT_LOG(kLogInfo, "Waiting for child threads to join");
  bool writeFailed = WaitForChildThreads();
  // An abort during the end of the pipelines cut their files short.
  bool aborted = run_stop::AbortRequested();
  if ((writeFailed || aborted) && buffer.m_eStatus == KALU_NO_ERR) buffer.m_eStatus = PKG_ERR03;
  // An aborted run is over at once: flushing every file system of the
  // machine can take far longer, for files that are of no use.
  if (aborted) return;
  platform::SyncAll();
  platform::SyncAll();
}

}  // namespace

void* extractThread(void* argument) {
  platform::SetCurrentThreadName(kThreadName);
  EXTRACT_LOG(kLogInfo, "+");
  auto* args = static_cast<ExtractThreadArgs*>(argument);
  ReadAndExtractBuffer& buffer = *args->input.ring;
  platform::SetCurrentThreadPriority(args->priority - 1);  // a refusal is ignored

  ArchiveObject reader(archive_read_new());
  if (reader == nullptr) {
    printf("Failed to create archive object\n");
    EXTRACT_LOG(kLogError, "Failed to create archive object");
    buffer.m_eStatus = PKG_ERR03;
    buffer.extractStopped();
  } else {
    ExtractArchive(reader, args->input);
  }
  EXTRACT_LOG(kLogInfo, "-");
  return nullptr;
}

}  // namespace ev
