// Capture of what the library prints and logs during a block of a test.
//
// OutputCapture redirects standard output (printf included) for its lifetime;
// LogCapture installs a logger sink with the given mask and restores the old
// mask at its end. Use one of each per test at a time; the sink may be called
// from any thread.
#ifndef TESTS_TESTSUPPORT_CAPTURE_H_
#define TESTS_TESTSUPPORT_CAPTURE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "platform/hxlog/hxlog.h"

namespace testsupport {

class OutputCapture {
 public:
  OutputCapture() {
    std::fflush(stdout);
    testing::internal::CaptureStdout();
  }
  ~OutputCapture() {
    if (m_active) Finish();
  }
  // Everything printed since construction; ends the capture.
  std::string Finish() {
    std::fflush(stdout);
    m_active = false;
    return testing::internal::GetCapturedStdout();
  }

 private:
  bool m_active = true;
};

class LogCapture {
 public:
  explicit LogCapture(uint32_t mask = 0x80800000u) : m_savedMask(g_LumLogParams.logMask.load()) {
    HxLogSetSink(&LogCapture::Sink, this);
    g_LumLogParams.logMask = mask;
  }
  ~LogCapture() {
    g_LumLogParams.logMask = m_savedMask;
    HxLogSetSink(nullptr, nullptr);
  }
  // Every line as "level:function:text", in order; with `function`, its own.
  std::vector<std::string> Lines(const std::string& function = "") const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> lines;
    for (const std::string& line : m_lines) {
      const bool own = line.find(":" + function + ":") == line.find(':');
      if (function.empty() || own) lines.push_back(line);
    }
    return lines;
  }

 private:
  static void Sink(void* self, int, int level, const char* function, const char* text) {
    auto* capture = static_cast<LogCapture*>(self);
    std::lock_guard<std::mutex> lock(capture->m_mutex);
    const std::string name = function != nullptr ? function : "";
    capture->m_lines.push_back(std::to_string(level) + ":" + name + ":" + text);
  }
  uint32_t m_savedMask;
  mutable std::mutex m_mutex;
  std::vector<std::string> m_lines;
};

}  // namespace testsupport

#endif  // TESTS_TESTSUPPORT_CAPTURE_H_
