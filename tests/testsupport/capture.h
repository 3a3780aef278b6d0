// Capture of what the library prints and logs during a block of a test.
//
// OutputCapture redirects standard output (printf included) for its lifetime;
// LogCapture installs a logger sink with the given mask and restores the old
// mask and standard error at its end. Use one of each per test at a time.
#ifndef TESTS_TESTSUPPORT_CAPTURE_H_
#define TESTS_TESTSUPPORT_CAPTURE_H_

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace testsupport {

class OutputCapture {
 public:
  OutputCapture();
  ~OutputCapture();
  // Everything printed since construction; ends the capture.
  std::string Finish();

 private:
  bool m_active;
};

struct LogLine {
  int level;
  std::string function;
  std::string text;
};

class LogCapture {
 public:
  explicit LogCapture(uint32_t mask = 0x80800000u);
  ~LogCapture();
  std::vector<LogLine> Lines() const;
  // Texts logged by `function` (any function when empty), in order.
  std::vector<std::string> Texts(const std::string& function = "") const;
  // The same as "level:text", for exact comparison in one go.
  std::vector<std::string> Levelled(const std::string& function = "") const;
  // Every line as "level:function:text".
  std::vector<std::string> Described() const;

 private:
  static void Sink(void* self, int line, int level, const char* function, const char* text);
  uint32_t m_savedMask;
  mutable std::mutex m_mutex;
  std::vector<LogLine> m_lines;
};

}  // namespace testsupport

#endif  // TESTS_TESTSUPPORT_CAPTURE_H_
