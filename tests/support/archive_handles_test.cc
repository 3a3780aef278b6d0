// ArchiveObject and ArchiveFile: the reports of a missing reader and of a
// failed open, on real libarchive readers.
#include "support/archive_handles.h"

#include <archive.h>
#include <errno.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/testsupport/capture.h"

namespace {

using testsupport::LogCapture;
using testsupport::OutputCapture;
using Texts = std::vector<std::string>;

int FailWithReason(archive* a, void*) {
  archive_set_error(a, EIO, "source gone");
  return ARCHIVE_FATAL;
}
int FailSilently(archive*, void*) { return ARCHIVE_FATAL; }
la_ssize_t ReadNothing(archive*, void*, const void** block) {
  *block = nullptr;
  return 0;
}

// Opens a tar reader with `open` as its open callback and hands the result to
// an ArchiveFile.
void OpenWith(archive_open_callback* open) {
  ArchiveObject object(archive_read_new());
  archive_read_support_format_tar(object);
  ArchiveFile file(object, archive_read_open(object, nullptr, open, ReadNothing, nullptr));
}

TEST(ArchiveHandles, FailuresArePrintedAndLoggedUnderTheOwnersName) {
  LogCapture log;
  OutputCapture out;
  { ArchiveObject object(nullptr); }
  { ArchiveFile file(nullptr, ARCHIVE_FATAL); }
  OpenWith(FailWithReason);
  OpenWith(FailSilently);
  EXPECT_EQ(out.Finish(),
            "Failed to create archive object\n"
            "Failed to create archive file: (-30), a is NULL\n"
            "Failed to create archive file: (-30) (source gone)\n"
            "Failed to create archive file: (-30) ((null))\n");
  Texts logged = log.Described();
  logged.resize(3);  // the silent failure logs too, with a text of its own
  EXPECT_EQ(logged,
            (Texts{"31:ArchiveObject:Failed to create archive object",
                   "31:ArchiveFile:Failed to create archive file: (-30), a is NULL ",
                   "31:ArchiveFile:Failed to create archive file: (-30) (source gone) "}));
}

TEST(ArchiveHandles, SuccessfulOpenIsSilent) {
  LogCapture log;
  OutputCapture out;
  {
    ArchiveObject object(archive_read_new());
    archive_read_support_filter_gzip(object);
    archive_read_support_format_tar(object);
    static const char kEmptyTar[1024] = {0};  // just the end-of-archive blocks
    ArchiveFile file(object, archive_read_open_memory(object, kEmptyTar, sizeof kEmptyTar));
  }
  EXPECT_EQ(out.Finish(), "");
  EXPECT_TRUE(log.Lines().empty());
}

}  // namespace
