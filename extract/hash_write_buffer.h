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
// have ended.
#ifndef EXTRACT_HASH_WRITE_BUFFER_H_
#define EXTRACT_HASH_WRITE_BUFFER_H_

#include <pthread.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "support/file_handle.h"
#include "support/hash.h"
#include "support/sync.h"

class HashAndWriteBuffer {
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
  // Sets copy stop and wakes a filler waiting in nextCopy (source ended).
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

  // Ends both threads of this buffer early: they stop taking chunks and
  // return. Does not wait; the caller joins them before freeing the buffer.
  void CancelHashWriteThreads();

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
  bool m_bCancelled = false;     // set under the hash lock and the read lock in turn

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
};

// Thread arguments; each per-file thread gets its own block, owned by the
// thread it is handed to (the thread frees it).
struct HashThreadArgs {
  HashAndWriteBuffer* buffer;
  IHash* hash;
  int basePriority;
};
struct WriterThreadArgs {
  HashAndWriteBuffer* buffer;
  int fd;
  uint64_t* bytesWritten;
};

void* hashThread(void* argument);
void* writerThread(void* argument);
void hash_thread_cleanup_handler(void* buffer);
void write_thread_cleanup_handler(void* buffer);

// Extract thread only. WaitForChildThreads finishes, joins and frees every
// buffer of the run in creation order, recording each digest (lower-case hex)
// in g_hashResult, the first file of a name winning. It returns true when a
// writer failed to write its file. ClearHashAndWriteBuffer ends every buffer's
// threads, frees the buffers and records nothing.
bool WaitForChildThreads();
void ClearHashAndWriteBuffer();

#endif  // EXTRACT_HASH_WRITE_BUFFER_H_
