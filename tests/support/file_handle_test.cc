// FileHandle: the report of a failed open, and which descriptor gets closed
// when.
#include "support/file_handle.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/testsupport/capture.h"

namespace {

using testsupport::LogCapture;
using testsupport::LogLine;
using testsupport::OutputCapture;

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1 || errno != EBADF; }

int OpenSomething() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

TEST(FileHandle, NegativeDescriptorIsReportedWithTheCurrentErrno) {
  LogCapture log;
  OutputCapture out;
  errno = ENOENT;
  {
    FileHandle handle(-1);
    EXPECT_EQ(static_cast<int>(handle), -1);
  }
  EXPECT_EQ(out.Finish(), "Error opening file. FD: -1 / Error no: 2 \n");
  std::vector<LogLine> lines = log.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, 31);
  EXPECT_EQ(lines[0].function, "FileHandle");
  EXPECT_EQ(lines[0].text, "Error opening file. FD: -1 / Error no: 2 ");
}

TEST(FileHandle, ReportIsPrintedWhateverTheLogMask) {
  LogCapture log(0);
  OutputCapture out;
  errno = EACCES;
  FileHandle handle(-1);
  EXPECT_EQ(out.Finish(), "Error opening file. FD: -1 / Error no: 13 \n");
  EXPECT_TRUE(log.Lines().empty());
}

TEST(FileHandle, ClosesItsDescriptorAtTheEndOfItsScope) {
  int fd = OpenSomething();
  ASSERT_GE(fd, 0);
  LogCapture log;
  OutputCapture out;
  {
    FileHandle handle(fd);
    EXPECT_EQ(static_cast<int>(handle), fd);
    EXPECT_TRUE(IsOpen(fd));
  }
  EXPECT_FALSE(IsOpen(fd));
  EXPECT_EQ(out.Finish(), "");
  EXPECT_TRUE(log.Lines().empty());
}

TEST(FileHandle, CloseNowLeavesALaterDescriptorWithTheSameNumberAlone) {
  int fd = OpenSomething();
  ASSERT_GE(fd, 0);
  int reused = -1;
  {
    FileHandle handle(fd);
    EXPECT_EQ(handle.closeNow(), 0);
    EXPECT_FALSE(IsOpen(fd));
    EXPECT_EQ(static_cast<int>(handle), -1);
    EXPECT_EQ(handle.closeNow(), -1);
    reused = OpenSomething();  // normally gets the number just freed
  }
  EXPECT_TRUE(IsOpen(reused));
  close(reused);
}

}  // namespace
