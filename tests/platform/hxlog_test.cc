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
using testsupport::LogLine;
using Texts = std::vector<std::string>;

TEST(HxLog, EmitsALevelOnlyWhenItsBitIsSet) {
  const std::pair<uint32_t, std::vector<int>> cases[] = {
      {0u, {}}, {0x00800000u, {23}}, {0x80000000u, {31}},
      {0x80800000u, {23, 31}}, {0x7f7fffffu, {0, 22, 24}}, {0xffffffffu, {0, 22, 23, 24, 31}}};
  for (const auto& c : cases) {
    LogCapture capture(c.first);
    for (int level : {-1, 0, 22, 23, 24, 31, 32}) HxLog(__LINE__, level, "F", "level %d", level);
    std::vector<int> levels;
    for (const LogLine& line : capture.Lines()) levels.push_back(line.level);
    EXPECT_EQ(levels, c.second) << std::hex << c.first;
  }
}

TEST(HxLog, SinkGetsTheWholeFormattedTextLineEndIncluded) {
  LogCapture capture(0x80800000u);
  const std::string path(3000, 'p');  // longer than any stack buffer
  HxLog(1, 31, "PrintKALU_VersionParse_TPN", "KALU Error %d \n", 19);
  HxLog(2, 23, "F", "Input File : %s", path.c_str());
  std::vector<LogLine> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].function, "PrintKALU_VersionParse_TPN");
  EXPECT_EQ(lines[0].text, "KALU Error 19 \n");
  EXPECT_EQ(lines[1].text, "Input File : " + path);
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

void LoggingFunction(int* evaluations) {
  EV_LOG_ENTER();
  EV_LOG_INFO("File size : %lld Bytes", static_cast<long long>(++*evaluations));
  EV_LOG_ERROR("Failed to read contents ");
  EV_LOG_LEAVE();
}

// The macros log under the calling function's own name, and a disabled
// level does not even evaluate its arguments.
TEST(EvLogMacros, LogAtTheirLevelsUnderTheCallersName) {
  int evaluations = 0;
  {
    LogCapture capture(0x80800000u);
    LoggingFunction(&evaluations);
    std::vector<int> levels;
    for (const LogLine& line : capture.Lines()) levels.push_back(line.level);
    EXPECT_EQ(levels, (std::vector<int>{23, 23, 31, 23}));
    EXPECT_EQ(capture.Texts("LoggingFunction"),
              (Texts{"+", "File size : 1 Bytes", "Failed to read contents ", "-"}));
  }
  LogCapture errorsOnly(0x80000000u);
  LoggingFunction(&evaluations);
  EXPECT_EQ(evaluations, 1);
  EXPECT_EQ(errorsOnly.Texts(), Texts{"Failed to read contents "});
}

}  // namespace
