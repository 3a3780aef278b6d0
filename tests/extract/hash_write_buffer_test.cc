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
  // Moves one chunk of `size` bytes through all three parties.
  void Cycle(unsigned int size) {
    ASSERT_NE(nullptr, ring.nextCopy());
    ring.copyReady(size);
    ASSERT_NE(nullptr, ring.nextHash().first);
    ring.hashReady(size);
    ASSERT_NE(nullptr, ring.nextRead().first);
    ring.readReady(size);
  }

  void FillAll() {
    for (uint32_t i = 0; i < kChunks; ++i) {
      ASSERT_NE(nullptr, ring.nextCopy());
      ring.copyReady(HashAndWriteBuffer::kChunkSize);
    }
  }

  // Gives one chunk back to the filler through the hasher and the writer.
  void PassOneChunkOn() {
    HashAndWriteBuffer::Chunk chunk = ring.nextHash();
    ring.hashReady(chunk.second);
    ring.readReady(ring.nextRead().second);
  }

  // Whether another thread can take `lock` right now.
  static bool LockIsFree(Mutex& lock) {
    return std::async(std::launch::async, [&lock] {
             if (pthread_mutex_trylock(lock) != 0) return false;
             pthread_mutex_unlock(lock);
             return true;
           }).get();
  }

  // Lets a thread that is about to wait get there; the tests stay correct
  // whether or not it has.
  static void LetWaiterBlock() { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }

  testsupport::TempDir dir;
  HashAndWriteBuffer ring{"entry", dir.file("out")};
};

TEST_F(RingTest, AChunkTravelsFillerHasherWriterAndBackWithItsSizes) {
  EXPECT_EQ(ring.chunk(0), ring.nextCopy());
  EXPECT_EQ(kChunks - 1, ring.m_freeChunks);
  ring.copyReady(100);
  EXPECT_EQ(1u, ring.m_chunksToHash);
  EXPECT_EQ(1u, ring.m_copyCursor);

  EXPECT_EQ(HashAndWriteBuffer::Chunk(ring.chunk(0), 100), ring.nextHash());
  EXPECT_EQ(0u, ring.m_chunksToHash);
  ring.hashReady(60);
  EXPECT_EQ(1u, ring.m_chunksToWrite);

  EXPECT_EQ(HashAndWriteBuffer::Chunk(ring.chunk(0), 60), ring.nextRead());
  ring.readReady(60);
  EXPECT_EQ(kChunks, ring.m_freeChunks);
  EXPECT_EQ(0u, ring.m_chunksToWrite);
  EXPECT_EQ(60u, ring.nextCheck());
  EXPECT_EQ(ring.chunk(1), ring.nextCopy());
}

TEST_F(RingTest, EveryCursorWrapsFromChunk511BackToChunk0) {
  for (uint32_t i = 0; i < kChunks - 1; ++i) Cycle(1);
  EXPECT_EQ(ring.chunk(511), ring.nextCopy());
  ring.copyReady(1);
  EXPECT_EQ(ring.chunk(511), ring.nextHash().first);
  ring.hashReady(1);
  EXPECT_EQ(ring.chunk(511), ring.nextRead().first);
  ring.readReady(1);
  EXPECT_EQ(0u, ring.m_copyCursor);
  EXPECT_EQ(0u, ring.m_hashCursor);
  EXPECT_EQ(0u, ring.m_readCursor);
  EXPECT_EQ(ring.chunk(0), ring.nextCopy());
}

TEST_F(RingTest, FillerWaitsWhileAllChunksAreInUseAndWakesWhenTheWriterFreesOne) {
  FillAll();
  EXPECT_EQ(0u, ring.m_freeChunks);
  std::future<unsigned char*> filler = std::async(std::launch::async, [this] { return ring.nextCopy(); });
  LetWaiterBlock();
  PassOneChunkOn();
  EXPECT_EQ(ring.chunk(0), filler.get());
}

TEST_F(RingTest, CopyStopIsHonouredOnlyWhenNoChunkIsFree) {
  ring.stopCopy();
  FillAll();  // every chunk is still handed out
  EXPECT_EQ(nullptr, ring.nextCopy());
  PassOneChunkOn();
  EXPECT_EQ(ring.chunk(0), ring.nextCopy());
}

TEST_F(RingTest, CopyStopWakesAWaitingFiller) {
  FillAll();
  std::future<unsigned char*> filler = std::async(std::launch::async, [this] { return ring.nextCopy(); });
  LetWaiterBlock();
  ring.stopCopy();
  EXPECT_EQ(nullptr, filler.get());
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
  EXPECT_EQ(nullptr, ring.nextHash().first);
  EXPECT_EQ(HashAndWriteBuffer::Chunk(nullptr, 0), ring.nextHash());
  ring.hashFinished();
  for (unsigned int size : {11u, 21u, 31u}) {
    EXPECT_EQ(size, ring.nextRead().second);
    ring.readReady(size);
  }
  EXPECT_EQ(HashAndWriteBuffer::Chunk(nullptr, 0), ring.nextRead());
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

TEST_F(RingTest, CleanupHandlersReleaseOnlyALockTheirThreadHolds) {
  hash_thread_cleanup_handler(nullptr);
  write_thread_cleanup_handler(nullptr);

  pthread_mutex_lock(ring.m_hashLock);  // held, but not by the hasher
  hash_thread_cleanup_handler(&ring);
  EXPECT_FALSE(LockIsFree(ring.m_hashLock));
  ring.m_bHashLockHeld = true;  // as inside nextHash
  hash_thread_cleanup_handler(&ring);
  EXPECT_TRUE(LockIsFree(ring.m_hashLock));
  EXPECT_FALSE(ring.m_bHashLockHeld);

  pthread_mutex_lock(ring.m_readLock);
  ring.m_bReadLockHeld = true;
  write_thread_cleanup_handler(&ring);
  EXPECT_TRUE(LockIsFree(ring.m_readLock));
}

}  // namespace
