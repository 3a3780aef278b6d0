#include <cstring>
#include <memory>

#include "extract/chunk_pool.h"
#include "extract/run_stop.h"
#include "extract_verify/buffers.h"
#include "platform/file_io.h"
#include "support/sync.h"

namespace platform = ev::platform;
namespace run_stop = ev::run_stop;
using ev::MutexLock;

namespace {

uint32_t NextIndex(uint32_t index) { return (index + 1) % HashAndWriteBuffer::kChunkCount; }

}  // namespace

HashAndWriteBuffer::HashAndWriteBuffer(std::string fileName, std::string filePath)
    : m_strFileName(std::move(fileName)), m_strFilePath(std::move(filePath)) {
  std::memset(m_filledSizes, 0, sizeof m_filledSizes);
  std::memset(m_hashedSizes, 0, sizeof m_hashedSizes);
  ev::ChunkPool::Shared().map();
  // Nothing is left behind when an allocation fails: the hash is held until
  // the file has been opened, and the file is opened only once its handle
  // has been allocated.
  std::unique_ptr<IHash> hash(makeHash("sha256"));
  m_pFileHandle = new FileHandle(platform::OpenForWriting(m_strFilePath.c_str()));
  m_pHash = hash.release();
}

// Both threads have ended: the chunks still in the slots (queued when the
// threads were cancelled) are nobody's but this buffer's.
HashAndWriteBuffer::~HashAndWriteBuffer() {
  delete m_pHash;
  m_pHash = nullptr;
  delete m_pFileHandle;
  m_pFileHandle = nullptr;
  for (unsigned char* chunk : m_slots) {
    if (chunk != nullptr) ev::ChunkPool::Shared().giveBack(chunk);
  }
}

unsigned char* HashAndWriteBuffer::nextCopy() {
  if (m_bCopyStop) return nullptr;
  m_slots[m_copyCursor] = ev::ChunkPool::Shared().take(run_stop::Requested);
  return m_slots[m_copyCursor];
}

void HashAndWriteBuffer::copyReady(unsigned int size) {
  {
    MutexLock lock(m_hashLock);
    m_filledSizes[m_copyCursor] = size;
    ++m_chunksToHash;
    if (m_bHasherWaiting && m_chunksToHash >= kWakeBatch) MutexLock::signal(m_hashCond);
  }
  m_copyCursor = NextIndex(m_copyCursor);
}

void HashAndWriteBuffer::copyComplete() {
  unsigned char* unused = m_slots[m_copyCursor];
  m_slots[m_copyCursor] = nullptr;
  ev::ChunkPool::Shared().giveBack(unused);
  // The last chunks may be fewer than a batch.
  MutexLock lock(m_hashLock);
  if (m_bHasherWaiting) MutexLock::signal(m_hashCond);
}

void HashAndWriteBuffer::copyFinished() {
  MutexLock lock(m_hashLock);
  m_bCopyFinished = true;
  if (m_bHasherWaiting) MutexLock::signal(m_hashCond);
}

// Filled chunks are drained before the end of data is honoured; a
// cancellation ends the hashing at once.
HashAndWriteBuffer::Chunk HashAndWriteBuffer::nextHash() {
  MutexLock lock(m_hashLock);
  while (m_chunksToHash == 0 && !m_bCopyFinished && !m_bCancelled) {
    m_bHasherWaiting = true;
    lock.wait(m_hashCond);
    m_bHasherWaiting = false;
  }
  if (m_chunksToHash == 0 || m_bCancelled) return Chunk(nullptr, 0);
  --m_chunksToHash;
  m_bHashQueueEmptied = m_chunksToHash == 0;
  return Chunk(m_slots[m_hashCursor], m_filledSizes[m_hashCursor]);
}

void HashAndWriteBuffer::hashReady(unsigned int size) {
  {
    MutexLock lock(m_readLock);
    m_hashedSizes[m_hashCursor] = size;
    ++m_chunksToWrite;
    if (m_bWriterWaiting && (m_chunksToWrite >= kWakeBatch || m_bHashQueueEmptied)) {
      MutexLock::signal(m_readCond);
    }
  }
  m_hashCursor = NextIndex(m_hashCursor);
}

void HashAndWriteBuffer::hashFinished() {
  MutexLock lock(m_readLock);
  m_bHashFinished = true;
  if (m_bWriterWaiting) MutexLock::signal(m_readCond);
}

// As nextHash, for the chunks hashed.
HashAndWriteBuffer::Chunk HashAndWriteBuffer::nextRead() {
  MutexLock lock(m_readLock);
  while (m_chunksToWrite == 0 && !m_bHashFinished && !m_bCancelled) {
    m_bWriterWaiting = true;
    lock.wait(m_readCond);
    m_bWriterWaiting = false;
  }
  if (m_chunksToWrite == 0 || m_bCancelled) return Chunk(nullptr, 0);
  --m_chunksToWrite;
  return Chunk(m_slots[m_readCursor], m_hashedSizes[m_readCursor]);
}

// The slot lets go of its chunk before the pool has it again: the filler may
// put the next chunk there as soon as the pool hands one out.
void HashAndWriteBuffer::readReady(unsigned int) {
  unsigned char* written = m_slots[m_readCursor];
  m_slots[m_readCursor] = nullptr;
  m_readCursor = NextIndex(m_readCursor);
  ev::ChunkPool::Shared().giveBack(written);
}

// The stop is cooperative rather than an asynchronous pthread_cancel: a thread
// cancelled asynchronously while inside OpenSSL, the C library or a write can
// leave their internal state and locks broken. Here each thread notices the
// flag at its next nextHash/nextRead and returns normally, so it can be
// joined and the buffer freed safely.
void HashAndWriteBuffer::CancelHashWriteThreads() {
  {
    MutexLock lock(m_hashLock);
    m_bCancelled = true;
    if (m_bHasherWaiting) MutexLock::signal(m_hashCond);
  }
  MutexLock lock(m_readLock);
  m_bCancelled = true;
  if (m_bWriterWaiting) MutexLock::signal(m_readCond);
}
