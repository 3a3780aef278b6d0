// The per-file ring between the extract thread (filler), the hasher and the
// writer: chunk order and sizes, wrap-around, blocking and waking, the copy
// stop, and draining before the end.
#include "extract/hash_write_buffer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "tests/testsupport/temp_dir.h"

namespace {

constexpr uint32_t kChunks = HashAndWriteBuffer::kChunkCount;

class RingTest : public testing::Test {
 protected:
  // Moves one chunk of `size` bytes through all three parties; the hasher
  // passes on `size` + `grow` bytes.
  void Cycle(unsigned int size, unsigned int grow = 0) {
    unsigned char* copy = ring.nextCopy();
    ring.copyReady(size);
    HashAndWriteBuffer::Chunk hashed = ring.nextHash();
    EXPECT_EQ(HashAndWriteBuffer::Chunk(copy, size), hashed);
    ring.hashReady(size + grow);
    EXPECT_EQ(HashAndWriteBuffer::Chunk(copy, size + grow), ring.nextRead());
    ring.readReady(size + grow);
  }
  void FillAll() {
    for (uint32_t i = 0; i < kChunks; ++i) {
      ASSERT_NE(nullptr, ring.nextCopy());
      ring.copyReady(HashAndWriteBuffer::kChunkSize);
    }
  }
  // Gives one chunk back to the filler through the hasher and the writer.
  void PassOneChunkOn() {
    ring.hashReady(ring.nextHash().second);
    ring.readReady(ring.nextRead().second);
  }
  // Lets a thread that is about to wait get there; the tests stay correct
  // whether or not it has.
  static void LetWaiterBlock() { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }

  testsupport::TempDir dir;
  HashAndWriteBuffer ring{"entry", dir.file("out")};
};

TEST_F(RingTest, ChunksTravelFillerHasherWriterInOrderAndWrapAfterTheLast) {
  EXPECT_EQ(ring.chunk(0), ring.nextCopy());
  ring.copyReady(100);
  EXPECT_EQ(HashAndWriteBuffer::Chunk(ring.chunk(0), 100), ring.nextHash());
  ring.hashReady(60);
  EXPECT_EQ(HashAndWriteBuffer::Chunk(ring.chunk(0), 60), ring.nextRead());
  ring.readReady(60);
  for (uint32_t i = 1; i < kChunks; ++i) Cycle(1, i % 3);
  EXPECT_EQ(ring.chunk(0), ring.nextCopy());
  ring.copyReady(5);
  EXPECT_EQ(ring.chunk(0), ring.nextHash().first);
}

TEST_F(RingTest, FillerWaitsForAFreeChunkAndTheCopyStopEndsTheWaitOnlyWhenNoneIsFree) {
  FillAll();
  auto filler = std::async(std::launch::async, [this] { return ring.nextCopy(); });
  LetWaiterBlock();
  PassOneChunkOn();
  EXPECT_EQ(ring.chunk(0), filler.get());
  ring.copyReady(1);

  auto stopped = std::async(std::launch::async, [this] { return ring.nextCopy(); });
  LetWaiterBlock();
  ring.stopCopy();
  EXPECT_EQ(nullptr, stopped.get());
  PassOneChunkOn();  // a free chunk is still handed out after the stop
  EXPECT_EQ(ring.chunk(1), ring.nextCopy());
}

TEST_F(RingTest, FilledAndHashedChunksAreDrainedBeforeTheEndIsReported) {
  for (unsigned int size : {10u, 20u, 30u}) {
    ring.nextCopy();
    ring.copyReady(size);
  }
  ring.copyFinished();
  for (unsigned int size : {10u, 20u, 30u}) {
    EXPECT_EQ(size, ring.nextHash().second);
    ring.hashReady(size + 1);
  }
  EXPECT_EQ(HashAndWriteBuffer::Chunk(nullptr, 0), ring.nextHash());
  ring.hashFinished();
  for (unsigned int size : {11u, 21u, 31u}) {
    EXPECT_EQ(size, ring.nextRead().second);
    ring.readReady(size);
  }
  EXPECT_EQ(HashAndWriteBuffer::Chunk(nullptr, 0), ring.nextRead());
}

// Once the data is complete and every chunk is back, the storage returns to
// the pool, which hands it to the next file instead of mapping fresh pages.
TEST_F(RingTest, ACompleteDrainedRingServesTheNextFile) {
  unsigned char* storage = ring.chunk(0);
  Cycle(10);
  ring.nextCopy();
  ring.copyComplete();
  HashAndWriteBuffer next("next", dir.file("next"));
  EXPECT_EQ(storage, next.chunk(0));
}

TEST_F(RingTest, NextCheckReportsBytesWrittenSinceLastCallThenZeroAfterTheEnd) {
  Cycle(10);
  Cycle(20);
  EXPECT_EQ(30u, ring.nextCheck());
  auto observer = std::async(std::launch::async, [this] { return ring.nextCheck(); });
  LetWaiterBlock();
  Cycle(5);
  EXPECT_EQ(5u, observer.get());
  Cycle(7);
  ring.readFinished();
  EXPECT_EQ(7u, ring.nextCheck());
  EXPECT_EQ(0u, ring.nextCheck());
}

}  // namespace
