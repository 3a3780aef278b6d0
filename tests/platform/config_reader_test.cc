// The configuration-reader stand-in: the key/value syntax that Version.inf is
// written in, and the answers for absent keys and non-numeric values.
#include "platform/hxconfig/HXConfigReader.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/testsupport/temp_dir.h"

namespace {

// Keys and values are trimmed, carriage returns dropped, comments, sections
// and lines without "=" ignored, and the first of a key wins (case matters).
TEST(ConfigReader, ReadsTrimmedKeysAndValuesAndNothingElse) {
  testsupport::TempDir dir;
  testsupport::WriteFile(dir.file("v.inf"),
                         "Torvan Part Number=68412345AB\n  Version Number \t=\t 17.42.1  \n"
                         "Pre-Script = pre install.sh\r\nTwice converted=x\r\r\nEmpty=\r\n"
                         "Save Location=/fs/usb0/a=b ; not a comment # either\n"
                         "# Type=commented\n  ; VIN=commented\n[Type=section]\n[Header]\n"
                         "just some words\n\n \t \nFile1=first.bin\nfile1=lower.bin\n"
                         "File1=second.bin\nLast=no line end");
  CHXConfigReader reader(dir.file("v.inf"));
  const std::pair<const char*, const char*> expected[] = {
      {"Torvan Part Number", "68412345AB"}, {"Version Number", "17.42.1"},
      {"Pre-Script", "pre install.sh"}, {"Twice converted", "x"}, {"Empty", ""},
      {"Save Location", "/fs/usb0/a=b ; not a comment # either"}, {"Last", "no line end"},
      {"Last ", ""}, {"Type", ""}, {"VIN", ""}, {"# Type", ""}, {"[Type", ""},
      {"just some words", ""}, {"File1", "first.bin"}, {"file1", "lower.bin"}, {"FILE1", ""}};
  for (const auto& e : expected) EXPECT_EQ(reader.GetString(e.first), e.second) << e.first;
  EXPECT_EQ(CHXConfigReader(dir.file("absent.inf")).GetString("Type"), "");
}

TEST(ConfigReader, GetDoubleReadsPlainNumbersAndGivesZeroOtherwise) {
  testsupport::TempDir dir;
  testsupport::WriteFile(dir.file("v.inf"),
                         "fraction=1234.99\nnegative=-5\npadded= 12 \nexponent=1e3\n"
                         "trailing=12abc\nhex=0x10\ninf=inf\nnan=nan\noverflow=1e999\ncomma=1,5\n"
                         "points=1.2.3\nsign=-\nempty=\n");
  CHXConfigReader reader(dir.file("v.inf"));
  const std::pair<const char*, double> expected[] = {
      {"fraction", 1234.99}, {"negative", -5.0}, {"padded", 12.0}, {"exponent", 1000.0},
      {"trailing", 0}, {"hex", 0}, {"inf", 0}, {"nan", 0}, {"overflow", 0}, {"comma", 0},
      {"points", 0}, {"sign", 0}, {"empty", 0}, {"absent", 0}};
  for (const auto& e : expected) EXPECT_DOUBLE_EQ(reader.GetDouble(e.first), e.second) << e.first;
  EXPECT_EQ(CHXConfigReader(dir.file("absent.inf")).GetDouble("File1 Size"), 0.0);
}

}  // namespace
