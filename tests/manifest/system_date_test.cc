// The system date query: today's date as the date command prints it, its
// whole output whatever it is, and nothing when the command cannot run.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "extract_verify/manifest.h"
#include "platform/process.h"
#include "tests/testsupport/temp_dir.h"

namespace {

std::string Today() {
  const std::time_t now = std::time(nullptr);
  char text[16];
  std::strftime(text, sizeof(text), "%Y-%m-%d\n", std::localtime(&now));
  return text;
}

TEST(SystemDateTest, IsTheDateCommandsWholeOutputOrEmpty) {
  const std::string before = Today(), date = _GetSystemDate(), after = Today();
  EXPECT_TRUE(date == before || date == after) << date;
  ev::platform::InjectCommandStartFailure(true);
  EXPECT_EQ(_GetSystemDate(), "");
  ev::platform::InjectCommandStartFailure(false);

  const std::string savedPath = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
  testsupport::TempDir bin;
  setenv("PATH", bin.path().c_str(), 1);
  EXPECT_EQ(_GetSystemDate(), "");  // no command found
  const std::string longLine(300, 'x');
  testsupport::WriteFile(bin.file("date"), "#!/bin/sh\nprintf '%s\\n' \"$*\"\nprintf '" + longLine +
                                               "\\nlast line without newline'\n");
  chmod(bin.file("date").c_str(), 0755);
  EXPECT_EQ(_GetSystemDate(), "+%F\n" + longLine + "\nlast line without newline");
  setenv("PATH", savedPath.c_str(), 1);
}

}  // namespace
