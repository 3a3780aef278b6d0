// The chunk storage of the per-file rings, handed out and taken back.
//
// A file's ring is needed only while its data travels through it: once the
// entry has been read to the end and every chunk has been hashed, written
// and given back, the storage returns here although the file's threads live
// on until the walk is over. A returned ring is handed to the next file as
// it is, its pages already resident, rather than faulting in fresh ones.
//
// At most kResidentRings rings are mapped while some ring that is out will
// come back on its own (its data is complete and both of its threads run):
// a new file then waits for it instead of mapping another 16 MiB. A ring that
// may never come back before the run's end (its data was cut short, or one
// of its threads never started) does not count, so nothing ever waits for
// it. Memory therefore stays bounded by the ring size, not by the package.
//
// Threads: acquire, trim and the destructor on the extract thread (or any
// single thread in tests); expectReturn and release on the thread that owns
// the ring at that moment. The pool's own lock is never held together with
// a ring's.
#ifndef EXTRACT_RING_POOL_H_
#define EXTRACT_RING_POOL_H_

#include <cstddef>
#include <vector>

#include "support/sync.h"
#include "support/thread_annotations.h"

class RingPool {
 public:
  enum : unsigned { kResidentRings = 1 };

  explicit RingPool(size_t ringBytes);
  ~RingPool();  // unmaps the idle rings; every ring must have come back
  RingPool(const RingPool&) = delete;
  RingPool& operator=(const RingPool&) = delete;

  // A ring of ringBytes bytes, waiting while a returning ring is due;
  // throws std::bad_alloc when the system refuses the pages.
  unsigned char* acquire();
  // The ring's owner promises to return it without outside help (see above).
  void expectReturn();
  // Takes a ring back; `expected` says whether expectReturn was called for it.
  void release(unsigned char* ring, bool expected);
  // Unmaps every idle ring: the run is over.
  void trim();

 private:
  const size_t m_ringBytes;
  Mutex m_lock;
  Cond m_returnedCond;  // the extract thread waits here in acquire
  std::vector<unsigned char*> m_idle GUARDED_BY(m_lock);
  unsigned m_out GUARDED_BY(m_lock) = 0;
  int m_expected GUARDED_BY(m_lock) = 0;  // rings out that will come back on their own
};

// The pool of the per-file rings, shared by every run of the process.
RingPool& FileRingPool();

// One ring of FileRingPool(), held from construction until given back; the
// destructor gives it back if nobody did.
class PooledRing {
 public:
  PooledRing() : m_ring(FileRingPool().acquire()) {}
  ~PooledRing() { giveBack(false); }
  PooledRing(const PooledRing&) = delete;
  PooledRing& operator=(const PooledRing&) = delete;

  unsigned char* get() const { return m_ring; }  // null once given back
  void giveBack(bool expected) {
    if (m_ring == nullptr) return;
    FileRingPool().release(m_ring, expected);
    m_ring = nullptr;
  }

 private:
  unsigned char* m_ring;
};

#endif  // EXTRACT_RING_POOL_H_
