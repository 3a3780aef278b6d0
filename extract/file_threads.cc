#include "extract/file_threads.h"

#include <pthread.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "extract/chunk_pool.h"
#include "extract/run_state_internal.h"
#include "extract/run_stop.h"
#include "extract_verify/buffers.h"
#include "extract_verify/extraction.h"
#include "platform/file_io.h"
#include "platform/log.h"
#include "platform/thread.h"
#include "support/hex.h"

namespace ev {

namespace {

constexpr size_t kBlockSize = 512;
constexpr int kBlocksPerChunk = HashAndWriteBuffer::kChunkSize / kBlockSize;
// Every 8 MiB of a file written, the system is asked to start writing them
// to the disk; every 16 MiB the writer waits until the file's data so far is
// on the device. The device then works while the run goes on, and the
// run's closing sync waits for the last few MiB of each file instead of the
// whole package in memory or in the device's cache.
constexpr uint64_t kWritebackBlocks = (8u << 20) / kBlockSize;
constexpr uint64_t kFlushBlocks = (16u << 20) / kBlockSize;

// Writes the chunks of one file in order: a full chunk as 64 blocks at the
// block number, a short one (only the last chunk of a file is short) with a
// plain write right after the full chunks.
class ChunkWriter {
 public:
  explicit ChunkWriter(int fd) : m_fd(fd) {}

  // False, with errno set by the failing call, when the chunk was not
  // written whole.
  bool write(const unsigned char* data, unsigned int size) {
    if (size == HashAndWriteBuffer::kChunkSize) {
      int blocks = platform::WriteBlocks(m_fd, kBlockSize, m_blockNumber, kBlocksPerChunk, data);
      m_blockNumber += kBlocksPerChunk;
      int64_t done = static_cast<int64_t>(blocks) * static_cast<int64_t>(kBlockSize);
      return account(done, size) && pace();
    }
    // Block writes do not promise where they leave the descriptor's position.
    if (platform::SetPosition(m_fd, m_blockNumber * kBlockSize) != 0) return false;
    return account(platform::Write(m_fd, data, size), size);
  }

  uint64_t total() const { return m_total; }

 private:
  // After a full chunk. A file whose data no device holds cannot be flushed
  // (EINVAL); that is no failure. Any other failure of the flush is one of
  // the writes it waited for.
  bool pace() {
    if (m_blockNumber % kFlushBlocks == 0) {
      return platform::FlushFileData(m_fd) == 0 || errno == EINVAL;
    }
    if (m_blockNumber % kWritebackBlocks == 0) {
      platform::StartWriteback(m_fd, (m_blockNumber - kWritebackBlocks) * kBlockSize,
                               kWritebackBlocks * kBlockSize);
    }
    return true;
  }

  bool account(int64_t done, unsigned int size) {
    if (done < static_cast<int64_t>(size)) return false;
    m_total += static_cast<uint64_t>(done);
    return true;
  }

  int m_fd;
  uint64_t m_blockNumber = 0;
  uint64_t m_total = 0;
};

// Each thread owns its argument block; it copies it and frees it at once.
template <typename Args>
Args TakeArgs(void* argument) {
  Args* block = static_cast<Args*>(argument);
  Args args = *block;
  delete block;
  return args;
}

// Starts one thread of a file's pipeline with an argument block of its own,
// which the thread frees. When the thread cannot start, the block is freed
// here and the buffer told to stop copying: nobody would pass its filled
// chunks on, and the filler would wait for them for ever. The failure is
// reported as the extract thread's, which starts the file.
template <typename Args>
bool StartFileThread(HashAndWriteBuffer* file, const char* name, void* (*entry)(void*), Args* args,
                     pthread_t* id) {
  if (platform::StartThread(id, entry, args) == 0) return true;
  int error = errno;
  printf("%s failed to create - %d", name, error);
  EV_LOG_AS("extractThread", kLogError, "%s failed to create - %d", name, error);
  delete args;
  file->stopCopy();
  return false;
}

// What joining a file's threads needs, kept from their start.
struct StartedThreads {
  pthread_t hash{};
  pthread_t writer{};
  bool hashStarted = false;
  bool writerStarted = false;
};

// One record per buffer of g_vectorOfTHashAndWriteBuffer, in its order.
std::vector<StartedThreads> g_startedThreads;

// What the writer hands to its join when a write failed; null otherwise.
char g_writeFailed;

// Joins the threads that started; true when the writer says a write failed.
bool JoinStartedThreads(const StartedThreads& threads) {
  if (threads.hashStarted) platform::JoinThread(threads.hash);
  return threads.writerStarted && platform::JoinThread(threads.writer) == &g_writeFailed;
}

// Two lower-case hex digits per digest byte; empty for a hash that computes
// nothing.
std::string DigestText(const IHash* hash) {
  const std::pair<const unsigned char*, uint32_t> digest = hash->getHash();
  return ev::LowerHex(digest.first, digest.second);
}

// Every chunk of the run is back in the pool: its pages go back too.
void EmptyBufferList() {
  std::vector<HashAndWriteBuffer*>().swap(g_vectorOfTHashAndWriteBuffer);
  std::vector<StartedThreads>().swap(g_startedThreads);
  ev::ChunkPool::Shared().trim();
}

}  // namespace

void* hashThread(void* argument) {
  HashThreadArgs args = TakeArgs<HashThreadArgs>(argument);
  platform::SetCurrentThreadName("hashThread");
  // A priority the platform refuses leaves the thread at its own; that is fine.
  platform::SetCurrentThreadPriority(args.basePriority - 1);
  for (HashAndWriteBuffer::Chunk chunk = args.buffer->nextHash(); chunk.first != nullptr;
       chunk = args.buffer->nextHash()) {
    args.hash->update(chunk.first, chunk.second);
    args.buffer->hashReady(chunk.second);
  }
  args.buffer->hashFinished();
  args.hash->finish();
  return nullptr;
}

// After a failed write the writer stops writing the file but keeps taking and
// giving back its chunks, so that neither the filler nor the hasher waits for
// chunks that would never come back.
void* writerThread(void* argument) {
  WriterThreadArgs args = TakeArgs<WriterThreadArgs>(argument);
  HashAndWriteBuffer* buffer = args.buffer;
  platform::SetCurrentThreadName("writerThread");
  ChunkWriter writer(args.fd);
  bool failed = false;
  for (HashAndWriteBuffer::Chunk chunk = buffer->nextRead(); chunk.first != nullptr;
       chunk = buffer->nextRead()) {
    if (!failed && !writer.write(chunk.first, chunk.second)) {
      int error = errno;
      unsigned long long total = writer.total();
      printf("Failed to write content: %d %llu\n", error, total);
      EV_LOG_ERROR("Failed to write content: %d %llu\n", error, total);
      failed = true;
      run_stop::FileWriteFailed();  // the run is lost: its walk stops
    }
    buffer->readReady(chunk.second);
  }
  // The file is complete: what is not on its way to the disk yet goes now.
  if (!failed) platform::StartWriteback(args.fd, 0, 0);
  buffer->closeFile();
  return failed ? &g_writeFailed : nullptr;
}

void StartFileThreads(HashAndWriteBuffer* file) {
  StartedThreads threads;
  threads.hashStarted = StartFileThread(file, "hashThread", hashThread,
                                        new HashThreadArgs{file, file->hash(), 0}, &threads.hash);
  threads.writerStarted =
      StartFileThread(file, "writerThread", writerThread,
                      new WriterThreadArgs{file, file->fileDescriptor()}, &threads.writer);
  g_vectorOfTHashAndWriteBuffer.push_back(file);
  g_startedThreads.push_back(threads);
}

bool WaitForChildThreads() {
  bool incomplete = false;
  // Digest of the first file written at each path. Files of a run are
  // written at once, so a later entry over the same path (the same name
  // again, or a name cut to the same path) leaves its own bytes, or a mix
  // of both, where the first file's digest is recorded: unless the data is
  // the same, the file on disk matches no recorded digest.
  std::map<std::string, std::string> pathDigests;
  for (size_t i = 0; i < g_vectorOfTHashAndWriteBuffer.size(); ++i) {
    HashAndWriteBuffer* buffer = g_vectorOfTHashAndWriteBuffer[i];
    const StartedThreads& threads = g_startedThreads[i];
    buffer->copyFinished();
    // An aborted run fails whatever its files hold: what is still queued is
    // dropped instead of being hashed and written.
    if (run_stop::AbortRequested()) buffer->CancelHashWriteThreads();
    // Without a hash thread nobody would tell the writer that no more is coming.
    if (!threads.hashStarted) buffer->hashFinished();
    const bool writeFailed = JoinStartedThreads(threads);
    const std::string digest = DigestText(buffer->hash());
    g_hashResult.emplace(buffer->fileName(), digest);
    auto written = pathDigests.emplace(buffer->filePath(), digest);
    if (!written.second && written.first->second != digest) {
      EV_SAY(kLogError, "Error: %s written twice with different contents",
             buffer->filePath().c_str());
      incomplete = true;
    }
    incomplete = incomplete || writeFailed || !threads.hashStarted || !threads.writerStarted;
    delete buffer;
    extract_progress::FileFinished();
  }
  EmptyBufferList();
  return incomplete;
}

void ClearHashAndWriteBuffer() {
  for (size_t i = 0; i < g_vectorOfTHashAndWriteBuffer.size(); ++i) {
    g_vectorOfTHashAndWriteBuffer[i]->CancelHashWriteThreads();
    JoinStartedThreads(g_startedThreads[i]);
    delete g_vectorOfTHashAndWriteBuffer[i];
  }
  EmptyBufferList();
}

}  // namespace ev
