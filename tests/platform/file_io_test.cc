// Block and plain file I/O of the platform layer: block numbers and whole
// block counts, plain calls after a set position, the injected read failure
// and offsets past 4 GiB.
#include "platform/file_io.h"

#include <errno.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/testsupport/temp_dir.h"

namespace {

constexpr size_t kBlock = 512;

// Bytes whose value depends on their position, so that a read from the
// wrong offset shows.
std::string Pattern(size_t length) {
  std::string bytes(length, '\0');
  for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>('a' + (i * 7 + i / 251) % 26);
  return bytes;
}

TEST(FileIo, BlockAndPlainCallsGoWhereTheyAreSent) {
  testsupport::TempDir dir;
  const std::string blocks = Pattern(4 * kBlock), bytes = Pattern(3 * kBlock + 100);
  int out = platform::OpenForWriting(dir.file("f").c_str());
  ASSERT_GE(out, 0);
  EXPECT_EQ(platform::WriteBlocks(out, kBlock, 1, 3, blocks.data() + kBlock), 3);
  EXPECT_EQ(platform::WriteBlocks(out, kBlock, 0, 1, blocks.data()), 1);
  ASSERT_EQ(platform::SetPosition(out, 4 * kBlock), 0);
  EXPECT_EQ(platform::Write(out, "tail", 4), 4);
  platform::Close(out);
  EXPECT_EQ(testsupport::ReadFile(dir.file("f")), blocks + "tail");

  testsupport::WriteFile(dir.file("f"), bytes);
  int in = platform::OpenReadOnly(dir.file("f").c_str());
  std::vector<char> buffer(4 * kBlock);
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 1, 4, buffer.data()), 2);  // whole blocks only
  EXPECT_EQ(std::string(buffer.data(), 2 * kBlock + 100), bytes.substr(kBlock));
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 9, 1, buffer.data()), 0);
  ASSERT_EQ(platform::SetPosition(in, 3 * kBlock + 99), 0);
  EXPECT_EQ(platform::Read(in, buffer.data(), 10), 1);
  EXPECT_EQ(buffer[0], bytes.back());

  platform::InjectReadFailureAfter(2 * kBlock);  // counted from here on
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 0, 2, buffer.data()), 2);
  errno = 0;
  EXPECT_EQ(platform::Read(in, buffer.data(), 1), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 0, 1, buffer.data()), -1);
  platform::InjectReadFailureAfter(-1);
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 0, 1, buffer.data()), 1);
  platform::Close(in);
}

// Packages pass 4 GiB; on 32-bit targets that needs 64-bit file offsets all
// the way down. The file is sparse, so only the written blocks take space.
TEST(FileIo, OffsetsPastFourGibibytesAreKept) {
  testsupport::TempDir dir;
  const uint64_t offset = uint64_t{5} << 30;
  const std::string chunk = Pattern(2 * kBlock);
  int out = platform::OpenForWriting(dir.file("sparse").c_str());
  const int written = platform::WriteBlocks(out, kBlock, offset / kBlock, 2, chunk.data());
  platform::Close(out);
  if (written < 0 && errno == EFBIG) GTEST_SKIP() << "the file system holds no such file";
  ASSERT_EQ(written, 2);
  int in = platform::OpenReadOnly(dir.file("sparse").c_str());
  int64_t size = -1;
  EXPECT_EQ(platform::FileSize(in, &size), 0);
  EXPECT_EQ(size, static_cast<int64_t>(offset + 2 * kBlock));
  std::vector<char> buffer(2 * kBlock);
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, offset / kBlock, 2, buffer.data()), 2);
  EXPECT_EQ(std::string(buffer.data(), buffer.size()), chunk);
  ASSERT_EQ(platform::SetPosition(in, offset + kBlock), 0);
  EXPECT_EQ(platform::Read(in, buffer.data(), buffer.size()), static_cast<ssize_t>(kBlock));
  EXPECT_EQ(std::string(buffer.data(), kBlock), chunk.substr(kBlock));
  platform::Close(in);
}

}  // namespace
