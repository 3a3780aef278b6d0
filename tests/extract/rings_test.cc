// The ends of the rings that no run can time on purpose: the end of input
// while the extract thread waits for a chunk, a filler waiting for a chunk of
// the pool that another file's writer gives back or stopped by an abort, and
// a cancellation while chunks are queued. The other ends and stops are met by the runs.
#include <gtest/gtest.h>

#include <future>

#include "extract_verify/buffers.h"
#include "extract_verify/extraction.h"
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
  HashAndWriteBuffer first("a", dir.file("a")), second("b", dir.file("b"));
  for (uint32_t i = 0; i < HashAndWriteBuffer::kChunkCount; ++i) {
    ASSERT_NE(first.nextCopy(), nullptr);
    first.copyReady(1);
  }
  // A filler waiting for a chunk sees an abort, though nothing wakes it.
  auto aborted = Blocked([&] { return second.nextCopy(); });
  AbortExtraction();
  EXPECT_EQ(aborted.get(), nullptr);
  g_bAbortExecution = 0;
  // The next file starts in the first chunk the last one gives back.
  auto filler = Blocked([&] { return second.nextCopy(); });
  first.hashReady(first.nextHash().second);
  unsigned char* freed = first.nextRead().first;
  first.readReady(1);
  EXPECT_EQ(filler.get(), freed);
  second.copyComplete();
  second.stopCopy();  // a file one of whose threads never started
  EXPECT_EQ(second.nextCopy(), nullptr);
  first.CancelHashWriteThreads();
  EXPECT_EQ(first.nextHash().first, nullptr);  // though every chunk waits for it
}

}  // namespace
