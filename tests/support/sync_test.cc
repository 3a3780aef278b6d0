// Mutex and Cond: reports of a failed initialisation (with an exception) and
// of a failed destruction (without).
#include "support/sync.h"

#include <errno.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "support/sync_internal.h"
#include "tests/testsupport/capture.h"

namespace {

using testsupport::LogCapture;
using testsupport::LogLine;
using testsupport::OutputCapture;

class SyncFailureTest : public testing::Test {
 protected:
  ~SyncFailureTest() override {
    sync_internal::SetInitFunctions(nullptr, nullptr);
    sync_internal::SetDestroyFunctions(nullptr, nullptr);
  }
  // What() of the runtime error that `make` throws, or "" without one.
  template <typename Make>
  static std::string ErrorOf(Make make) {
    try {
      make();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }
  LogCapture m_log;
};

void ExpectOneErrorLine(const std::vector<LogLine>& lines, const std::string& function,
                        const std::string& text) {
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, 31);
  EXPECT_EQ(lines[0].function, function);
  EXPECT_EQ(lines[0].text, text);
}

TEST_F(SyncFailureTest, FailedMutexInitIsReportedAndThrown) {
  sync_internal::SetInitFunctions([](pthread_mutex_t*) { return EAGAIN; }, nullptr);
  OutputCapture out;
  EXPECT_EQ(ErrorOf([] { Mutex mutex; }), "Failed to create mutex");
  EXPECT_EQ(out.Finish(), "Failed to create mutex: 11\n");
  ExpectOneErrorLine(m_log.Lines(), "Mutex", "Failed to create mutex: 11 ");
}

TEST_F(SyncFailureTest, FailedCondInitIsReportedAndThrown) {
  sync_internal::SetInitFunctions(nullptr, [](pthread_cond_t*) { return ENOMEM; });
  OutputCapture out;
  EXPECT_EQ(ErrorOf([] { Mutex mutex; }), "");
  EXPECT_EQ(ErrorOf([] { Cond cond; }), "Failed to create cond");
  EXPECT_EQ(out.Finish(), "Failed to create cond: 12\n");
  ExpectOneErrorLine(m_log.Lines(), "Cond", "Failed to create cond: 12");
}

TEST_F(SyncFailureTest, FailedDestroyIsReportedWithoutThrowing) {
  sync_internal::SetDestroyFunctions(
      [](pthread_mutex_t* mutex) { pthread_mutex_destroy(mutex); return EBUSY; },
      [](pthread_cond_t* cond) { pthread_cond_destroy(cond); return EINVAL; });
  OutputCapture out;
  EXPECT_EQ(ErrorOf([] { Mutex mutex; }), "");
  EXPECT_EQ(ErrorOf([] { Cond cond; }), "");
  EXPECT_EQ(out.Finish(), "Failed to destroy mutex: 16\nFailed to destroy cond: 22\n");
  std::vector<LogLine> lines = m_log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  ExpectOneErrorLine({lines[0]}, "~Mutex", "Failed to destroy mutex: 16");
  ExpectOneErrorLine({lines[1]}, "~Cond", "Failed to destroy cond: 22");
}

}  // namespace
