#include "tests/testsupport/capture.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "platform/hxlog/hxlog.h"

namespace testsupport {

OutputCapture::OutputCapture() : m_active(true) {
  std::fflush(stdout);
  testing::internal::CaptureStdout();
}

OutputCapture::~OutputCapture() {
  if (m_active) Finish();
}

std::string OutputCapture::Finish() {
  std::fflush(stdout);
  m_active = false;
  return testing::internal::GetCapturedStdout();
}

LogCapture::LogCapture(uint32_t mask) : m_savedMask(g_LumLogParams.logMask.load()) {
  HxLogSetSink(&LogCapture::Sink, this);
  g_LumLogParams.logMask = mask;
}

LogCapture::~LogCapture() {
  g_LumLogParams.logMask = m_savedMask;
  HxLogSetSink(nullptr, nullptr);
}

void LogCapture::Sink(void* self, int, int level, const char* function, const char* text) {
  auto* capture = static_cast<LogCapture*>(self);
  std::lock_guard<std::mutex> lock(capture->m_mutex);
  capture->m_lines.push_back({level, function != nullptr ? function : "", text});
}

std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_lines;
}

std::vector<std::string> LogCapture::Texts(const std::string& function) const {
  std::vector<std::string> texts;
  for (const LogLine& line : Lines()) {
    if (function.empty() || line.function == function) texts.push_back(line.text);
  }
  return texts;
}

std::vector<std::string> LogCapture::Levelled(const std::string& function) const {
  std::vector<std::string> texts;
  for (const LogLine& line : Lines()) {
    if (function.empty() || line.function == function) {
      texts.push_back(std::to_string(line.level) + ":" + line.text);
    }
  }
  return texts;
}

std::vector<std::string> LogCapture::Described() const {
  std::vector<std::string> texts;
  for (const LogLine& line : Lines()) {
    texts.push_back(std::to_string(line.level) + ":" + line.function + ":" + line.text);
  }
  return texts;
}

}  // namespace testsupport
