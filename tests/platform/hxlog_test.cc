// The logger stand-in and the library's logging macros: mask gating, exact
// texts to a sink and to standard error. (The mask's start value from
// HXLOG_MASK is checked by running hxlog_mask_probe.)
#include "platform/hxlog/hxlog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/log.h"
#include "tests/testsupport/capture.h"

namespace {

using testsupport::LogCapture;
using Texts = std::vector<std::string>;

void LoggingFunction(int* evaluations) {
  EV_LOG_ENTER();
  EV_LOG_INFO("File size : %lld Bytes", static_cast<long long>(++*evaluations));
  EV_LOG_ERROR("Failed to read contents ");
  EV_LOG_LEAVE();
}

// A level is logged when its bit is set; the sink gets the whole formatted
// text, line end included; the macros log under the caller's own name and a
// disabled level does not even evaluate its arguments.
TEST(HxLog, LogsWhatTheMaskLetsThroughUnderTheCallersName) {
  const std::pair<uint32_t, std::string> masks[] = {
      {0u, ""}, {0x00800000u, "23 "}, {0x80000000u, "31 "}, {0x7f7fffffu, "0 22 24 "},
      {0xffffffffu, "0 22 23 24 31 "}};
  for (const auto& m : masks) {
    LogCapture capture(m.first);
    for (int level : {-1, 0, 22, 23, 24, 31, 32}) HxLog(__LINE__, level, "F", "%d ", level);
    std::string levels;
    for (const std::string& line : capture.Lines()) levels += line.substr(line.rfind(':') + 1);
    EXPECT_EQ(levels, m.second) << std::hex << m.first;
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

TEST(HxLog, StandardErrorGetsOneLineWithLevelFunctionSourceLineAndText) {
  uint32_t savedMask = g_LumLogParams.logMask.load();
  g_LumLogParams.logMask = 0x80800000u;
  testing::internal::CaptureStderr();
  HxLog(42, 31, "copyWithHash", "Error: open64() failed. Error no: %d ", 2);
  HxLog(43, 23, "FileHandle", "KALU Error %d \n", 19);  // its own line end is not doubled
  HxLog(44, 23, nullptr, "no function");
  std::string err = testing::internal::GetCapturedStderr();
  g_LumLogParams.logMask = savedMask;
  EXPECT_EQ(err,
            "[HxLog 31] copyWithHash:42 Error: open64() failed. Error no: 2 \n"
            "[HxLog 23] FileHandle:43 KALU Error 19 \n"
            "[HxLog 23] ?:44 no function\n");
}

}  // namespace
