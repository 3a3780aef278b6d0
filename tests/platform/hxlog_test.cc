// The logger stand-in and the library's logging macros: mask gating, exact
// texts to a sink, and the standard error line format. (The mask's start value
// from HXLOG_MASK is checked by running hxlog_mask_probe.)
#include "platform/hxlog/hxlog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/log.h"
#include "tests/testsupport/capture.h"

namespace {

using testsupport::LogCapture;
using testsupport::LogLine;

struct SinkLine {
  int sourceLine;
  int level;
  std::string function;
  std::string text;
};

// Installs a sink that also records the source line, which LogCapture drops.
class RawSink {
 public:
  explicit RawSink(uint32_t mask) : m_savedMask(g_LumLogParams.logMask.load()) {
    HxLogSetSink(&RawSink::Receive, this);
    g_LumLogParams.logMask = mask;
  }
  ~RawSink() {
    g_LumLogParams.logMask = m_savedMask;
    HxLogSetSink(nullptr, nullptr);
  }
  std::vector<SinkLine> lines;

 private:
  static void Receive(void* self, int sourceLine, int level, const char* function,
                      const char* text) {
    static_cast<RawSink*>(self)->lines.push_back({sourceLine, level, function, text});
  }
  uint32_t m_savedMask;
};

std::vector<int> LevelsOf(const std::vector<LogLine>& lines) {
  std::vector<int> levels;
  for (const LogLine& line : lines) levels.push_back(line.level);
  return levels;
}

TEST(HxLogMask, EmitsALevelOnlyWhenItsBitIsSet) {
  struct Case {
    uint32_t mask;
    std::vector<int> emitted;
  };
  const Case cases[] = {
      {0u, {}},
      {0x00800000u, {23}},
      {0x80000000u, {31}},
      {0x80800000u, {23, 31}},
      {0x7f7fffffu, {0, 22, 24}},
  };
  for (const Case& c : cases) {
    LogCapture capture(c.mask);
    for (int level : {0, 22, 23, 24, 31}) HxLog(__LINE__, level, "F", "level %d", level);
    EXPECT_EQ(LevelsOf(capture.Lines()), c.emitted) << std::hex << c.mask;
  }
}

TEST(HxLogMask, IgnoresLevelsOutsideTheMaskWord) {
  LogCapture capture(0xffffffffu);
  HxLog(__LINE__, 32, "F", "too high");
  HxLog(__LINE__, -1, "F", "negative");
  EXPECT_TRUE(capture.Lines().empty());
}

TEST(HxLogSink, ReceivesTheFormattedTextLineEndIncluded) {
  RawSink sink(0x80800000u);
  int line = __LINE__ + 1;
  HxLog(line, 31, "PrintKALU_VersionParse_TPN", "KALU Error %d \n", 19);
  HxLog(77, 23, "KALU_Parse_INF", "+");
  ASSERT_EQ(sink.lines.size(), 2u);
  EXPECT_EQ(sink.lines[0].sourceLine, line);
  EXPECT_EQ(sink.lines[0].level, 31);
  EXPECT_EQ(sink.lines[0].function, "PrintKALU_VersionParse_TPN");
  EXPECT_EQ(sink.lines[0].text, "KALU Error 19 \n");
  EXPECT_EQ(sink.lines[1].text, "+");
}

TEST(HxLogSink, ReceivesMessagesLongerThanTheStackBufferWhole) {
  LogCapture capture(0x80000000u);
  std::string path(3000, 'p');
  HxLog(__LINE__, 31, "F", "Input File : %s", path.c_str());
  std::vector<std::string> texts = capture.Texts("F");
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0], "Input File : " + path);
}

TEST(HxLogStderr, WritesOneLineWithLevelFunctionSourceLineAndText) {
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

// The macros log under the calling function's own name.
void LoggingFunction(int* evaluations) {
  EV_LOG_ENTER();
  EV_LOG_INFO("File size : %lld Bytes", static_cast<long long>(++*evaluations));
  EV_LOG_ERROR("Failed to read contents ");
  EV_LOG_LEAVE();
}

TEST(EvLogMacros, LogAtTheirLevelsUnderTheCallersName) {
  LogCapture capture(0x80800000u);
  int evaluations = 0;
  LoggingFunction(&evaluations);
  std::vector<LogLine> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(LevelsOf(lines), (std::vector<int>{23, 23, 31, 23}));
  EXPECT_EQ(capture.Texts("LoggingFunction"),
            (std::vector<std::string>{"+", "File size : 1 Bytes", "Failed to read contents ", "-"}));
}

TEST(EvLogMacros, DisabledLevelDoesNotEvaluateTheArguments) {
  LogCapture capture(0x80000000u);
  int evaluations = 0;
  LoggingFunction(&evaluations);
  EXPECT_EQ(evaluations, 0);
  EXPECT_EQ(capture.Texts(), (std::vector<std::string>{"Failed to read contents "}));
}

}  // namespace
