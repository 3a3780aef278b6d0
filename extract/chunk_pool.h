// The chunks of the per-file rings: one pool of 512 chunks of 32 KiB that
// every file of a run draws from.
//
// A file takes a chunk for each piece of its data and its writer gives the
// chunk back once written, so a new file starts in the chunks that the files
// before it have already given back, while their last chunks are still being
// hashed and written. The whole pool is one mapping of 16 MiB, made on first
// use and untouched until used, so a small package costs only the pages its
// chunks fill (one huge page of 2 MiB where the system has them); free chunks
// are taken last-in first-out, which keeps a small run in the same few pages.
// trim() unmaps it once every chunk is back.
//
// Threads: take() on the one filler of the run (the extract thread), which
// waits there while every chunk is out; giveBack() on any thread that holds
// a chunk (a writer thread, or whoever frees a file's ring). The pool's lock
// is never held together with another.
#ifndef EXTRACT_CHUNK_POOL_H_
#define EXTRACT_CHUNK_POOL_H_

#include <cstdint>
#include <vector>

#include "extract_verify/thread_annotations.h"
#include "support/sync.h"

namespace ev {

class ChunkPool {
 public:
  enum : uint32_t { kChunkCount = 512, kChunkSize = 32768, kStopPollMs = 50 };

  ChunkPool() = default;
  ~ChunkPool();
  ChunkPool(const ChunkPool&) = delete;
  ChunkPool& operator=(const ChunkPool&) = delete;

  // Maps the pool unless it is; throws std::bad_alloc when the system
  // refuses the pages.
  void map();
  // A free chunk, waiting while none is; the pool must be mapped. Null
  // when `stop` says so: it is asked before each wait, and at least every
  // kStopPollMs while the filler waits.
  unsigned char* take(bool (*stop)());
  void giveBack(unsigned char* chunk);
  // Unmaps the pool when every chunk is back: the run is over.
  void trim();

  // The pool of the process's runs.
  static ChunkPool& Shared();

 private:
  Mutex m_lock;
  Cond m_freedCond;  // the filler waits here
  unsigned char* m_pages EV_GUARDED_BY(m_lock) = nullptr;
  std::vector<uint32_t> m_free EV_GUARDED_BY(m_lock);  // chunk numbers, the last taken first
  bool m_bFillerWaiting EV_GUARDED_BY(m_lock) = false;
};

}  // namespace ev

#endif  // EXTRACT_CHUNK_POOL_H_
