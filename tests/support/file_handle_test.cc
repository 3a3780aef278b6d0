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
using testsupport::OutputCapture;
using Texts = std::vector<std::string>;

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1 || errno != EBADF; }
int OpenSomething() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

TEST(FileHandle, NegativeDescriptorIsPrintedWhateverTheMaskAndLogged) {
  for (uint32_t mask : {0x80800000u, 0u}) {
    LogCapture log(mask);
    OutputCapture out;
    errno = ENOENT;
    { FileHandle handle(-1); }
    EXPECT_EQ(out.Finish(), "Error opening file. FD: -1 / Error no: 2 \n");
    EXPECT_EQ(log.Described(),
              mask == 0 ? Texts{} : Texts{"31:FileHandle:Error opening file. FD: -1 / Error no: 2 "});
  }
}

TEST(FileHandle, ClosesItsOwnDescriptorOnceAndNeverALaterOneOfTheSameNumber) {
  LogCapture log;
  OutputCapture out;
  int fd = OpenSomething();
  ASSERT_GE(fd, 0);
  { FileHandle handle(fd); }
  EXPECT_FALSE(IsOpen(fd));

  fd = OpenSomething();
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
  EXPECT_EQ(out.Finish(), "");
  EXPECT_TRUE(log.Lines().empty());
}

}  // namespace
