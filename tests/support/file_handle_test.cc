// FileHandle and the libarchive owners: the reports of a failed open, and
// which descriptor gets closed when.
#include "support/file_handle.h"

#include <archive.h>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/archive_handles.h"
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
    EXPECT_EQ(log.Lines(),
              mask == 0 ? Texts{} : Texts{"31:FileHandle:Error opening file. FD: -1 / Error no: 2 "});
  }
}

TEST(FileHandle, ClosesItsOwnDescriptorOnceAndNeverALaterOneOfTheSameNumber) {
  int fd = OpenSomething();
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
}

int FailWithReason(archive* a, void*) {
  archive_set_error(a, EIO, "source gone");
  return ARCHIVE_FATAL;
}
la_ssize_t ReadNothing(archive*, void*, const void**) { return 0; }

// A missing reader and a failed open are reported under the owner's name.
TEST(ArchiveHandles, FailuresArePrintedAndLoggedUnderTheOwnersName) {
  LogCapture log;
  OutputCapture out;
  { ArchiveObject object(nullptr); }
  { ArchiveFile file(nullptr, ARCHIVE_FATAL); }
  {
    ArchiveObject object(archive_read_new());
    archive_read_support_format_tar(object);
    ArchiveFile file(object, archive_read_open(object, nullptr, FailWithReason, ReadNothing, nullptr));
  }
  EXPECT_EQ(out.Finish(),
            "Failed to create archive object\n"
            "Failed to create archive file: (-30), a is NULL\n"
            "Failed to create archive file: (-30) (source gone)\n");
  EXPECT_EQ(log.Lines(),
            (Texts{"31:ArchiveObject:Failed to create archive object",
                   "31:ArchiveFile:Failed to create archive file: (-30), a is NULL ",
                   "31:ArchiveFile:Failed to create archive file: (-30) (source gone) "}));
}

}  // namespace
