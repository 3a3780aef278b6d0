// The configuration-reader stand-in: the key/value syntax that Version.inf is
// written in, and the answers for absent keys and non-numeric values.
#include "platform/hxconfig/HXConfigReader.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/testsupport/temp_dir.h"

namespace {

using testsupport::TempDir;
using testsupport::WriteFile;

class ConfigReaderTest : public testing::Test {
 protected:
  // A reader over a file holding exactly `contents`.
  CHXConfigReader& Read(const std::string& contents) {
    WriteFile(m_dir.file("Version.inf"), contents);
    m_reader.reset(new CHXConfigReader(m_dir.file("Version.inf")));
    return *m_reader;
  }
  TempDir m_dir;
  std::unique_ptr<CHXConfigReader> m_reader;
};

TEST_F(ConfigReaderTest, ReadsKeysWithBlanksAndHyphensAndTrimsAroundThem) {
  CHXConfigReader& reader = Read(
      "Torvan Part Number=68412345AB\n"
      "  Version Number \t=\t 17.42.1  \n"
      "Pre-Script = pre install.sh\n"
      "File1 Hash Value=\t0123abcd\t\n"
      "Last=no line end");
  EXPECT_EQ(reader.GetString("Torvan Part Number"), "68412345AB");
  EXPECT_EQ(reader.GetString("Version Number"), "17.42.1");
  EXPECT_EQ(reader.GetString("Pre-Script"), "pre install.sh");  // inner blank kept
  EXPECT_EQ(reader.GetString("File1 Hash Value"), "0123abcd");
  EXPECT_EQ(reader.GetString("Last"), "no line end");
}

TEST_F(ConfigReaderTest, ValuesNeverKeepACarriageReturn) {
  CHXConfigReader& reader = Read(
      "File1=boot.img\r\n"
      "File1 Hash Value=e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855\r\n"
      "File1 Size = 4096 \r\n"
      "Twice converted=x\r\r\n"
      "Empty=\r\n");
  EXPECT_EQ(reader.GetString("File1"), "boot.img");
  EXPECT_EQ(reader.GetString("File1 Hash Value"),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(reader.GetDouble("File1 Size"), 4096.0);
  EXPECT_EQ(reader.GetString("Twice converted"), "x");
  EXPECT_EQ(reader.GetString("Empty"), "");
}

TEST_F(ConfigReaderTest, IgnoresCommentsSectionsAndLinesWithoutEquals) {
  CHXConfigReader& reader = Read(
      "# Type=commented\n"
      "  ; VIN=commented\n"
      "[Type=section]\n"
      "[Header]\n"
      "just some words\n"
      "\n"
      " \t \n"
      "Type=Full\n");
  EXPECT_EQ(reader.GetString("Type"), "Full");
  EXPECT_EQ(reader.GetString("VIN"), "");
  EXPECT_EQ(reader.GetString("# Type"), "");
  EXPECT_EQ(reader.GetString("[Type"), "");
  EXPECT_EQ(reader.GetString("just some words"), "");
}

TEST_F(ConfigReaderTest, SplitsAtTheFirstEqualsAndKeepsTheRestOfTheLine) {
  CHXConfigReader& reader = Read("Save Location=/fs/usb0/a=b ; not a comment # either\n");
  EXPECT_EQ(reader.GetString("Save Location"), "/fs/usb0/a=b ; not a comment # either");
}

TEST_F(ConfigReaderTest, KeysAreCaseSensitiveAndTheFirstOccurrenceWins) {
  CHXConfigReader& reader = Read(
      "File1=first.bin\n"
      "file1=lower.bin\n"
      "File1=second.bin\n");
  EXPECT_EQ(reader.GetString("File1"), "first.bin");
  EXPECT_EQ(reader.GetString("file1"), "lower.bin");
  EXPECT_EQ(reader.GetString("FILE1"), "");
}

TEST_F(ConfigReaderTest, AbsentKeysGiveEmptyTextAndZero) {
  CHXConfigReader& reader = Read("File1=a.bin\n");
  EXPECT_EQ(reader.GetString("File2"), "");
  EXPECT_EQ(reader.GetDouble("File2 Size"), 0.0);
  EXPECT_EQ(reader.GetString("File1 "), "");  // keys match whole, blanks included
}

TEST_F(ConfigReaderTest, GetDoubleAcceptsOnlyAPlainDecimalNumber) {
  CHXConfigReader& reader = Read(
      "fraction=1234.99\n"
      "negative=-5\n"
      "below one=0.9\n"
      "padded= 12 \n"
      "exponent=1e3\n"
      "trailing text=12abc\n"
      "hexadecimal=0x10\n"
      "infinity=inf\n"
      "not a number=nan\n"
      "overflow=1e999\n"
      "comma=1,5\n"
      "two points=1.2.3\n"
      "sign only=-\n"
      "empty=\n");
  EXPECT_DOUBLE_EQ(reader.GetDouble("fraction"), 1234.99);
  EXPECT_EQ(reader.GetDouble("negative"), -5.0);
  EXPECT_DOUBLE_EQ(reader.GetDouble("below one"), 0.9);
  EXPECT_EQ(reader.GetDouble("padded"), 12.0);
  EXPECT_EQ(reader.GetDouble("exponent"), 1000.0);
  for (const char* key : {"trailing text", "hexadecimal", "infinity", "not a number", "overflow",
                          "comma", "two points", "sign only", "empty"}) {
    EXPECT_EQ(reader.GetDouble(key), 0.0) << key;
  }
}

TEST_F(ConfigReaderTest, EmptyAndMissingFilesHaveNoKeys) {
  CHXConfigReader& empty = Read("");
  EXPECT_EQ(empty.GetString("Type"), "");
  EXPECT_EQ(empty.GetDouble("File1 Size"), 0.0);

  CHXConfigReader missing(m_dir.file("absent.inf"));
  EXPECT_EQ(missing.GetString("Type"), "");
  EXPECT_EQ(missing.GetDouble("File1 Size"), 0.0);
}

}  // namespace
