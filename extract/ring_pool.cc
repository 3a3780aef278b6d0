#include "extract/ring_pool.h"

#include <new>

#include "extract/hash_write_buffer.h"
#include "platform/memory.h"

RingPool::RingPool(size_t ringBytes) : m_ringBytes(ringBytes) {}

RingPool::~RingPool() { trim(); }

unsigned char* RingPool::acquire() {
  MutexLock lock(m_lock);
  while (m_idle.empty() && m_out >= kResidentRings && m_expected > 0) lock.wait(m_returnedCond);
  unsigned char* ring = nullptr;
  if (!m_idle.empty()) {
    ring = m_idle.back();
    m_idle.pop_back();
  } else {
    ring = static_cast<unsigned char*>(platform::MapPages(m_ringBytes));
    if (ring == nullptr) throw std::bad_alloc();
  }
  ++m_out;
  return ring;
}

void RingPool::expectReturn() {
  MutexLock lock(m_lock);
  ++m_expected;
}

// A ring beyond the resident number (one mapped while the others could not
// come back) is unmapped at once.
void RingPool::release(unsigned char* ring, bool expected) {
  MutexLock lock(m_lock);
  --m_out;
  if (expected) --m_expected;
  if (m_idle.size() + m_out < kResidentRings) {
    m_idle.push_back(ring);
  } else {
    platform::UnmapPages(ring, m_ringBytes);
  }
  lock.signal(m_returnedCond);
}

void RingPool::trim() {
  MutexLock lock(m_lock);
  for (unsigned char* ring : m_idle) platform::UnmapPages(ring, m_ringBytes);
  m_idle.clear();
}

RingPool& FileRingPool() {
  static RingPool pool(size_t{HashAndWriteBuffer::kChunkCount} * HashAndWriteBuffer::kChunkSize);
  return pool;
}
