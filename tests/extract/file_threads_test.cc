#include "extract/file_threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "extract/hash_write_buffer.h"
#include "extract/run_state.h"
#include "testing/seams.h"
#include "tests/testsupport/capture.h"
#include "tests/testsupport/temp_dir.h"
#include "tools/package/package_writer.h"

namespace {

constexpr size_t kChunk = HashAndWriteBuffer::kChunkSize;

class FileThreadsTest : public testing::Test {
 protected:
  void SetUp() override {
    g_hashResult.clear();
    ASSERT_TRUE(g_vectorOfTHashAndWriteBuffer.empty());
  }
  void TearDown() override {
    ClearHashAndWriteBuffer();
    g_hashResult.clear();
  }

  // A buffer whose threads are started as the extract thread starts them,
  // appended to the run's list.
  static HashAndWriteBuffer* StartFile(const std::string& name, const std::string& path,
                                       bool startHasher = true, bool startWriter = true,
                                       const char* hashName = "sha256") {
    auto* buffer = new HashAndWriteBuffer(name, path);
    delete buffer->m_pHash;
    buffer->m_pHash = makeHash(hashName);
    if (startHasher) {
      buffer->m_bHashThreadStarted =
          pthread_create(&buffer->m_hashThreadId, nullptr, hashThread,
                         new HashThreadArgs{buffer, buffer->m_pHash, 0}) == 0;
    }
    if (startWriter) {
      buffer->m_bWriterThreadStarted =
          pthread_create(&buffer->m_writerThreadId, nullptr, writerThread,
                         new WriterThreadArgs{buffer, *buffer->m_pFileHandle,
                                              &buffer->m_ullBytesWritten}) == 0;
    }
    g_vectorOfTHashAndWriteBuffer.push_back(buffer);
    return buffer;
  }

  // Fills chunks of 32 KiB (the last one shorter) as the extract thread does,
  // asking for one more chunk to learn that the data has ended; returns the
  // number of bytes the ring accepted before refusing a chunk.
  static size_t Fill(HashAndWriteBuffer* buffer, const std::string& data) {
    for (size_t at = 0;; at += kChunk) {
      unsigned char* chunk = buffer->nextCopy();
      if (chunk == nullptr) return at;
      if (at >= data.size()) {
        buffer->copyComplete();
        return data.size();
      }
      size_t n = std::min(kChunk, data.size() - at);
      std::memcpy(chunk, data.data() + at, n);
      buffer->copyReady(static_cast<unsigned int>(n));
    }
  }

  // Writes `data` through one buffer and collects it; returns the digest.
  std::string WriteThrough(const std::string& data, const std::string& path) {
    Fill(StartFile("f", path), data);
    EXPECT_FALSE(WaitForChildThreads());
    return g_hashResult["f"];
  }

  testsupport::TempDir dir;
};

// Whole chunks go out as block writes, a short last one as a plain write
// right after them; a file larger than the ring comes out byte for byte.
TEST_F(FileThreadsTest, FilesAreWrittenByteForByteWithBlockWritesForWholeChunks) {
  const std::pair<size_t, platform::WriteCallCounts> cases[] = {
      {3 * kChunk, {3, 0}}, {kChunk + 1, {1, 1}}, {16 * 1024 * 1024 + 3 * kChunk + 77, {515, 1}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    const std::string data = package::GenerateContent(c.first, c.first, true);
    const platform::WriteCallCounts before = platform::CurrentWriteCallCounts();
    EXPECT_EQ(package::Sha256Hex(data), WriteThrough(data, dir.file("out")));
    const platform::WriteCallCounts now = platform::CurrentWriteCallCounts();
    EXPECT_EQ(c.second.blockWrites, now.blockWrites - before.blockWrites);
    EXPECT_EQ(c.second.plainWrites, now.plainWrites - before.plainWrites);
    EXPECT_TRUE(testsupport::ReadFile(dir.file("out")) == data);
    g_hashResult.clear();
  }
}

TEST_F(FileThreadsTest, DigestIsLowerCaseHexAndEmptyForNoHash) {
  EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
            WriteThrough("abc", dir.file("abc")));

  HashAndWriteBuffer* buffer = StartFile("none", dir.file("none"), true, true, "none");
  Fill(buffer, "data");
  EXPECT_FALSE(WaitForChildThreads());
  ASSERT_EQ(1u, g_hashResult.count("none"));
  EXPECT_EQ("", g_hashResult["none"]);
  EXPECT_EQ("data", testsupport::ReadFile(dir.file("none")));

  // The first file of a name keeps its digest.
  g_hashResult.clear();
  Fill(StartFile("same", dir.file("one")), "first");
  Fill(StartFile("same", dir.file("two")), "second");
  EXPECT_FALSE(WaitForChildThreads());
  EXPECT_EQ(package::Sha256Hex("first"), g_hashResult["same"]);
  EXPECT_TRUE(g_vectorOfTHashAndWriteBuffer.empty());
}

TEST_F(FileThreadsTest, WriteFailureIsReportedAndTheRingKeepsMoving) {
  testsupport::LogCapture log;
  testsupport::OutputCapture output;
  HashAndWriteBuffer* buffer = StartFile("lost", dir.file("missing/lost"));
  // More than the ring holds: the filler would block if the writer stopped
  // giving chunks back.
  std::string data = package::GenerateContent(HashAndWriteBuffer::kChunkCount * kChunk + 5, 4);
  EXPECT_EQ(data.size(), Fill(buffer, data));
  EXPECT_TRUE(WaitForChildThreads());
  std::string printed = output.Finish();

  const std::string kLine = "Failed to write content: " + std::to_string(EBADF) + " 0\n";
  EXPECT_NE(std::string::npos, printed.find(kLine)) << printed;
  EXPECT_EQ(printed.find("Failed to write"), printed.rfind("Failed to write"));
  const std::vector<std::string> logged = log.Described();
  EXPECT_EQ(1, std::count(logged.begin(), logged.end(), "31:writerThread:" + kLine));
  EXPECT_EQ(1u, g_hashResult.count("lost"));
}

TEST_F(FileThreadsTest, ClearEndsWaitingThreadsFreesEveryBufferAndRecordsNothing) {
  for (int i = 0; i < 3; ++i) {
    HashAndWriteBuffer* buffer = StartFile("f" + std::to_string(i), dir.file(std::to_string(i)));
    std::string data = package::GenerateContent(2 * kChunk + 9, i);
    Fill(buffer, data);
    // Once everything is written both threads wait for chunks that never come.
    for (size_t written = 0; written < data.size();) written += buffer->nextCheck();
  }
  StartFile("hasher only", dir.file("h"), true, false);
  StartFile("writer only", dir.file("w"), false, true);
  ClearHashAndWriteBuffer();
  EXPECT_TRUE(g_vectorOfTHashAndWriteBuffer.empty());
  EXPECT_TRUE(g_hashResult.empty());
}

TEST_F(FileThreadsTest, ABufferMissingAThreadIsStillCollectedWithoutBlocking) {
  // No writer: nobody gives chunks back, so the starter stops the filler.
  HashAndWriteBuffer* noWriter = StartFile("no writer", dir.file("a"), true, false);
  noWriter->stopCopy();
  std::string data = package::GenerateContent((HashAndWriteBuffer::kChunkCount + 3) * kChunk, 5);
  EXPECT_EQ(HashAndWriteBuffer::kChunkCount * kChunk, Fill(noWriter, data));
  // No hasher: the writer must still be told that nothing more is coming.
  Fill(StartFile("no hasher", dir.file("b"), false, true), "xyz");
  EXPECT_TRUE(WaitForChildThreads());
  EXPECT_TRUE(g_vectorOfTHashAndWriteBuffer.empty());
  EXPECT_EQ(2u, g_hashResult.size());
}

}  // namespace
