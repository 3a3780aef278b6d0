#include <pthread.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "extract/archive_input.h"
#include "extract/extract_thread.h"
#include "extract/package_reads.h"
#include "extract/run_state_internal.h"
#include "extract/run_stop.h"
#include "extract_verify/buffers.h"
#include "extract_verify/extraction.h"
#include "extract_verify/resources.h"
#include "platform/file_io.h"
#include "platform/log.h"
#include "platform/thread.h"
#if EV_HAVE_ISAL
#include "extract/tar_inflater.h"
#endif

namespace extract_progress = ev::extract_progress;
namespace platform = ev::platform;
namespace run_stop = ev::run_stop;
using ev::ArchiveInput;
using ev::extractThread;
using ev::ExtractThreadArgs;
using ev::kLogError;
using ev::kLogInfo;

namespace {

// The reader's messages carry its entry's name, whichever helper emits them.
const char kReaderName[] = "copyWithHash";
#define READER_LOG(level, ...) EV_LOG_AS(kReaderName, level, __VA_ARGS__)

// How the package's gzip layer ended, when the reader inflated it.
struct GzipEnd {
  std::string failure;       // empty: it ended well, or was not read to its end
  bool checkFailed = false;  // a trailer's CRC-32 or size, which libarchive does not check
  bool tailCut = false;      // an abort came while the rest was checked
};

// Publishes the package's chunks as they are until the input ends or the run
// stops taking them. A failure status set here is replaced by the extract
// thread's after the join.
void PassChunks(ReadAndExtractBuffer& buffer, ev::PackageReads& reads, _KALU_Error& status) {
  while (!run_stop::ReaderStops(buffer.m_eStatus, &status)) {
    unsigned char* chunk = buffer.nextWrite();
    if (chunk == nullptr) {  // the extract thread has stopped reading
      if (run_stop::AbortRequested()) run_stop::ReportAbort();
      return;
    }
    int64_t count = reads.read(chunk);
    if (count < 0) status = PKG_ERR03;
    if (count <= 0) return;
    buffer.writeReady(static_cast<unsigned int>(count));
  }
}

GzipEnd FillRing(ReadAndExtractBuffer& buffer, ev::PackageReads& reads, _KALU_Error& status) {
#if EV_HAVE_ISAL
  if (ev::TarInflaterEnabled()) {
    ev::TarInflater inflater(buffer, reads);
    if (inflater.run(status)) {
      return {inflater.failureText(), inflater.failure() == ev::GzipMembers::Failure::kBadTrailer,
              inflater.tailCut()};
    }
    reads.restart();  // not gzip: libarchive is given the package as it is
  }
#endif
  PassChunks(buffer, reads, status);
  return {};
}

// Damage in the gzip layer that the archive reader never met (it stopped at
// the archive's end before it) fails a run that would otherwise pass; a
// trailer that fails its check is named in any case, since libarchive's
// own reading never names it. So does an abort before the package was
// checked to its end.
void ReportGzipEnd(const GzipEnd& end, bool delivered, _KALU_Error& status) {
  if (end.tailCut && status == KALU_NO_ERR) status = PKG_ERR03;
  if (end.failure.empty()) return;
  const bool decides = !delivered && status == KALU_NO_ERR;
  if (decides || end.checkFailed) {
    EV_SAY_AS(kReaderName, kLogError, "Error: package data damaged: %s", end.failure.c_str());
  }
  if (decides) status = PKG_ERR03;
}

// Everything after the package has been opened: starts the extract thread,
// sizes the file, fills the ring and joins the extract thread.
void ReadOpenPackage(ReadAndExtractBuffer& buffer, ExtractThreadArgs& args, int fd,
                     _KALU_Error& status) {
  pthread_t extractTid;
  if (platform::StartThread(&extractTid, extractThread, &args) != 0) {
    int error = errno;
    printf("extractThread failed to create - %d", error);
    READER_LOG(kLogError, "extractThread failed to create - %d ", error);
    // Nobody would ever give a chunk back: end the run instead of blocking.
    platform::Close(fd);
    status = PKG_ERR03;
    return;
  }

  FileHandle file(fd);
  int64_t size = 0;
  if (platform::FileSize(fd, &size) != 0) {
    int error = errno;
    printf("Error: fstat64() failed. Error no: %d\n", error);
    READER_LOG(kLogError, "Error: fstat64() failed. Error no: %d ", error);
    status = PKG_ERR03;
    file.closeNow();
    // The extract thread uses the ring until it has seen the end.
    buffer.writeFinished();
    platform::JoinThread(extractTid);
    return;
  }
  printf("File size : %lld Bytes\n", static_cast<long long>(size));
  READER_LOG(kLogInfo, "File size : %lld Bytes", static_cast<long long>(size));
  READER_LOG(kLogInfo, " Entering While Loop ");
  extract_progress::SourceOpened(static_cast<uint64_t>(size));

  ev::PackageReads reads(fd, size);
  const GzipEnd gzipEnd = FillRing(buffer, reads, status);
  extract_progress::ReadingDone();

  buffer.writeFinished();
  // Closed now, so that the handle's own close cannot hit a descriptor that
  // another thread opens under the same number in the meantime.
  file.closeNow();
  printf("Wait extractTid thread to join\n");
  READER_LOG(kLogInfo, "Wait extractTid thread to join");
  platform::JoinThread(extractTid);
  // The extract thread may have seen an abort after the package was read;
  // the reader reports it all the same.
  if (run_stop::AbortSeen()) run_stop::ReportAbort();
  // An early end reaches the result only through what the extract thread
  // made of its truncated input.
  status = buffer.m_eStatus;
  ReportGzipEnd(gzipEnd, args.input.failureDelivered, status);
}

}  // namespace

void copyWithHash(_KALU_Error& status) {
  platform::SetCurrentThreadName("USBReadThread");
  EV_LOG_ENTER();
  extract_progress::Begin();
  run_stop::Begin();
  ReadAndExtractBuffer buffer;
  ExtractThreadArgs args{ArchiveInput{&buffer}, platform::CurrentThreadPriority()};

  printf("Input File : %s\n", g_srcFilePath.c_str());
  EV_LOG_INFO("Input File : %s", g_srcFilePath.c_str());

  int fd = platform::OpenReadOnly(g_srcFilePath.c_str());
  if (fd < 0) {
    int error = errno;
    status = PKG_ERR03;
    printf("Error: open64() failed. Error no: %d\n", error);
    EV_LOG_ERROR("Error: open64() failed. Error no: %d ", error);
  } else {
    ReadOpenPackage(buffer, args, fd, status);
  }
  EV_LOG_LEAVE();
}
