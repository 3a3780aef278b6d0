// The per-file ring of the hash-and-write pipeline.
//
// One HashAndWriteBuffer per extracted file: 512 chunks of 32 KiB shared by
// three threads. The filler (the extract thread) decompresses into free chunks
// (nextCopy/copyReady/copyComplete/copyFinished), the hash thread feeds filled
// chunks to the file's hash object (nextHash/hashReady/hashFinished), and the
// writer thread writes hashed chunks to the destination file and frees them
// (nextRead/readReady/readFinished). Each count is guarded by the lock of the
// party that waits on it; no operation holds two locks; each condition has
// exactly one waiting party and is woken by a signal. Cursors are touched only
// by their own party.
//
// Hand-offs: a party is signalled only while it waits. The filler and the
// writer are woken for every chunk, the hasher (faster than the filler that
// feeds it) only once kWakeBatch chunks wait for it, and the writer is also
// woken whenever the hasher has emptied its queue; copyComplete, copyFinished,
// hashFinished and the cancellation wake their party in any case. A party
// that is woken takes whatever is there, so no chunk waits for ever: were all
// three parties asleep, fewer than 3 x kWakeBatch of the 512 chunks could be
// accounted for.
//
// The chunk storage comes from FileRingPool() untouched, so a small file
// costs only the pages of the chunks it fills. Once copyComplete has been
// called and every chunk is free again, the storage goes back to the pool
// (by the writer, or by copyComplete itself) and is never touched again by
// this buffer; the threads live on until they are finished and joined.
//
// Ownership: created by the extract thread, owned by
// g_vectorOfTHashAndWriteBuffer once appended; freed by WaitForChildThreads or
// ClearHashAndWriteBuffer (extract thread only), after both of its threads
// have ended. The thread entries and those two functions are declared in
// extract/file_threads.h.
#ifndef EXTRACT_HASH_WRITE_BUFFER_H_
#define EXTRACT_HASH_WRITE_BUFFER_H_

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "extract/file_threads.h"
#include "extract/ring_pool.h"
#include "extract_verify_export.h"
#include "support/file_handle.h"
#include "support/hash.h"
#include "support/sync.h"
#include "support/thread_annotations.h"

class EV_EXPORT HashAndWriteBuffer {
 public:
  enum : uint32_t { kChunkCount = 512, kChunkSize = 32768, kWakeBatch = 16 };
  using Chunk = std::pair<unsigned char*, unsigned int>;

  // Takes a ring from FileRingPool() (which may wait for another file's ring
  // to come back) and opens `filePath` for writing (created, truncated,
  // 0666 less the umask); a failed open shows only when the writer writes.
  HashAndWriteBuffer(std::string fileName, std::string filePath);
  ~HashAndWriteBuffer();
  HashAndWriteBuffer(const HashAndWriteBuffer&) = delete;
  HashAndWriteBuffer& operator=(const HashAndWriteBuffer&) = delete;

  // Filler (extract thread).
  unsigned char* nextCopy();  // null once copy stop is set and no chunk is free
  void copyReady(unsigned int size);
  // The entry's data has ended: the chunk last taken by nextCopy is given
  // back unused, and the ring returns to the pool once it has drained.
  void copyComplete();
  void copyFinished();
  // Sets copy stop and wakes a filler waiting in nextCopy: the source has
  // ended, or nobody will give chunks back. Any thread.
  void stopCopy();

  // Hash thread.
  Chunk nextHash();  // (null, 0) when nothing more is to be hashed
  void hashReady(unsigned int size);
  void hashFinished();

  // Writer thread.
  Chunk nextRead();  // (null, 0) when nothing more is to be written
  void readReady(unsigned int size);
  void readFinished();

  // Progress observer: bytes written since the previous call, waiting until
  // there are some; 0 once the writer has ended and nothing is left.
  uint64_t nextCheck();

  // Ends both threads of this buffer early: from now on nextHash and nextRead
  // return (null, 0), so each thread finishes its current chunk and returns.
  // Does not wait; the caller joins them before freeing the buffer.
  void CancelHashWriteThreads();

  unsigned char* chunk(uint32_t index) { return m_chunks.get() + index * kChunkSize; }

  // The ring's state, in the order of its parties. Each count and flag is
  // guarded by the lock of the party that waits on it; each cursor belongs
  // to its party alone.
 private:
  // The ring; chunk i starts at i * kChunkSize. Null once given back.
  PooledRing m_chunks;
  uint32_t m_filledSizes[kChunkCount] GUARDED_BY(m_hashLock);
  uint32_t m_hashedSizes[kChunkCount] GUARDED_BY(m_readLock);

  Mutex m_copyLock;
  Cond m_copyCond;
  uint32_t m_copyCursor = 0;
  uint32_t m_freeChunks GUARDED_BY(m_copyLock) = kChunkCount;
  bool m_bFillerWaiting GUARDED_BY(m_copyLock) = false;
  bool m_bDataComplete GUARDED_BY(m_copyLock) = false;

  Mutex m_hashLock;
  Cond m_hashCond;
  uint32_t m_hashCursor = 0;
  uint32_t m_chunksToHash GUARDED_BY(m_hashLock) = 0;
  bool m_bHasherWaiting GUARDED_BY(m_hashLock) = false;

  Mutex m_readLock;
  Cond m_readCond;
  uint32_t m_readCursor = 0;
  uint32_t m_chunksToWrite GUARDED_BY(m_readLock) = 0;
  bool m_bWriterWaiting GUARDED_BY(m_readLock) = false;

  Mutex m_checkLock;
  Cond m_checkCond;
  uint64_t m_uncheckedBytes GUARDED_BY(m_checkLock) = 0;
  bool m_bObserverWaiting GUARDED_BY(m_checkLock) = false;

  bool m_bCopyStop GUARDED_BY(m_copyLock) = false;
  bool m_bCopyFinished GUARDED_BY(m_hashLock) = false;
  bool m_bHashFinished GUARDED_BY(m_readLock) = false;
  bool m_bReadFinished GUARDED_BY(m_checkLock) = false;
  // Stored under the hash lock and then under the read lock, and read under
  // either; atomic because the two locks do not order each other.
  std::atomic<bool> m_bCancelled{false};

  // The file's threads and data, set up by the extract thread (see
  // StartFileThreads) and read by WaitForChildThreads after the joins.
 public:
  pthread_t m_hashThreadId{};
  pthread_t m_writerThreadId{};
  bool m_bHashThreadStarted = false;
  bool m_bWriterThreadStarted = false;

  IHash* m_pHash = nullptr;
  std::string m_strFileName;
  std::string m_strFilePath;
  FileHandle* m_pFileHandle = nullptr;
  uint64_t m_ullBytesWritten = 0;
  bool m_bWriteFailed = false;  // written by the writer, read after it is joined

 private:
  void returnRing();

  // Set by copyComplete before the ring can drain: the writer then returns
  // the ring to the pool, which counts on it.
  bool m_bReturnExpected = false;
  // Whether the chunk the hasher holds was the last one queued for it;
  // touched by the hash thread only.
  bool m_bHashQueueEmptied = false;
};

#endif  // EXTRACT_HASH_WRITE_BUFFER_H_
