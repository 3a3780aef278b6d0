// The chunk ring between the source reader and the archive reader.
//
// 128 chunks of 32 KiB. One producer (the source reader, on the caller's
// thread) fills chunks: nextWrite/writeReady/writeFinished. One consumer (the
// extract thread, inside the archive read callback) takes them:
// nextExtract/extractReady. The write lock guards the free
// count, the extract lock guards the filled count, the lengths and the end
// flag; no operation holds both. The ring lives on the reader's stack for one
// run and must outlive the extract thread.
//
// Hand-offs: a party is signalled only while it waits. The consumer, the
// slower of the two, is woken for every chunk published; the producer only
// once kWakeBatch chunks are free, so that it reads a batch per wake-up.
// Were both asleep, fewer than kWakeBatch + 1 of the 128 chunks could be
// accounted for, so neither waits for ever.
//
// The producer may hold several chunks at once: nextWrite reserves chunks in
// ring order, writeReady publishes the oldest reserved one. A reader that
// inflates the package fills a run of neighbouring chunks in one go and
// publishes them once it knows their bytes are good. An input that ends
// damaged is ended with writeFailed: the consumer meets the failure's text
// where the end of data would be.
//
// When the consumer stops early it calls extractStopped(): a producer blocked
// in nextWrite wakes and gets null, so no path can leave the reader waiting
// for a chunk that nobody will give back.
//
// The per-file ring of the hash-and-write pipeline.
//
// One HashAndWriteBuffer per extracted file: a ring of 512 slots shared by
// three threads. The filler (the extract thread) takes a chunk of 32 KiB from
// the run's chunk pool for the next slot and inflates
// into it (nextCopy/copyReady/copyComplete/copyFinished), the hash thread
// feeds filled chunks to the file's hash object (nextHash/hashReady/
// hashFinished), and the writer thread writes hashed chunks to the
// destination file and gives them back to the pool (nextRead/readReady/
// readFinished). Each count is guarded by the lock of the party that waits
// on it; no operation holds two locks; each condition has exactly one
// waiting party and is woken by a signal. Cursors are touched only by their
// own party; a slot's chunk is set by the filler before it is published and
// cleared by the writer before the chunk goes back to the pool.
//
// Hand-offs: a party is signalled only while it waits. The filler waits for
// a free chunk in the pool and is woken for every chunk given back; the
// writer is woken for every chunk, the hasher (faster than the filler that
// feeds it) only once kWakeBatch chunks wait for it, and the writer also
// whenever the hasher has emptied its queue; copyComplete, copyFinished,
// hashFinished and the cancellation wake their party in any case. A party
// that is woken takes whatever is there, so no chunk waits for ever.
//
// The buffer also holds the file it is for: its name in the archive, its
// path, its open destination and its hash object.
//
// Ownership: created by the extract thread, owned by
// g_vectorOfTHashAndWriteBuffer once its threads are started; freed by
// the extract thread after both of its threads have ended; the
// destructor gives the chunks still in its slots back to the pool.
#ifndef EXTRACT_VERIFY_BUFFERS_H_
#define EXTRACT_VERIFY_BUFFERS_H_

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "extract_verify/export.h"
#include "extract_verify/hash.h"
#include "extract_verify/resources.h"
#include "extract_verify/status.h"
#include "extract_verify/thread_annotations.h"

struct ExtractChunk {
  unsigned char* data;  // null at the end of input
  uint32_t length;      // 0 at the end of input
  const char* failure;  // at the end of a damaged input: why; null otherwise
};

class EV_EXPORT ReadAndExtractBuffer {
 public:
  enum : uint32_t { kChunkCount = 128, kChunkSize = 32768, kWakeBatch = 16 };

  ReadAndExtractBuffer();
  ~ReadAndExtractBuffer();
  ReadAndExtractBuffer(const ReadAndExtractBuffer&) = delete;
  ReadAndExtractBuffer& operator=(const ReadAndExtractBuffer&) = delete;

  // Producer.
  unsigned char* nextWrite();  // blocks while no chunk is free; null once stopped
  // Reserves up to `wanted` neighbouring chunks, at least one, as the ring
  // allows: `reserved` tells how many. Blocks and stops as nextWrite.
  unsigned char* nextWrite(uint32_t wanted, uint32_t* reserved);
  void writeReady(unsigned int length);  // publishes the oldest reserved chunk
  void writeFinished();
  void writeFailed(std::string why);  // the input ends here, damaged; the first end counts

  // Consumer.
  ExtractChunk nextExtract();  // published chunks are drained before the end
  void extractReady();
  // Takes no more chunks and wakes the producer; `archiveEnded` tells it
  // that the archive was read to its end (the run may still go on).
  void extractStopped(bool archiveEnded = false);
  bool archiveEnded();  // producer, once nextWrite has returned null

  // Outcome of the extraction, written by the extract thread, read by the
  // producer once per chunk.
  std::atomic<_KALU_Error> m_eStatus{KALU_NO_ERR};

 private:
  unsigned char* m_data;  // kChunkCount chunks, mapped as whole pages
  uint32_t m_lengths[kChunkCount] EV_GUARDED_BY(m_extractLock);

  Mutex m_writeLock;
  Cond m_freeCond;
  uint32_t m_reserveIndex = 0;  // the producer's alone, as is m_writeIndex
  uint32_t m_writeIndex = 0;
  uint32_t m_freeCount EV_GUARDED_BY(m_writeLock) = kChunkCount;
  bool m_bExtractStopped EV_GUARDED_BY(m_writeLock) = false;
  bool m_bArchiveEnded EV_GUARDED_BY(m_writeLock) = false;
  bool m_bProducerWaiting EV_GUARDED_BY(m_writeLock) = false;

  Mutex m_extractLock;
  Cond m_filledCond;
  uint32_t m_extractIndex = 0;
  uint32_t m_filledCount EV_GUARDED_BY(m_extractLock) = 0;
  bool m_bWriteFinished EV_GUARDED_BY(m_extractLock) = false;
  std::string m_inputFailure EV_GUARDED_BY(m_extractLock);
  bool m_bConsumerWaiting EV_GUARDED_BY(m_extractLock) = false;
};

class EV_EXPORT HashAndWriteBuffer {
 public:
  enum : uint32_t { kChunkCount = 512, kChunkSize = 32768, kWakeBatch = 16 };
  using Chunk = std::pair<unsigned char*, unsigned int>;

  // Makes sure the chunk pool is mapped (std::bad_alloc when the system
  // refuses it) and opens `filePath` for writing (created, truncated, 0666
  // less the umask); a failed open shows only when the writer writes.
  HashAndWriteBuffer(std::string fileName, std::string filePath);
  ~HashAndWriteBuffer();
  HashAndWriteBuffer(const HashAndWriteBuffer&) = delete;
  HashAndWriteBuffer& operator=(const HashAndWriteBuffer&) = delete;

  // Filler (extract thread). nextCopy waits for a free chunk of the pool;
  // null once stopCopy has been called, or when the run stops (an abort or
  // a failure) while it waits.
  unsigned char* nextCopy();
  void copyReady(unsigned int size);
  // The entry's data has ended: the chunk last taken by nextCopy goes back
  // to the pool unused.
  void copyComplete();
  void copyFinished();
  // Nobody would pass this file's chunks on (one of its threads never
  // started): the filler gets no chunk for it.
  void stopCopy() { m_bCopyStop = true; }

  // Hash thread.
  Chunk nextHash();  // (null, 0) when nothing more is to be hashed
  void hashReady(unsigned int size);
  void hashFinished();

  // Writer thread.
  Chunk nextRead();  // (null, 0) when nothing more is to be written
  void readReady(unsigned int size);

  // Ends both threads of this buffer early: from now on nextHash and nextRead
  // return (null, 0), so each thread finishes its current chunk and returns.
  // Does not wait; the caller joins them before freeing the buffer.
  void CancelHashWriteThreads();

  // The ring's state, in the order of its parties. Each count and flag is
  // guarded by the lock of the party that waits on it; each cursor belongs
  // to its party alone.
 private:
  unsigned char* m_slots[kChunkCount] = {};  // each slot's chunk, while it holds one
  uint32_t m_filledSizes[kChunkCount] EV_GUARDED_BY(m_hashLock);
  uint32_t m_hashedSizes[kChunkCount] EV_GUARDED_BY(m_readLock);

  uint32_t m_copyCursor = 0;
  bool m_bCopyStop = false;  // the filler's alone

  Mutex m_hashLock;
  Cond m_hashCond;
  uint32_t m_hashCursor = 0;
  uint32_t m_chunksToHash EV_GUARDED_BY(m_hashLock) = 0;
  bool m_bHasherWaiting EV_GUARDED_BY(m_hashLock) = false;

  Mutex m_readLock;
  Cond m_readCond;
  uint32_t m_readCursor = 0;
  uint32_t m_chunksToWrite EV_GUARDED_BY(m_readLock) = 0;
  bool m_bWriterWaiting EV_GUARDED_BY(m_readLock) = false;

  bool m_bCopyFinished EV_GUARDED_BY(m_hashLock) = false;
  bool m_bHashFinished EV_GUARDED_BY(m_readLock) = false;
  // Stored under the hash lock and then under the read lock, and read under
  // either; atomic because the two locks do not order each other.
  std::atomic<bool> m_bCancelled{false};

  // The file the ring is for, set up by the constructor.
  IHash* m_pHash = nullptr;
  std::string m_strFileName;
  std::string m_strFilePath;
  FileHandle* m_pFileHandle = nullptr;

  // Whether the chunk the hasher holds was the last one queued for it;
  // touched by the hash thread only.
  bool m_bHashQueueEmptied = false;

 public:
  const std::string& fileName() const { return m_strFileName; }
  const std::string& filePath() const { return m_strFilePath; }
  IHash* hash() const { return m_pHash; }
  // The destination's descriptor, for the writer; -1 once closed.
  int fileDescriptor() const { return *m_pFileHandle; }
  // Closes the destination (the writer, at its end); the descriptor kept
  // is -1, so that no second close can hit another file's descriptor.
  void closeFile() { m_pFileHandle->closeNow(); }
};

#endif  // EXTRACT_VERIFY_BUFFERS_H_
