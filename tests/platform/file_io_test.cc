// Block and plain file I/O of the platform layer: block positions and counts,
// switching from block calls to plain ones, the injected read failure and
// offsets past 4 GiB.
#include "platform/file_io.h"

#include <errno.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/seams.h"
#include "tests/testsupport/temp_dir.h"

namespace {

using testsupport::ReadFile;
using testsupport::WriteFile;

constexpr size_t kBlock = 512;

// Bytes whose value depends on their position, so that a read from the
// wrong offset shows.
std::string Pattern(size_t length) {
  std::string bytes(length, '\0');
  for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>('a' + (i * 7 + i / 251) % 26);
  return bytes;
}

class FileIoTest : public testing::Test {
 protected:
  ~FileIoTest() override {
    platform::InjectReadFailureAfter(-1);
    for (int fd : m_open) platform::Close(fd);
  }
  int Open(const std::string& name, bool write) {
    const std::string path = m_dir.file(name);
    int fd = write ? platform::OpenForWriting(path.c_str()) : platform::OpenReadOnly(path.c_str());
    EXPECT_GE(fd, 0) << name;
    if (fd >= 0) m_open.push_back(fd);
    return fd;
  }
  std::string Read(int fd, size_t blockAt, size_t blocks, int expected) {
    std::vector<char> buffer(blocks * kBlock);
    EXPECT_EQ(platform::ReadBlocks(fd, kBlock, blockAt, blocks, buffer.data()), expected);
    return std::string(buffer.data(), expected > 0 ? expected * kBlock : 0);
  }
  testsupport::TempDir m_dir;
  std::vector<int> m_open;
};

TEST_F(FileIoTest, BlockCallsUseBlockNumbersAndCountOnlyWholeBlocks) {
  int out = Open("blocks", true);
  const std::string a(kBlock, 'a'), cc = Pattern(2 * kBlock);
  EXPECT_EQ(platform::WriteBlocks(out, kBlock, 3, 2, cc.data()), 2);
  EXPECT_EQ(platform::WriteBlocks(out, kBlock, 0, 1, a.data()), 1);
  EXPECT_EQ(ReadFile(m_dir.file("blocks")), a + std::string(2 * kBlock, '\0') + cc);

  int in = Open("blocks", false);
  EXPECT_EQ(Read(in, 3, 2, 2), cc);
  EXPECT_EQ(Read(in, 0, 1, 1), a);

  const std::string bytes = Pattern(3 * kBlock + 100);
  WriteFile(m_dir.file("short"), bytes);
  int shortIn = Open("short", false);
  std::vector<char> buffer(4 * kBlock);
  EXPECT_EQ(platform::ReadBlocks(shortIn, kBlock, 1, 4, buffer.data()), 2);
  EXPECT_EQ(std::string(buffer.data(), 2 * kBlock + 100), bytes.substr(kBlock));
  Read(shortIn, 3, 1, 0);
  Read(shortIn, 9, 1, 0);
}

TEST_F(FileIoTest, PlainReadsAndWritesGoWhereSetPositionPutsThem) {
  const std::string bytes = Pattern(64 * kBlock + 1);  // one chunk and a byte
  WriteFile(m_dir.file("source"), bytes);
  int in = Open("source", false);
  Read(in, 0, 64, 64);
  ASSERT_EQ(platform::SetPosition(in, 64 * kBlock), 0);
  char byte = 0;
  EXPECT_EQ(platform::Read(in, &byte, 1), 1);
  EXPECT_EQ(byte, bytes.back());
  EXPECT_EQ(platform::Read(in, &byte, 1), 0);

  int out = Open("written", true);
  ASSERT_EQ(platform::WriteBlocks(out, kBlock, 0, 2, bytes.data()), 2);
  ASSERT_EQ(platform::SetPosition(out, 2 * kBlock), 0);
  EXPECT_EQ(platform::Write(out, "tail", 4), 4);
  EXPECT_EQ(ReadFile(m_dir.file("written")), bytes.substr(0, 2 * kBlock) + "tail");
}

TEST_F(FileIoTest, InjectedReadFailureStartsAfterTheGivenBytesAndCanBeTurnedOff) {
  WriteFile(m_dir.file("source"), Pattern(8 * kBlock));
  int in = Open("source", false);
  std::vector<char> buffer(kBlock);
  platform::InjectReadFailureAfter(3 * kBlock);
  Read(in, 0, 2, 2);
  EXPECT_EQ(platform::Read(in, buffer.data(), kBlock), static_cast<ssize_t>(kBlock));
  errno = 0;
  Read(in, 3, 1, -1);
  EXPECT_EQ(errno, EIO);
  errno = 0;
  EXPECT_EQ(platform::Read(in, buffer.data(), 1), -1);
  EXPECT_EQ(errno, EIO);
  platform::InjectReadFailureAfter(-1);
  Read(in, 3, 1, 1);
  platform::InjectReadFailureAfter(0);
  EXPECT_EQ(platform::Read(in, buffer.data(), 1), -1);
}

// Packages pass 4 GiB; on 32-bit targets that needs 64-bit file offsets all
// the way down. The file is sparse, so only the written blocks take space.
TEST_F(FileIoTest, OffsetsPastFourGibibytesAreKept) {
  const uint64_t offset = uint64_t{5} << 30;
  const std::string chunk = Pattern(2 * kBlock);
  int out = Open("sparse", true);
  const int written = platform::WriteBlocks(out, kBlock, offset / kBlock, 2, chunk.data());
  if (written < 0 && errno == EFBIG) GTEST_SKIP() << "the file system holds no such file";
  ASSERT_EQ(written, 2);

  int in = Open("sparse", false);
  int64_t size = -1;
  EXPECT_EQ(platform::FileSize(in, &size), 0);
  EXPECT_EQ(size, static_cast<int64_t>(offset + 2 * kBlock));
  EXPECT_EQ(Read(in, offset / kBlock, 2, 2), chunk);
  ASSERT_EQ(platform::SetPosition(in, offset + kBlock), 0);
  std::vector<char> buffer(2 * kBlock);
  ASSERT_EQ(platform::Read(in, buffer.data(), buffer.size()), static_cast<ssize_t>(kBlock));
  EXPECT_EQ(std::string(buffer.data(), kBlock), chunk.substr(kBlock));
}

}  // namespace
