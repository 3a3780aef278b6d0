#include "extract/chunk_pool.h"

#include <new>

#include "platform/clock.h"
#include "platform/memory.h"
#include "support/sync.h"

namespace ev {

namespace {

const size_t kPoolBytes = size_t{ChunkPool::kChunkCount} * ChunkPool::kChunkSize;

}  // namespace

ChunkPool::~ChunkPool() { trim(); }

void ChunkPool::map() {
  MutexLock lock(m_lock);
  if (m_pages != nullptr) return;
  m_pages = static_cast<unsigned char*>(platform::MapPages(kPoolBytes));
  if (m_pages == nullptr) throw std::bad_alloc();
  m_free.clear();
  // Chunk 0 is taken first.
  for (uint32_t chunk = kChunkCount; chunk > 0; --chunk) m_free.push_back(chunk - 1);
}

// Nothing wakes the filler for a stop (an abort is a plain store), so it
// looks for one between waits of a bounded length.
unsigned char* ChunkPool::take(bool (*stop)()) {
  MutexLock lock(m_lock);
  while (m_free.empty()) {
    if (stop()) return nullptr;
    m_bFillerWaiting = true;
    lock.waitUntil(m_freedCond, platform::DeadlineIn(kStopPollMs));
    m_bFillerWaiting = false;
  }
  const uint32_t chunk = m_free.back();
  m_free.pop_back();
  return m_pages + size_t{chunk} * kChunkSize;
}

void ChunkPool::giveBack(unsigned char* chunk) {
  MutexLock lock(m_lock);
  m_free.push_back(static_cast<uint32_t>((chunk - m_pages) / kChunkSize));
  if (m_bFillerWaiting) MutexLock::signal(m_freedCond);
}

void ChunkPool::trim() {
  MutexLock lock(m_lock);
  if (m_pages == nullptr || m_free.size() != kChunkCount) return;
  platform::UnmapPages(m_pages, kPoolBytes);
  m_pages = nullptr;
  m_free.clear();
}

ChunkPool& ChunkPool::Shared() {
  static ChunkPool pool;
  return pool;
}

}  // namespace ev
