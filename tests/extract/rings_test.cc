// The ends of the rings that no run can time on purpose: the end of input
// while the extract thread waits for a chunk, the end of input while it waits
// for room in a full file ring (with the file's threads running, and with
// one missing), and a cancellation while chunks are queued. The other ends
// and stops are met by the runs.
#include <gtest/gtest.h>

#include <future>

#include "extract/hash_write_buffer.h"
#include "extract/read_buffer.h"
#include "tests/testsupport/temp_dir.h"

namespace {

// `call` on a thread of its own, given the time to block in a wait.
template <typename Call>
auto Blocked(Call call) {
  auto result = std::async(std::launch::async, call);
  EXPECT_EQ(result.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  return result;
}

TEST(Rings, EndsAndCancellationsReachThePartyThatWaits) {
  ReadAndExtractBuffer input;
  auto consumer = Blocked([&] { return input.nextExtract().data; });
  input.writeFinished();
  EXPECT_EQ(consumer.get(), nullptr);

  testsupport::TempDir dir;
  HashAndWriteBuffer file("a", dir.file("a"));
  input.setHashAndWriteBuffer(&file);
  for (uint32_t i = 0; i < HashAndWriteBuffer::kChunkCount; ++i) {
    ASSERT_NE(file.nextCopy(), nullptr);
    file.copyReady(1);
  }
  // The end of input leaves a pipeline whose threads run to drain itself: the
  // archive reader may still hold the entry's last data.
  file.m_bHashThreadStarted = file.m_bWriterThreadStarted = true;
  auto filler = Blocked([&] { return file.nextCopy(); });
  input.extractFinished();
  EXPECT_EQ(filler.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  file.hashReady(file.nextHash().second);
  file.readReady(file.nextRead().second);
  EXPECT_NE(filler.get(), nullptr);
  file.copyReady(1);
  file.m_bWriterThreadStarted = false;  // one that cannot is stopped
  filler = Blocked([&] { return file.nextCopy(); });
  input.extractFinished();
  EXPECT_EQ(filler.get(), nullptr);
  file.CancelHashWriteThreads();
  EXPECT_EQ(file.nextHash().first, nullptr);  // though every chunk waits for it
}

}  // namespace
