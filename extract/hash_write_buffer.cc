#include "extract/hash_write_buffer.h"

#include <cstring>

#include "platform/file_io.h"

namespace {

// Runs `update` under `lock` and wakes the one party waiting on `cond`.
template <typename Update>
void UpdateAndSignal(Mutex& lock, Cond& cond, Update update) {
  pthread_mutex_lock(lock);
  update();
  pthread_cond_signal(cond);
  pthread_mutex_unlock(lock);
}

uint32_t NextIndex(uint32_t index) { return (index + 1) % HashAndWriteBuffer::kChunkCount; }

}  // namespace

// The storage is left uninitialised on purpose: a small file touches only the
// pages of the chunks it fills, not all 16 MiB.
HashAndWriteBuffer::HashAndWriteBuffer(std::string fileName, std::string filePath)
    : m_chunks(new unsigned char[static_cast<size_t>(kChunkCount) * kChunkSize]),
      m_strFileName(std::move(fileName)),
      m_strFilePath(std::move(filePath)) {
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
}

unsigned char* HashAndWriteBuffer::nextCopy() {
  pthread_mutex_lock(m_copyLock);
  while (m_freeChunks == 0) {
    if (m_bCopyStop) {
      pthread_mutex_unlock(m_copyLock);
      return nullptr;
    }
    pthread_cond_wait(m_copyCond, m_copyLock);
  }
  --m_freeChunks;
  pthread_mutex_unlock(m_copyLock);
  return chunk(m_copyCursor);
}

void HashAndWriteBuffer::copyReady(unsigned int size) {
  passOn(m_hashLock, m_hashCond, m_filledSizes, m_chunksToHash, m_copyCursor, size);
}

void HashAndWriteBuffer::copyFinished() {
  UpdateAndSignal(m_hashLock, m_hashCond, [&] { m_bCopyFinished = true; });
}

void HashAndWriteBuffer::stopCopy() {
  UpdateAndSignal(m_copyLock, m_copyCond, [&] { m_bCopyStop = true; });
}

void HashAndWriteBuffer::passOn(Mutex& lock, Cond& cond, uint32_t* sizes, uint32_t& count,
                                uint32_t& cursor, unsigned int size) {
  UpdateAndSignal(lock, cond, [&] {
    sizes[cursor] = size;
    ++count;
  });
  cursor = NextIndex(cursor);
}

HashAndWriteBuffer::Chunk HashAndWriteBuffer::nextPassedOn(Mutex& lock, Cond& cond,
                                                           uint32_t& count, const bool& finished,
                                                           const uint32_t* sizes, uint32_t cursor,
                                                           bool& lockHeld) {
  pthread_mutex_lock(lock);
  lockHeld = true;
  while (count == 0 && !finished && !m_bCancelled) pthread_cond_wait(cond, lock);
  Chunk result{nullptr, 0};
  if (count != 0 && !m_bCancelled) {
    --count;
    result = {chunk(cursor), sizes[cursor]};
  }
  lockHeld = false;
  pthread_mutex_unlock(lock);
  return result;
}

HashAndWriteBuffer::Chunk HashAndWriteBuffer::nextHash() {
  return nextPassedOn(m_hashLock, m_hashCond, m_chunksToHash, m_bCopyFinished, m_filledSizes,
                      m_hashCursor, m_bHashLockHeld);
}

void HashAndWriteBuffer::hashReady(unsigned int size) {
  passOn(m_readLock, m_readCond, m_hashedSizes, m_chunksToWrite, m_hashCursor, size);
}

void HashAndWriteBuffer::hashFinished() {
  UpdateAndSignal(m_readLock, m_readCond, [&] { m_bHashFinished = true; });
}

HashAndWriteBuffer::Chunk HashAndWriteBuffer::nextRead() {
  return nextPassedOn(m_readLock, m_readCond, m_chunksToWrite, m_bHashFinished, m_hashedSizes,
                      m_readCursor, m_bReadLockHeld);
}

void HashAndWriteBuffer::readReady(unsigned int size) {
  UpdateAndSignal(m_copyLock, m_copyCond, [&] { ++m_freeChunks; });
  UpdateAndSignal(m_checkLock, m_checkCond, [&] { m_uncheckedBytes += size; });
  m_readCursor = NextIndex(m_readCursor);
}

void HashAndWriteBuffer::readFinished() {
  UpdateAndSignal(m_checkLock, m_checkCond, [&] { m_bReadFinished = true; });
}

uint64_t HashAndWriteBuffer::nextCheck() {
  pthread_mutex_lock(m_checkLock);
  while (m_uncheckedBytes == 0 && !m_bReadFinished) pthread_cond_wait(m_checkCond, m_checkLock);
  uint64_t bytes = m_uncheckedBytes;
  m_uncheckedBytes = 0;
  pthread_mutex_unlock(m_checkLock);
  return bytes;
}

// The stop is cooperative rather than an asynchronous pthread_cancel: a thread
// cancelled asynchronously while inside OpenSSL, the C library or a write can
// leave their internal state and locks broken. Here each thread notices the
// flag at its next nextHash/nextRead and returns normally, so it can be
// joined and the buffer freed safely.
void HashAndWriteBuffer::CancelHashWriteThreads() {
  UpdateAndSignal(m_hashLock, m_hashCond, [&] { m_bCancelled = true; });
  UpdateAndSignal(m_readLock, m_readCond, [&] { m_bCancelled = true; });
}
