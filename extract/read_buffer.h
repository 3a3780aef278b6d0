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
#ifndef EXTRACT_READ_BUFFER_H_
#define EXTRACT_READ_BUFFER_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "extract_verify_export.h"
#include "status/kalu_status.h"
#include "support/sync.h"
#include "support/thread_annotations.h"

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
  std::unique_ptr<unsigned char[]> m_data;
  uint32_t m_lengths[kChunkCount] GUARDED_BY(m_extractLock);

  Mutex m_writeLock;
  Cond m_freeCond;
  uint32_t m_reserveIndex = 0;  // the producer's alone, as is m_writeIndex
  uint32_t m_writeIndex = 0;
  uint32_t m_freeCount GUARDED_BY(m_writeLock) = kChunkCount;
  bool m_bExtractStopped GUARDED_BY(m_writeLock) = false;
  bool m_bArchiveEnded GUARDED_BY(m_writeLock) = false;
  bool m_bProducerWaiting GUARDED_BY(m_writeLock) = false;

  Mutex m_extractLock;
  Cond m_filledCond;
  uint32_t m_extractIndex = 0;
  uint32_t m_filledCount GUARDED_BY(m_extractLock) = 0;
  bool m_bWriteFinished GUARDED_BY(m_extractLock) = false;
  std::string m_inputFailure GUARDED_BY(m_extractLock);
  bool m_bConsumerWaiting GUARDED_BY(m_extractLock) = false;
};

#endif  // EXTRACT_READ_BUFFER_H_
