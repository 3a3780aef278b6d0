// The logger stand-in and the library's logging macros (mask gating, exact
// texts to a sink and to standard error; the mask's start value from
// HXLOG_MASK is checked by running hxlog_mask_probe), file offsets past
// 4 GiB.
#include <errno.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/file_io.h"
#include "platform/hxlog/hxlog.h"
#include "platform/log.h"
#include "tests/testsupport/capture.h"
#include "tests/testsupport/temp_dir.h"

namespace {

using testsupport::LogCapture;
using Texts = std::vector<std::string>;

void LoggingFunction(int* evaluations) {
  EV_LOG_ENTER();
  EV_LOG_INFO("File size : %lld Bytes", static_cast<long long>(++*evaluations));
  EV_LOG_ERROR("Failed to read contents ");
  EV_LOG_LEAVE();
}

// Level L is logged when bit L of the mask is set, and no level outside 0 to
// 31 ever is. The sink gets the whole formatted text, line end included; the
// macros log under the caller's own name at their levels, and a level whose
// bit is clear does not even evaluate its arguments.
TEST(HxLog, LogsWhatTheMaskLetsThroughUnderTheCallersName) {
  for (const auto& [mask, levels] : std::vector<std::pair<uint32_t, std::string>>{
           {0x00800000u, "23 "}, {0x7f7fffffu, "0 22 24 "}, {0xffffffffu, "0 22 23 24 31 "}}) {
    LogCapture capture(mask);
    for (int level : {-1, 0, 22, 23, 24, 31, 32}) HxLog(__LINE__, level, "F", "%d ", level);
    std::string logged;
    for (const std::string& line : capture.Lines()) logged += line.substr(line.rfind(':') + 1);
    EXPECT_EQ(logged, levels) << std::hex << mask;
  }
  int evaluations = 0;
  {
    LogCapture capture(0x80800000u);
    const std::string path(3000, 'p');  // longer than any stack buffer
    HxLog(1, 31, "PrintKALU_VersionParse_TPN", "KALU Error %d \n", 19);
    HxLog(2, 23, "F", "Input File : %s", path.c_str());
    LoggingFunction(&evaluations);
    EXPECT_EQ(capture.Lines(),
              (Texts{"31:PrintKALU_VersionParse_TPN:KALU Error 19 \n", "23:F:Input File : " + path,
                     "23:LoggingFunction:+", "23:LoggingFunction:File size : 1 Bytes",
                     "31:LoggingFunction:Failed to read contents ", "23:LoggingFunction:-"}));
  }
  LogCapture errorsOnly(0x80000000u);
  LoggingFunction(&evaluations);
  EXPECT_EQ(evaluations, 1);
  EXPECT_EQ(errorsOnly.Lines(), Texts{"31:LoggingFunction:Failed to read contents "});
}

// Packages pass 4 GiB; on 32-bit targets that needs 64-bit file offsets all
// the way down. The file is sparse, so only the written blocks take space.
TEST(FileIo, OffsetsPastFourGibibytesAreKept) {
  testsupport::TempDir dir;
  const int64_t offset = int64_t{5} << 30;
  const std::string data = "data past 4 GiB" + std::string(1009, 'x');  // two blocks
  int out = ev::platform::OpenForWriting(dir.file("sparse").c_str());
  const int written = ev::platform::WriteBlocks(out, 512, offset / 512, 2, data.data());
  ev::platform::Close(out);
  if (written < 0 && errno == EFBIG) GTEST_SKIP() << "the file system holds no such file";
  ASSERT_EQ(written, 2);
  int in = ev::platform::OpenReadOnly(dir.file("sparse").c_str());
  int64_t size = -1;
  EXPECT_EQ(ev::platform::FileSize(in, &size), 0);
  EXPECT_EQ(size, offset + 1024);
  std::string read(1024, '\0');
  EXPECT_EQ(ev::platform::ReadBlocks(in, 512, offset / 512, 2, read.data()), 2);
  EXPECT_EQ(read, data);
  ASSERT_EQ(ev::platform::SetPosition(in, offset + 512), 0);
  EXPECT_EQ(ev::platform::Read(in, read.data(), 1024), 512);
  EXPECT_EQ(read.substr(0, 512), data.substr(512));
  ev::platform::Close(in);
}

}  // namespace
