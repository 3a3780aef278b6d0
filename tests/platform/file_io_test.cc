// Block and plain file I/O of the platform layer: block positions and counts,
// switching from block calls to plain ones, and the injected read failure.
#include "platform/file_io.h"

#include <errno.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/testsupport/temp_dir.h"

namespace {

using testsupport::FileExists;
using testsupport::ReadFile;
using testsupport::TempDir;
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
  int OpenRead(const std::string& path) {
    int fd = platform::OpenReadOnly(path.c_str());
    if (fd >= 0) m_open.push_back(fd);
    return fd;
  }
  int OpenWrite(const std::string& path) {
    int fd = platform::OpenForWriting(path.c_str());
    if (fd >= 0) m_open.push_back(fd);
    return fd;
  }
  TempDir m_dir;
  std::vector<int> m_open;
};

TEST_F(FileIoTest, BlockCallsUseBlockNumbersAndCountWholeBlocks) {
  std::string path = m_dir.file("blocks");
  int out = OpenWrite(path);
  ASSERT_GE(out, 0);
  std::string a(kBlock, 'a'), cc(2 * kBlock, 'c');
  EXPECT_EQ(platform::WriteBlocks(out, kBlock, 3, 2, cc.data()), 2);
  EXPECT_EQ(platform::WriteBlocks(out, kBlock, 0, 1, a.data()), 1);
  EXPECT_EQ(ReadFile(path), a + std::string(2 * kBlock, '\0') + cc);

  int in = OpenRead(path);
  ASSERT_GE(in, 0);
  std::vector<char> buffer(2 * kBlock);
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 3, 2, buffer.data()), 2);
  EXPECT_EQ(std::string(buffer.begin(), buffer.end()), cc);
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 0, 1, buffer.data()), 1);
  EXPECT_EQ(std::string(buffer.data(), kBlock), a);
}

TEST_F(FileIoTest, ShortBlockReadAtTheEndCountsOnlyWholeBlocks) {
  std::string bytes = Pattern(3 * kBlock + 100);
  WriteFile(m_dir.file("short"), bytes);
  int in = OpenRead(m_dir.file("short"));
  ASSERT_GE(in, 0);
  std::vector<char> buffer(4 * kBlock);
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 1, 4, buffer.data()), 2);
  EXPECT_EQ(std::string(buffer.data(), 2 * kBlock + 100), bytes.substr(kBlock));
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 3, 1, buffer.data()), 0);
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 9, 1, buffer.data()), 0);
}

TEST_F(FileIoTest, PlainReadContinuesWhereSetPositionPutsIt) {
  std::string bytes = Pattern(64 * kBlock + 1);  // one chunk and a byte, as the reader sees it
  WriteFile(m_dir.file("source"), bytes);
  int in = OpenRead(m_dir.file("source"));
  ASSERT_GE(in, 0);
  std::vector<char> buffer(64 * kBlock);
  ASSERT_EQ(platform::ReadBlocks(in, kBlock, 0, 64, buffer.data()), 64);
  ASSERT_EQ(platform::SetPosition(in, 64 * kBlock), 0);
  EXPECT_EQ(platform::Read(in, buffer.data(), buffer.size()), 1);
  EXPECT_EQ(buffer[0], bytes.back());
  EXPECT_EQ(platform::Read(in, buffer.data(), buffer.size()), 0);
}

TEST_F(FileIoTest, PlainWriteLandsWhereSetPositionPutsIt) {
  std::string path = m_dir.file("written");
  int out = OpenWrite(path);
  ASSERT_GE(out, 0);
  std::string chunk = Pattern(2 * kBlock);
  ASSERT_EQ(platform::WriteBlocks(out, kBlock, 0, 2, chunk.data()), 2);
  ASSERT_EQ(platform::SetPosition(out, 2 * kBlock), 0);
  EXPECT_EQ(platform::Write(out, "tail", 4), 4);
  EXPECT_EQ(ReadFile(path), chunk + "tail");
}

TEST_F(FileIoTest, InjectedReadFailureStartsAfterTheGivenBytesAndCanBeTurnedOff) {
  WriteFile(m_dir.file("source"), Pattern(8 * kBlock));
  int in = OpenRead(m_dir.file("source"));
  ASSERT_GE(in, 0);
  std::vector<char> buffer(8 * kBlock);

  platform::InjectReadFailureAfter(3 * kBlock);
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 0, 2, buffer.data()), 2);
  EXPECT_EQ(platform::Read(in, buffer.data(), kBlock), static_cast<ssize_t>(kBlock));
  errno = 0;
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 3, 1, buffer.data()), -1);
  EXPECT_EQ(errno, EIO);
  errno = 0;
  EXPECT_EQ(platform::Read(in, buffer.data(), 1), -1);
  EXPECT_EQ(errno, EIO);

  platform::InjectReadFailureAfter(-1);
  EXPECT_EQ(platform::ReadBlocks(in, kBlock, 3, 1, buffer.data()), 1);

  platform::InjectReadFailureAfter(0);
  EXPECT_EQ(platform::Read(in, buffer.data(), 1), -1);
  EXPECT_EQ(errno, EIO);
}

TEST_F(FileIoTest, OpenForWritingCreatesOrTruncates) {
  std::string path = m_dir.file("target");
  WriteFile(path, "old contents that must go");
  int out = OpenWrite(path);
  ASSERT_GE(out, 0);
  EXPECT_EQ(platform::Write(out, "new", 3), 3);
  EXPECT_EQ(ReadFile(path), "new");

  errno = 0;
  EXPECT_EQ(platform::OpenForWriting(m_dir.file("missing/dir/file").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(platform::OpenReadOnly(m_dir.file("absent").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
}

// Packages pass 4 GiB; on 32-bit targets that needs 64-bit file offsets all
// the way down. The file is sparse, so only the written blocks take space.
TEST_F(FileIoTest, OffsetsPastFourGibibytesAreKept) {
  const uint64_t offset = uint64_t{5} << 30;
  const std::string path = m_dir.file("sparse");
  const std::string chunk = Pattern(2 * kBlock);
  int out = OpenWrite(path);
  ASSERT_GE(out, 0);
  const int written = platform::WriteBlocks(out, kBlock, offset / kBlock, 2, chunk.data());
  if (written < 0 && errno == EFBIG) GTEST_SKIP() << "the file system holds no such file";
  ASSERT_EQ(written, 2);

  int in = OpenRead(path);
  ASSERT_GE(in, 0);
  int64_t size = -1;
  EXPECT_EQ(platform::FileSize(in, &size), 0);
  EXPECT_EQ(size, static_cast<int64_t>(offset + 2 * kBlock));
  std::vector<char> buffer(2 * kBlock);
  ASSERT_EQ(platform::ReadBlocks(in, kBlock, offset / kBlock, 2, buffer.data()), 2);
  EXPECT_EQ(std::string(buffer.data(), buffer.size()), chunk);
  ASSERT_EQ(platform::SetPosition(in, offset + kBlock), 0);
  ASSERT_EQ(platform::Read(in, buffer.data(), buffer.size()), static_cast<ssize_t>(kBlock));
  EXPECT_EQ(std::string(buffer.data(), kBlock), chunk.substr(kBlock));
}

TEST_F(FileIoTest, FileSizeOfAnOpenFile) {
  WriteFile(m_dir.file("sized"), Pattern(1500));
  int in = OpenRead(m_dir.file("sized"));
  ASSERT_GE(in, 0);
  int64_t size = -1;
  EXPECT_EQ(platform::FileSize(in, &size), 0);
  EXPECT_EQ(size, 1500);
  EXPECT_EQ(platform::FileSize(-1, &size), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(FileIoTest, IsReadableAndRemoveFile) {
  std::string path = m_dir.file("present");
  WriteFile(path, "x");
  EXPECT_TRUE(platform::IsReadable(path.c_str()));
  EXPECT_FALSE(platform::IsReadable(m_dir.file("absent").c_str()));

  EXPECT_EQ(platform::RemoveFile(path.c_str()), 0);
  EXPECT_FALSE(FileExists(path));
  EXPECT_FALSE(platform::IsReadable(path.c_str()));
  errno = 0;
  EXPECT_EQ(platform::RemoveFile(path.c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
