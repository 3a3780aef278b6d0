#include "manifest/system_date.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

#include "testing/seams.h"
#include "tests/testsupport/temp_dir.h"

namespace {

using testsupport::TempDir;

std::string Today() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[16];
  std::strftime(text, sizeof(text), "%Y-%m-%d\n", &local);
  return text;
}

// Points PATH at one directory for the lifetime of the object.
class ScopedPath {
 public:
  explicit ScopedPath(const std::string& dir) {
    const char* old = std::getenv("PATH");
    m_hadPath = old != nullptr;
    if (m_hadPath) m_oldPath = old;
    setenv("PATH", dir.c_str(), 1);
  }
  ~ScopedPath() {
    if (m_hadPath) {
      setenv("PATH", m_oldPath.c_str(), 1);
    } else {
      unsetenv("PATH");
    }
  }

 private:
  bool m_hadPath;
  std::string m_oldPath;
};

TEST(SystemDateTest, IsTodayAsYearMonthDayWithNewline) {
  std::string before = Today();
  std::string date = _GetSystemDate();
  std::string after = Today();
  EXPECT_EQ(11u, date.size());
  EXPECT_TRUE(std::regex_match(date, std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}\n"))) << date;
  EXPECT_TRUE(date == before || date == after) << date << " vs " << before;
}

TEST(SystemDateTest, IsEmptyWhenTheCommandCannotBeFoundOrStarted) {
  {
    TempDir emptyDir;
    ScopedPath path(emptyDir.path());
    EXPECT_EQ("", _GetSystemDate());
  }
  platform::InjectCommandStartFailure(true);
  std::string date = _GetSystemDate();
  platform::InjectCommandStartFailure(false);
  EXPECT_EQ("", date);
}

TEST(SystemDateTest, ReturnsLongAndSeveralLineOutputWholeAndInOrder) {
  TempDir bin;
  std::string longLine(300, 'x');
  testsupport::WriteFile(bin.file("date"),
                         "#!/bin/sh\n"
                         "printf '%s\\n' \"$*\"\n"
                         "printf '" + longLine + "\\n'\n"
                         "printf 'last line without newline'\n");
  ASSERT_EQ(0, chmod(bin.file("date").c_str(), 0755));
  ScopedPath path(bin.path());
  EXPECT_EQ("+%F\n" + longLine + "\nlast line without newline", _GetSystemDate());
}

}  // namespace
