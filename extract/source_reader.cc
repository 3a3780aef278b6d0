#include "extract/source_reader.h"

#include <pthread.h>

#include <cerrno>
#include <cstdio>

#include "extract/extract_thread.h"
#include "extract/read_buffer.h"
#include "extract/run_state.h"
#include "extract/run_state_internal.h"
#include "extract/run_stop.h"
#include "platform/file_io.h"
#include "platform/log.h"
#include "platform/thread.h"
#include "support/file_handle.h"

namespace {

// The reader's messages carry its entry's name, whichever helper emits them.
const char kReaderName[] = "copyWithHash";
#define READER_LOG(level, ...) EV_LOG_AS(kReaderName, level, __VA_ARGS__)

const size_t kBlockSize = 512;
const int kBlocksPerChunk = ReadAndExtractBuffer::kChunkSize / kBlockSize;

// The package as a sequence of chunks: 64 blocks of 512 bytes at a time while
// the file's size promises a whole chunk, plain reads for the tail.
class ChunkSource {
 public:
  ChunkSource(int fd, int64_t size) : m_fd(fd), m_remaining(size) {}

  // Bytes read into `chunk`: 0 at end of file, negative on failure.
  int64_t read(unsigned char* chunk) {
    if (m_remaining >= ReadAndExtractBuffer::kChunkSize) {
      int blocks = platform::ReadBlocks(m_fd, kBlockSize, m_blockCounter, kBlocksPerChunk, chunk);
      int64_t bytes = static_cast<int64_t>(blocks) * static_cast<int64_t>(kBlockSize);
      if (blocks > 0) {
        m_blockCounter += static_cast<uint64_t>(blocks);
        m_remaining -= bytes;
      }
      return bytes;
    }
    // Block reads leave the descriptor's position unspecified; plain reads
    // go on right after the last block.
    if (!m_bPlainReads) {
      if (platform::SetPosition(m_fd, m_blockCounter * kBlockSize) != 0) return -1;
      m_bPlainReads = true;
    }
    return platform::Read(m_fd, chunk, ReadAndExtractBuffer::kChunkSize);
  }

 private:
  int m_fd;
  int64_t m_remaining;
  uint64_t m_blockCounter = 0;
  bool m_bPlainReads = false;
};

// Publishes chunks until the input ends or the run stops taking them. A
// failure status set here is replaced by the extract thread's after the join.
void FillChunks(ReadAndExtractBuffer& buffer, ChunkSource& source, _KALU_Error& status) {
  for (;;) {
    if (buffer.m_eStatus != KALU_NO_ERR) return;
    if (g_isExtractionCompleted) return;
    if (run_stop::AbortRequested()) {
      run_stop::ReportAbort();
      status = PKG_ERR03;
      return;
    }
    unsigned char* chunk = buffer.nextWrite();
    if (chunk == nullptr) {  // the extract thread has stopped reading
      if (run_stop::AbortRequested()) run_stop::ReportAbort();
      return;
    }
    int64_t count = source.read(chunk);
    if (count < 0) {
      printf("Failed to read contents\n");
      READER_LOG(kLogInfo, "Failed to read contents ");
      status = PKG_ERR03;
      return;
    }
    if (count == 0) return;
    buffer.writeReady(static_cast<unsigned int>(count));
    extract_progress::BytesRead(buffer.m_ullBytesPublished);
  }
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

  ChunkSource source(fd, size);
  FillChunks(buffer, source, status);
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
}

}  // namespace

void copyWithHash(_KALU_Error& status) {
  platform::SetCurrentThreadName("USBReadThread");
  EV_LOG_ENTER();
  extract_progress::Begin();
  run_stop::Begin();
  ReadAndExtractBuffer buffer;
  ExtractThreadArgs args{&buffer, platform::CurrentThreadPriority()};

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

int open_arch(archive*, void*) { return ARCHIVE_OK; }

la_ssize_t read_arch(archive*, void* clientData, const void** data) {
  ReadAndExtractBuffer* buffer = *static_cast<ReadAndExtractBuffer**>(clientData);
  // The chunk handed out by the previous call is given back only now: the
  // archive reader reads it in place until it asks for the next one.
  if (g_bFirstArchiveRead) {
    g_bFirstArchiveRead = 0;
  } else {
    buffer->extractReady();
  }
  ExtractChunk chunk = buffer->nextExtract();
  if (chunk.data == nullptr) buffer->extractFinished();
  *data = chunk.data;
  return static_cast<la_ssize_t>(chunk.length);
}

int close_arch(archive*, void*) { return ARCHIVE_OK; }
