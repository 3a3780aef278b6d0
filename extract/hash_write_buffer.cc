#include "extract/hash_write_buffer.h"

#include <cstring>
#include <memory>

#include "platform/file_io.h"

namespace {

uint32_t NextIndex(uint32_t index) { return (index + 1) % HashAndWriteBuffer::kChunkCount; }

}  // namespace

// The storage is left uninitialised on purpose: a small file touches only the
// pages of the chunks it fills, not all 16 MiB.
HashAndWriteBuffer::HashAndWriteBuffer(std::string fileName, std::string filePath)
    : m_strFileName(std::move(fileName)), m_strFilePath(std::move(filePath)) {
  std::memset(m_filledSizes, 0, sizeof m_filledSizes);
  std::memset(m_hashedSizes, 0, sizeof m_hashedSizes);
  // Nothing is left behind when an allocation fails: the hash is held until
  // the file has been opened, and the file is opened only once its handle
  // has been allocated.
  std::unique_ptr<IHash> hash(makeHash("sha256"));
  m_pFileHandle = new FileHandle(platform::OpenForWriting(m_strFilePath.c_str()));
  m_pHash = hash.release();
}

HashAndWriteBuffer::~HashAndWriteBuffer() {
  delete m_pHash;
  m_pHash = nullptr;
  delete m_pFileHandle;
  m_pFileHandle = nullptr;
  // Both threads have ended: nobody holds a chunk any more.
  m_chunks.giveBack(m_bReturnExpected);
}

unsigned char* HashAndWriteBuffer::nextCopy() {
  MutexLock lock(m_copyLock);
  while (m_freeChunks == 0) {
    if (m_bCopyStop) return nullptr;
    m_bFillerWaiting = true;
    lock.wait(m_copyCond);
    m_bFillerWaiting = false;
  }
  --m_freeChunks;
  return chunk(m_copyCursor);
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

// The ring can come back without further help only when both threads run;
// otherwise it stays until the buffer is freed.
void HashAndWriteBuffer::copyComplete() {
  m_bReturnExpected = m_bHashThreadStarted && m_bWriterThreadStarted;
  if (m_bReturnExpected) FileRingPool().expectReturn();
  bool drained;
  {
    MutexLock lock(m_copyLock);
    ++m_freeChunks;
    m_bDataComplete = true;
    drained = m_freeChunks == kChunkCount;
  }
  {
    // The last chunks may be fewer than a batch.
    MutexLock lock(m_hashLock);
    if (m_bHasherWaiting) MutexLock::signal(m_hashCond);
  }
  if (drained) returnRing();
}

void HashAndWriteBuffer::copyFinished() {
  MutexLock lock(m_hashLock);
  m_bCopyFinished = true;
  if (m_bHasherWaiting) MutexLock::signal(m_hashCond);
}

void HashAndWriteBuffer::stopCopy() {
  MutexLock lock(m_copyLock);
  m_bCopyStop = true;
  if (m_bFillerWaiting) MutexLock::signal(m_copyCond);
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
  return Chunk(chunk(m_hashCursor), m_filledSizes[m_hashCursor]);
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
  return Chunk(chunk(m_readCursor), m_hashedSizes[m_readCursor]);
}

void HashAndWriteBuffer::readReady(unsigned int size) {
  bool drained;
  {
    MutexLock lock(m_copyLock);
    ++m_freeChunks;
    drained = m_bDataComplete && m_freeChunks == kChunkCount;
    if (m_bFillerWaiting) MutexLock::signal(m_copyCond);
  }
  {
    MutexLock lock(m_checkLock);
    m_uncheckedBytes += size;
    if (m_bObserverWaiting) MutexLock::signal(m_checkCond);
  }
  m_readCursor = NextIndex(m_readCursor);
  if (drained) returnRing();
}

// Called once, by whichever party saw the last chunk come back after the
// data was complete; no chunk is in anybody's hands.
void HashAndWriteBuffer::returnRing() { m_chunks.giveBack(m_bReturnExpected); }

void HashAndWriteBuffer::readFinished() {
  MutexLock lock(m_checkLock);
  m_bReadFinished = true;
  if (m_bObserverWaiting) MutexLock::signal(m_checkCond);
}

uint64_t HashAndWriteBuffer::nextCheck() {
  MutexLock lock(m_checkLock);
  while (m_uncheckedBytes == 0 && !m_bReadFinished) {
    m_bObserverWaiting = true;
    lock.wait(m_checkCond);
    m_bObserverWaiting = false;
  }
  uint64_t bytes = m_uncheckedBytes;
  m_uncheckedBytes = 0;
  return bytes;
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
