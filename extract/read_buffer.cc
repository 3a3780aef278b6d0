#include "extract/read_buffer.h"

#include <cstring>

#include "extract/hash_write_buffer.h"

namespace {

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
    MutexLock lock(m_writeLock);
    while (m_freeCount == 0 && !m_bExtractStopped) {
      m_bProducerWaiting = true;
      lock.wait(m_freeCond);
      m_bProducerWaiting = false;
    }
    if (m_bExtractStopped) return nullptr;
    index = m_writeIndex;
    --m_freeCount;
  }
  return m_data.get() + size_t{index} * kChunkSize;
}

void ReadAndExtractBuffer::writeReady(unsigned int length) {
  {
    MutexLock lock(m_extractLock);
    m_lengths[m_writeIndex] = length;
    ++m_filledCount;
    if (m_bConsumerWaiting) MutexLock::signal(m_filledCond);
  }
  m_ullBytesPublished.fetch_add(length, std::memory_order_relaxed);
  // The write index belongs to the producer alone.
  m_writeIndex = NextIndex(m_writeIndex);
}

void ReadAndExtractBuffer::writeFinished() {
  MutexLock lock(m_extractLock);
  m_bWriteFinished = true;
  if (m_bConsumerWaiting) MutexLock::signal(m_filledCond);
}

ExtractChunk ReadAndExtractBuffer::nextExtract() {
  uint32_t index;
  uint32_t length;
  {
    MutexLock lock(m_extractLock);
    // Published chunks are drained before the end is honoured.
    while (m_filledCount == 0) {
      if (m_bWriteFinished) return ExtractChunk{nullptr, 0};
      m_bConsumerWaiting = true;
      lock.wait(m_filledCond);
      m_bConsumerWaiting = false;
    }
    index = m_extractIndex;
    --m_filledCount;
    length = m_lengths[index];
  }
  return ExtractChunk{m_data.get() + size_t{index} * kChunkSize, length};
}

void ReadAndExtractBuffer::extractReady() {
  {
    MutexLock lock(m_writeLock);
    ++m_freeCount;
    if (m_bProducerWaiting && m_freeCount >= kWakeBatch) MutexLock::signal(m_freeCond);
  }
  // The extract index belongs to the consumer alone.
  m_extractIndex = NextIndex(m_extractIndex);
}

// The archive reader may still hold inflated data of the current entry when
// the input ends. A pipeline whose two threads run gives its chunks back by
// itself, so its filler waits for room for that data instead of dropping it;
// only a pipeline that lacks one of them is stopped.
void ReadAndExtractBuffer::extractFinished() {
  if (m_pCurrentPipeline == nullptr) return;
  if (m_pCurrentPipeline->m_bHashThreadStarted && m_pCurrentPipeline->m_bWriterThreadStarted)
    return;
  m_pCurrentPipeline->stopCopy();
}

void ReadAndExtractBuffer::extractStopped() {
  MutexLock lock(m_writeLock);
  m_bExtractStopped = true;
  if (m_bProducerWaiting) MutexLock::signal(m_freeCond);
}

void ReadAndExtractBuffer::setHashAndWriteBuffer(HashAndWriteBuffer* buffer) {
  m_pCurrentPipeline = buffer;
}
