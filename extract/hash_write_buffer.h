// The per-file ring of the hash-and-write pipeline.
//
// One HashAndWriteBuffer per extracted file: 512 chunks of 32 KiB shared by
// three threads. The filler (the extract thread) decompresses into free chunks
// (nextCopy/copyReady/copyFinished), the hash thread feeds filled chunks to the
// file's hash object (nextHash/hashReady/hashFinished), and the writer thread
// writes hashed chunks to the destination file and frees them
// (nextRead/readReady/readFinished). Each count is guarded by the lock of the
// party that waits on it; no operation holds two locks; each condition has
// exactly one waiting party and is woken by a signal. Cursors are touched only
// by their own party. The chunk storage is allocated without being
// initialised, so only the chunks a file actually uses cost memory.
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
#include <memory>
#include <string>
#include <utility>

#include "extract/file_threads.h"
#include "support/file_handle.h"
#include "support/hash.h"
#include "support/sync.h"
#include "extract_verify_export.h"

class EV_EXPORT HashAndWriteBuffer {
 public:
  enum : uint32_t { kChunkCount = 512, kChunkSize = 32768 };
  using Chunk = std::pair<unsigned char*, unsigned int>;

  // Allocates the ring and opens `filePath` for writing (created, truncated,
  // 0666 less the umask); a failed open shows only when the writer writes.
  HashAndWriteBuffer(std::string fileName, std::string filePath);
  ~HashAndWriteBuffer();
  HashAndWriteBuffer(const HashAndWriteBuffer&) = delete;
  HashAndWriteBuffer& operator=(const HashAndWriteBuffer&) = delete;

  // Filler (extract thread).
  unsigned char* nextCopy();  // null once copy stop is set and no chunk is free
  void copyReady(unsigned int size);
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

  // The ring; chunk i starts at i * kChunkSize.
  std::unique_ptr<unsigned char[]> m_chunks;
  uint32_t m_filledSizes[kChunkCount];
  uint32_t m_hashedSizes[kChunkCount];

  Mutex m_copyLock;
  Cond m_copyCond;
  uint32_t m_copyCursor = 0;
  uint32_t m_freeChunks = kChunkCount;

  Mutex m_hashLock;
  Cond m_hashCond;
  uint32_t m_hashCursor = 0;
  uint32_t m_chunksToHash = 0;

  Mutex m_readLock;
  Cond m_readCond;
  uint32_t m_readCursor = 0;
  uint32_t m_chunksToWrite = 0;

  Mutex m_checkLock;
  Cond m_checkCond;
  uint64_t m_uncheckedBytes = 0;

  bool m_bCopyStop = false;      // copy lock
  bool m_bCopyFinished = false;  // hash lock
  bool m_bHashFinished = false;  // read lock
  bool m_bReadFinished = false;  // check lock
  // Stored under the hash lock and then under the read lock, and read under
  // either; atomic because the two locks do not order each other.
  std::atomic<bool> m_bCancelled{false};

  // Whether the hash thread (inside nextHash) holds the hash lock, and the
  // writer (inside nextRead) the read lock; each touched by that thread only,
  // so that a cleanup handler releases a lock only when its thread holds it.
  bool m_bHashLockHeld = false;
  bool m_bReadLockHeld = false;

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
  // Publishes the chunk at `cursor` (now holding `size` bytes) to the next
  // party, then advances the caller's own cursor outside the lock.
  void passOn(Mutex& lock, Cond& cond, uint32_t* sizes, uint32_t& count, uint32_t& cursor,
              unsigned int size);
  // The wait shared by nextHash and nextRead: takes the next chunk that the
  // previous party has passed on, draining before `finished` is honoured.
  Chunk nextPassedOn(Mutex& lock, Cond& cond, uint32_t& count, const bool& finished,
                     const uint32_t* sizes, uint32_t cursor, bool& lockHeld);
};

#endif  // EXTRACT_HASH_WRITE_BUFFER_H_
