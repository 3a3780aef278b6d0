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
using testsupport::LogLine;
using testsupport::OutputCapture;

// Open callbacks for archive_read_open: one that fails with a reason, one
// that fails without, and a reader that has nothing to give.
int FailWithReason(archive* a, void*) {
  archive_set_error(a, EIO, "source gone");
  return ARCHIVE_FATAL;
}
int FailSilently(archive*, void*) { return ARCHIVE_FATAL; }
la_ssize_t ReadNothing(archive*, void*, const void** block) {
  *block = nullptr;
  return 0;
}

void ExpectOneErrorLine(const LogCapture& log, const std::string& function,
                        const std::string& text) {
  std::vector<LogLine> lines = log.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, 31);
  EXPECT_EQ(lines[0].function, function);
  EXPECT_EQ(lines[0].text, text);
}

TEST(ArchiveObject, MissingReaderIsReportedWithoutThrowing) {
  LogCapture log;
  OutputCapture out;
  {
    ArchiveObject object(nullptr);
    EXPECT_EQ(static_cast<archive*>(object), nullptr);
  }
  EXPECT_EQ(out.Finish(), "Failed to create archive object\n");
  ExpectOneErrorLine(log, "ArchiveObject", "Failed to create archive object");
}

TEST(ArchiveFile, SuccessfulOpenIsSilent) {
  LogCapture log;
  OutputCapture out;
  {
    ArchiveObject object(archive_read_new());
    ASSERT_NE(static_cast<archive*>(object), nullptr);
    archive_read_support_filter_gzip(object);
    archive_read_support_format_tar(object);
    static const char kEmptyTar[1024] = {0};  // just the end-of-archive blocks
    ArchiveFile file(object, archive_read_open_memory(object, kEmptyTar, sizeof kEmptyTar));
  }
  EXPECT_EQ(out.Finish(), "");
  EXPECT_TRUE(log.Lines().empty());
}

TEST(ArchiveFile, FailedOpenReportsTheCodeAndLibarchivesReason) {
  LogCapture log;
  OutputCapture out;
  {
    ArchiveObject object(archive_read_new());
    archive_read_support_format_tar(object);
    int result = archive_read_open(object, nullptr, FailWithReason, ReadNothing, nullptr);
    ASSERT_EQ(result, ARCHIVE_FATAL);
    ArchiveFile file(object, result);
  }
  EXPECT_EQ(out.Finish(), "Failed to create archive file: (-30) (source gone)\n");
  ExpectOneErrorLine(log, "ArchiveFile", "Failed to create archive file: (-30) (source gone) ");
}

TEST(ArchiveFile, FailedOpenWithoutAReasonStillPrints) {
  OutputCapture out;
  {
    ArchiveObject object(archive_read_new());
    archive_read_support_format_tar(object);
    ArchiveFile file(object,
                     archive_read_open(object, nullptr, FailSilently, ReadNothing, nullptr));
  }
  EXPECT_EQ(out.Finish(), "Failed to create archive file: (-30) ((null))\n");
}

TEST(ArchiveFile, MissingReaderIsReportedAndNotClosed) {
  LogCapture log;
  OutputCapture out;
  { ArchiveFile file(nullptr, ARCHIVE_FATAL); }
  EXPECT_EQ(out.Finish(), "Failed to create archive file: (-30), a is NULL\n");
  ExpectOneErrorLine(log, "ArchiveFile", "Failed to create archive file: (-30), a is NULL ");
}

}  // namespace
