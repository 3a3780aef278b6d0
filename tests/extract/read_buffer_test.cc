// The read ring between the source reader and the archive reader: ring
// order, back-pressure, the end of input and the early stop of the consumer.
#include "extract/read_buffer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <future>

#include "extract/hash_write_buffer.h"
#include "extract/run_state_internal.h"
#include "extract/source_reader.h"
#include "tests/testsupport/temp_dir.h"

namespace {

const uint32_t kChunks = ReadAndExtractBuffer::kChunkCount;
const uint32_t kChunkSize = ReadAndExtractBuffer::kChunkSize;

// Fills every chunk without a consumer, chunk i with i + 1 bytes; returns
// the first chunk's address.
unsigned char* FillRing(ReadAndExtractBuffer& ring) {
  unsigned char* first = ring.nextWrite();
  ring.writeReady(1);
  for (uint32_t i = 1; i < kChunks; ++i) {
    ring.nextWrite();
    ring.writeReady(i + 1);
  }
  return first;
}

TEST(ReadAndExtractBufferTest, ChunksTravelInRingOrderWithTheirLengthsAndWrapAround) {
  ReadAndExtractBuffer ring;
  unsigned char* base = nullptr;
  for (uint32_t i = 0; i < 3 * kChunks + 5; ++i) {
    unsigned char* chunk = ring.nextWrite();
    if (i == 0) base = chunk;
    ASSERT_EQ(chunk, base + (i % kChunks) * kChunkSize) << "chunk " << i;
    std::memset(chunk, static_cast<int>(i & 0xff), kChunkSize);
    ring.writeReady(i % kChunkSize + 1);

    ExtractChunk taken = ring.nextExtract();
    ASSERT_EQ(taken.data, chunk);
    ASSERT_EQ(taken.length, i % kChunkSize + 1);
    ASSERT_EQ(taken.data[taken.length - 1], static_cast<unsigned char>(i & 0xff));
    ring.extractReady();
  }
}

// The producer waits for a batch of free chunks, not for one.
TEST(ReadAndExtractBufferTest, FullRingBlocksTheProducerUntilChunksAreGivenBack) {
  ReadAndExtractBuffer ring;
  unsigned char* first = FillRing(ring);
  std::atomic<bool> returned{false};
  auto producer = std::async(std::launch::async, [&] {
    unsigned char* chunk = ring.nextWrite();
    returned = true;
    return chunk;
  });
  // Taking a chunk frees nothing: the chunk stays with the consumer.
  EXPECT_EQ(ring.nextExtract().data, first);
  EXPECT_FALSE(returned);
  ring.extractReady();
  for (uint32_t i = 1; i < ReadAndExtractBuffer::kWakeBatch; ++i) {
    ring.nextExtract();
    ring.extractReady();
  }
  EXPECT_EQ(producer.get(), first);
}

TEST(ReadAndExtractBufferTest, PublishedChunksAreDrainedBeforeTheEndWhichWakesAWaitingConsumer) {
  ReadAndExtractBuffer waiting;
  auto consumer = std::async(std::launch::async, [&] { return waiting.nextExtract(); });
  waiting.writeFinished();
  EXPECT_EQ(consumer.get().data, nullptr);

  ReadAndExtractBuffer ring;
  for (uint32_t i = 0; i < 5; ++i) {
    ring.nextWrite();
    ring.writeReady(100 + i);
  }
  ring.writeFinished();
  for (uint32_t i = 0; i < 5; ++i) {
    EXPECT_EQ(ring.nextExtract().length, 100 + i);
    ring.extractReady();
  }
  for (int i = 0; i < 2; ++i) {
    ExtractChunk end = ring.nextExtract();
    EXPECT_EQ(end.data, nullptr);
    EXPECT_EQ(end.length, 0u);
  }
}

TEST(ReadAndExtractBufferTest, StoppedConsumerWakesABlockedProducerAndRefusesFurtherChunks) {
  ReadAndExtractBuffer ring;
  FillRing(ring);
  auto producer = std::async(std::launch::async, [&] { return ring.nextWrite(); });
  ring.extractStopped();
  EXPECT_EQ(producer.get(), nullptr);

  ReadAndExtractBuffer fresh;  // free chunks left, but nobody will read them
  fresh.extractStopped();
  EXPECT_EQ(fresh.nextWrite(), nullptr);
}

TEST(ReadAndExtractBufferTest, EndOfInputStopsTheCurrentFilePipelineOnly) {
  ReadAndExtractBuffer ring;
  ring.extractFinished();  // no pipeline yet: nothing to do
  testsupport::TempDir dir;
  HashAndWriteBuffer file("a", dir.file("a"));
  ring.setHashAndWriteBuffer(&file);
  ring.extractFinished();
  // A filler still gets the free chunks, then no more.
  for (uint32_t i = 0; i < HashAndWriteBuffer::kChunkCount; ++i) ASSERT_NE(file.nextCopy(), nullptr);
  EXPECT_EQ(file.nextCopy(), nullptr);
}

// read_arch keeps the chunk it handed out until the archive reader asks for
// the next one, and reports the end as (null, 0), at once for empty input.
TEST(ReadArchTest, GivesEachChunkBackOnlyOnTheNextCall) {
  ReadAndExtractBuffer ring;
  ReadAndExtractBuffer* slot = &ring;
  g_bFirstArchiveRead = 1;
  unsigned char* first = FillRing(ring);
  const void* data = nullptr;
  EXPECT_EQ(read_arch(nullptr, &slot, &data), 1);
  EXPECT_EQ(data, first);
  EXPECT_EQ(read_arch(nullptr, &slot, &data), 2);
  EXPECT_EQ(data, first + kChunkSize);
  EXPECT_EQ(ring.nextWrite(), first);  // chunk 0 is free again, and only chunk 0
  ring.writeReady(7);
  ring.writeFinished();
  for (uint32_t i = 3; i <= kChunks; ++i) ASSERT_EQ(read_arch(nullptr, &slot, &data), i);
  EXPECT_EQ(read_arch(nullptr, &slot, &data), 7);
  EXPECT_EQ(read_arch(nullptr, &slot, &data), 0);
  EXPECT_EQ(data, nullptr);

  ReadAndExtractBuffer empty;
  slot = &empty;
  g_bFirstArchiveRead = 1;
  empty.writeFinished();
  data = &slot;
  EXPECT_EQ(read_arch(nullptr, &slot, &data), 0);
  EXPECT_EQ(data, nullptr);
}

}  // namespace
