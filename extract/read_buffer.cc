#include "extract/read_buffer.h"

#include <cstring>

#include "extract/hash_write_buffer.h"

namespace {

// Scoped hold of a pthread mutex for the ring's short critical sections.
class Lock {
 public:
  explicit Lock(Mutex& mutex) : m_mutex(mutex) { pthread_mutex_lock(m_mutex); }
  ~Lock() { pthread_mutex_unlock(m_mutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  Mutex& m_mutex;
};

uint32_t NextIndex(uint32_t index) {
  return index + 1 == ReadAndExtractBuffer::kChunkCount ? 0 : index + 1;
}

}  // namespace

ReadAndExtractBuffer::ReadAndExtractBuffer()
    : m_data(new unsigned char[size_t{kChunkCount} * kChunkSize]) {
  std::memset(m_lengths, 0, sizeof m_lengths);
}

ReadAndExtractBuffer::~ReadAndExtractBuffer() = default;

unsigned char* ReadAndExtractBuffer::nextWrite() {
  uint32_t index;
  {
    Lock lock(m_writeLock);
    while (m_freeCount == 0 && !m_bExtractStopped) pthread_cond_wait(m_freeCond, m_writeLock);
    if (m_bExtractStopped) return nullptr;
    index = m_writeIndex;
    --m_freeCount;
  }
  return m_data.get() + size_t{index} * kChunkSize;
}

void ReadAndExtractBuffer::writeReady(unsigned int length) {
  {
    Lock lock(m_extractLock);
    m_lengths[m_writeIndex] = length;
    ++m_filledCount;
    pthread_cond_signal(m_filledCond);
  }
  m_ullBytesPublished.fetch_add(length, std::memory_order_relaxed);
  // The write index belongs to the producer alone.
  m_writeIndex = NextIndex(m_writeIndex);
}

void ReadAndExtractBuffer::writeFinished() {
  Lock lock(m_extractLock);
  m_bWriteFinished = true;
  pthread_cond_signal(m_filledCond);
}

ExtractChunk ReadAndExtractBuffer::nextExtract() {
  uint32_t index;
  uint32_t length;
  {
    Lock lock(m_extractLock);
    // Published chunks are drained before the end is honoured.
    while (m_filledCount == 0) {
      if (m_bWriteFinished) return ExtractChunk{nullptr, 0};
      pthread_cond_wait(m_filledCond, m_extractLock);
    }
    index = m_extractIndex;
    --m_filledCount;
    length = m_lengths[index];
  }
  return ExtractChunk{m_data.get() + size_t{index} * kChunkSize, length};
}

void ReadAndExtractBuffer::extractReady() {
  {
    Lock lock(m_writeLock);
    ++m_freeCount;
    pthread_cond_signal(m_freeCond);
  }
  // The extract index belongs to the consumer alone.
  m_extractIndex = NextIndex(m_extractIndex);
}

void ReadAndExtractBuffer::extractFinished() {
  if (m_pCurrentPipeline != nullptr) m_pCurrentPipeline->stopCopy();
}

void ReadAndExtractBuffer::extractStopped() {
  Lock lock(m_writeLock);
  m_bExtractStopped = true;
  pthread_cond_signal(m_freeCond);
}

void ReadAndExtractBuffer::setHashAndWriteBuffer(HashAndWriteBuffer* buffer) {
  m_pCurrentPipeline = buffer;
}
