// The configuration-reader stand-in: the key/value syntax that Version.inf is
// written in, and the answers for absent keys and non-numeric values.
#include "platform/hxconfig/HXConfigReader.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/testsupport/temp_dir.h"

namespace {

using testsupport::TempDir;
using testsupport::WriteFile;
using Expected = std::vector<std::pair<const char*, const char*>>;

void ExpectStrings(const std::string& contents, const Expected& expected) {
  TempDir dir;
  WriteFile(dir.file("Version.inf"), contents);
  CHXConfigReader reader(dir.file("Version.inf"));
  for (const auto& e : expected) EXPECT_EQ(reader.GetString(e.first), e.second) << e.first;
}

TEST(ConfigReader, KeysAndValuesAreTrimmedAndCarriageReturnsDropped) {
  ExpectStrings(
      "Torvan Part Number=68412345AB\n"
      "  Version Number \t=\t 17.42.1  \n"
      "Pre-Script = pre install.sh\r\n"
      "Twice converted=x\r\r\n"
      "Empty=\r\n"
      "Save Location=/fs/usb0/a=b ; not a comment # either\n"
      "Last=no line end",
      {{"Torvan Part Number", "68412345AB"}, {"Version Number", "17.42.1"},
       {"Pre-Script", "pre install.sh"}, {"Twice converted", "x"}, {"Empty", ""},
       {"Save Location", "/fs/usb0/a=b ; not a comment # either"}, {"Last", "no line end"},
       {"Last ", ""}});
}

TEST(ConfigReader, CommentsSectionsAndLinesWithoutEqualsAreIgnoredAndTheFirstKeyWins) {
  ExpectStrings(
      "# Type=commented\n  ; VIN=commented\n[Type=section]\n[Header]\njust some words\n\n \t \n"
      "File1=first.bin\nfile1=lower.bin\nFile1=second.bin\n",
      {{"Type", ""}, {"VIN", ""}, {"# Type", ""}, {"[Type", ""}, {"just some words", ""},
       {"File1", "first.bin"}, {"file1", "lower.bin"}, {"FILE1", ""}});
}

TEST(ConfigReader, GetDoubleReadsPlainNumbersAndGivesZeroOtherwise) {
  TempDir dir;
  WriteFile(dir.file("v.inf"),
            "fraction=1234.99\nnegative=-5\npadded= 12 \nexponent=1e3\ntrailing=12abc\n"
            "hex=0x10\ninf=inf\nnan=nan\noverflow=1e999\ncomma=1,5\npoints=1.2.3\nsign=-\n"
            "empty=\n");
  CHXConfigReader reader(dir.file("v.inf"));
  EXPECT_DOUBLE_EQ(reader.GetDouble("fraction"), 1234.99);
  EXPECT_EQ(reader.GetDouble("negative"), -5.0);
  EXPECT_EQ(reader.GetDouble("padded"), 12.0);
  EXPECT_EQ(reader.GetDouble("exponent"), 1000.0);
  for (const char* key : {"trailing", "hex", "inf", "nan", "overflow", "comma", "points", "sign",
                          "empty", "absent"}) {
    EXPECT_EQ(reader.GetDouble(key), 0.0) << key;
  }
  CHXConfigReader missing(dir.file("absent.inf"));
  EXPECT_EQ(missing.GetString("Type"), "");
  EXPECT_EQ(missing.GetDouble("File1 Size"), 0.0);
}

}  // namespace
