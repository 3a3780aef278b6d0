#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "extract_verify/buffers.h"
#include "platform/memory.h"
#include "support/sync.h"

using ev::MutexLock;

namespace platform = ev::platform;

namespace {

const size_t kRingBytes = size_t{ReadAndExtractBuffer::kChunkCount} * ReadAndExtractBuffer::kChunkSize;

uint32_t NextIndex(uint32_t index) {
  return index + 1 == ReadAndExtractBuffer::kChunkCount ? 0 : index + 1;
}

}  // namespace

ReadAndExtractBuffer::ReadAndExtractBuffer()
    : m_data(static_cast<unsigned char*>(platform::MapPages(kRingBytes))) {
  if (m_data == nullptr) throw std::bad_alloc();
  std::memset(m_lengths, 0, sizeof m_lengths);
}

ReadAndExtractBuffer::~ReadAndExtractBuffer() { platform::UnmapPages(m_data, kRingBytes); }

unsigned char* ReadAndExtractBuffer::nextWrite() {
  uint32_t reserved;
  return nextWrite(1, &reserved);
}

// Neighbouring chunks only: a run stops at the end of the array.
unsigned char* ReadAndExtractBuffer::nextWrite(uint32_t wanted, uint32_t* reserved) {
  const uint32_t index = m_reserveIndex;
  {
    MutexLock lock(m_writeLock);
    while (m_freeCount == 0 && !m_bExtractStopped) {
      m_bProducerWaiting = true;
      lock.wait(m_freeCond);
      m_bProducerWaiting = false;
    }
    if (m_bExtractStopped) return nullptr;
    *reserved = std::min({wanted, m_freeCount, kChunkCount - index});
    m_freeCount -= *reserved;
  }
  m_reserveIndex = (index + *reserved) % kChunkCount;
  return m_data + size_t{index} * kChunkSize;
}

void ReadAndExtractBuffer::writeReady(unsigned int length) {
  {
    MutexLock lock(m_extractLock);
    m_lengths[m_writeIndex] = length;
    ++m_filledCount;
    if (m_bConsumerWaiting) MutexLock::signal(m_filledCond);
  }
  // The write index belongs to the producer alone.
  m_writeIndex = NextIndex(m_writeIndex);
}

void ReadAndExtractBuffer::writeFinished() { writeFailed(std::string()); }

// An empty text is a clean end; only the first end counts.
void ReadAndExtractBuffer::writeFailed(std::string why) {
  MutexLock lock(m_extractLock);
  if (m_bWriteFinished) return;
  m_inputFailure = std::move(why);
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
      if (m_bWriteFinished) {
        return ExtractChunk{nullptr, 0, m_inputFailure.empty() ? nullptr : m_inputFailure.c_str()};
      }
      m_bConsumerWaiting = true;
      lock.wait(m_filledCond);
      m_bConsumerWaiting = false;
    }
    index = m_extractIndex;
    --m_filledCount;
    length = m_lengths[index];
  }
  return ExtractChunk{m_data + size_t{index} * kChunkSize, length, nullptr};
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

void ReadAndExtractBuffer::extractStopped(bool archiveEnded) {
  MutexLock lock(m_writeLock);
  m_bExtractStopped = true;
  m_bArchiveEnded = archiveEnded;
  if (m_bProducerWaiting) MutexLock::signal(m_freeCond);
}

bool ReadAndExtractBuffer::archiveEnded() {
  MutexLock lock(m_writeLock);
  return m_bArchiveEnded;
}
