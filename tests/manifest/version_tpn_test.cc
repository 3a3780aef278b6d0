#include "manifest/version_tpn.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/testsupport/capture.h"
#include "tests/testsupport/temp_dir.h"

namespace {

using testsupport::LogCapture;
using testsupport::OutputCapture;
using testsupport::TempDir;
using testsupport::WriteFile;

const std::string kHashA(64, 'a');
const std::string kHashB(64, 'b');

class VersionTpnTest : public testing::Test {
 protected:
  // Writes `text` as a manifest in the test's directory and parses it.
  _KALU_Error Parse(const std::string& text, const std::string& name = "Version.inf") {
    std::string path = dir.file(name);
    WriteFile(path, text);
    return manifest.KALU_Parse_INF(path.c_str());
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& record : manifest.m_vecFileInfo) names.push_back(record.strFileName);
    return names;
  }

  TempDir dir;
  EV_Version_TPN manifest;
};

TEST_F(VersionTpnTest, ReadsHeaderAndFilesFromCrlfManifestWithoutLeakingLineEnds) {
  std::string text =
      "Torvan Part Number=PN-0042\r\n"
      "Version Number=1.2.3\r\n"
      "Type=Full\r\n"
      "VIN=WVW123\r\n"
      "ESN=ESN-9\r\n"
      "Start Date=2020-01-01\r\n"
      "End Date=2030-12-31\r\n"
      "Pre-Script=pre.sh\r\n"
      "Save Location=/fs/usb0\r\n"
      "File1=boot.img\r\n"
      "File1 Hash Value=" + kHashA + "\r\n"
      "File1 Size=1024\r\n"
      "File2=app/data-1.bin\r\n"
      "File2 Hash Value=" + kHashB + "\r\n"
      "File2 Size=2048\r\n";
  ASSERT_EQ(KALU_NO_ERR, Parse(text));

  EXPECT_EQ("PN-0042", manifest.m_strPartNumber);
  EXPECT_EQ("1.2.3", manifest.m_strVersionNumber);
  EXPECT_EQ("Full", manifest.m_strType);
  EXPECT_EQ("WVW123", manifest.m_strVIN);
  EXPECT_EQ("ESN-9", manifest.m_strESN);
  EXPECT_EQ("2020-01-01", manifest.m_strStartDate);
  EXPECT_EQ("2030-12-31", manifest.m_strEndDate);
  EXPECT_EQ("pre.sh", manifest.m_strPreScript);
  EXPECT_EQ("", manifest.m_strPostScript);
  EXPECT_EQ("/fs/usb0", manifest.m_strSaveLocation);
  EXPECT_TRUE(manifest.m_bVersionInfFound);
  EXPECT_TRUE(manifest.m_bHasPreScript);
  EXPECT_FALSE(manifest.m_bHasPostScript);

  ASSERT_EQ(2, manifest.m_nFileCount);
  ASSERT_EQ(2u, manifest.m_vecFileInfo.size());
  EXPECT_EQ("boot.img", manifest.m_vecFileInfo[0].strFileName);
  EXPECT_EQ(kHashA, manifest.m_vecFileInfo[0].strHashValue);
  EXPECT_EQ(1024u, manifest.m_vecFileInfo[0].ullFileSize);
  EXPECT_EQ("app/data-1.bin", manifest.m_vecFileInfo[1].strFileName);
  EXPECT_EQ(kHashB, manifest.m_vecFileInfo[1].strHashValue);
  EXPECT_EQ(2048u, manifest.m_vecFileInfo[1].ullFileSize);
  EXPECT_EQ((std::map<std::string, std::string>{{"app/data-1.bin", kHashB}, {"boot.img", kHashA}}),
            manifest.m_mapFileHash);
  EXPECT_EQ(0, manifest.m_nImgFileIndex);
}

TEST_F(VersionTpnTest, EmptyManifestIsValidAndHasNoFiles) {
  EXPECT_EQ(KALU_NO_ERR, Parse(""));
  EXPECT_TRUE(manifest.m_bVersionInfFound);
  EXPECT_EQ(0, manifest.m_nFileCount);
  EXPECT_TRUE(manifest.m_vecFileInfo.empty());
  EXPECT_TRUE(manifest.m_mapFileHash.empty());
  EXPECT_FALSE(manifest.m_bHasPreScript);
}

// A nameless entry ends the list only when its hash is empty and its size
// truncates to 0; anything else makes the manifest invalid.
TEST_F(VersionTpnTest, NamelessEntryEndsListOnlyWhenHashAndTruncatedSizeAreEmpty) {
  const std::string twoFiles = "File1=a\nFile1 Hash Value=h1\nFile2=b\nFile2 Hash Value=h2\n";
  struct Case {
    std::string tail;
    _KALU_Error expected;
  };
  const Case cases[] = {
      {"File3 Size=4096\n", VER_ERR04},
      {"File3 Size=1\n", VER_ERR04},
      {"File3 Hash Value=" + kHashA + "\n", VER_ERR04},
      {"File3 Size=0.9\n", KALU_NO_ERR},
      {"File3 Size=-7\n", KALU_NO_ERR},
      {"File3 Size=many\n", KALU_NO_ERR},
      {"", KALU_NO_ERR},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.tail);
    EV_Version_TPN fresh;
    std::string path = dir.file("Version.inf");
    WriteFile(path, twoFiles + c.tail);
    EXPECT_EQ(c.expected, fresh.KALU_Parse_INF(path.c_str()));
    EXPECT_EQ(c.expected == KALU_NO_ERR ? 2u : 0u, fresh.m_vecFileInfo.size());
    EXPECT_EQ(2u, fresh.m_mapFileHash.size());
  }
}

TEST_F(VersionTpnTest, SizesAreTruncatedTowardZeroAndNegativesBecomeZero) {
  ASSERT_EQ(KALU_NO_ERR, Parse("File1=a\nFile1 Size=1234.99\n"
                               "File2=b\nFile2 Size=-5\n"
                               "File3=c\nFile3 Size=0.5\n"
                               "File4=d\nFile4 Size=not a number\n"
                               "File5=e\nFile5 Size=4294967296\n"
                               "File6=f\nFile6 Size=1e30\n"));
  ASSERT_EQ(6u, manifest.m_vecFileInfo.size());
  EXPECT_EQ(1234u, manifest.m_vecFileInfo[0].ullFileSize);
  EXPECT_EQ(0u, manifest.m_vecFileInfo[1].ullFileSize);
  EXPECT_EQ(0u, manifest.m_vecFileInfo[2].ullFileSize);
  EXPECT_EQ(0u, manifest.m_vecFileInfo[3].ullFileSize);
  EXPECT_EQ(4294967296u, manifest.m_vecFileInfo[4].ullFileSize);
  EXPECT_EQ(UINT64_MAX, manifest.m_vecFileInfo[5].ullFileSize);
  EXPECT_EQ("", manifest.m_vecFileInfo[0].strHashValue);
}

TEST_F(VersionTpnTest, NameListedTwiceKeepsBothRecordsButIndexesFirstHash) {
  ASSERT_EQ(KALU_NO_ERR, Parse("File1=same.bin\nFile1 Hash Value=" + kHashA + "\n"
                               "File2=same.bin\nFile2 Hash Value=" + kHashB + "\n"));
  EXPECT_EQ(2, manifest.m_nFileCount);
  EXPECT_EQ(kHashB, manifest.m_vecFileInfo[1].strHashValue);
  ASSERT_EQ(1u, manifest.m_mapFileHash.size());
  EXPECT_EQ(kHashA, manifest.m_mapFileHash["same.bin"]);
}

TEST_F(VersionTpnTest, ImgIndexIsPositionOfLastNameContainingDotImg) {
  ASSERT_EQ(KALU_NO_ERR, Parse("File1=a.bin\nFile2=b.img\nFile3=c.img\n"));
  EXPECT_EQ(2, manifest.m_nImgFileIndex);

  EV_Version_TPN caseSensitive;
  WriteFile(dir.file("b.inf"), "File1=a.bin\nFile2=k.img.sig\nFile3=x.IMG\nFile4=y.bin\n");
  ASSERT_EQ(KALU_NO_ERR, caseSensitive.KALU_Parse_INF(dir.file("b.inf").c_str()));
  EXPECT_EQ(1, caseSensitive.m_nImgFileIndex);

  EV_Version_TPN none;
  WriteFile(dir.file("c.inf"), "File1=a.bin\nFile2=b.IMG\n");
  ASSERT_EQ(KALU_NO_ERR, none.KALU_Parse_INF(dir.file("c.inf").c_str()));
  EXPECT_EQ(0, none.m_nImgFileIndex);
}

TEST_F(VersionTpnTest, NumbersAfterAGapAreNeverRead) {
  ASSERT_EQ(KALU_NO_ERR, Parse("File1=a\nFile2=b\nFile4=d\nFile4 Hash Value=h\n"));
  EXPECT_EQ((std::vector<std::string>{"a", "b"}), Names());
  EXPECT_EQ(2, manifest.m_nFileCount);
  EXPECT_EQ(0u, manifest.m_mapFileHash.count("d"));
}

TEST_F(VersionTpnTest, EntryNumbersAboveNineFormKeysWithoutPadding) {
  std::string text;
  for (int n = 1; n <= 12; ++n) {
    text += "File" + std::to_string(n) + "=f" + std::to_string(n) + "\n";
  }
  text += "File12 Size=12\n";
  ASSERT_EQ(KALU_NO_ERR, Parse(text));
  ASSERT_EQ(12, manifest.m_nFileCount);
  EXPECT_EQ("f12", manifest.m_vecFileInfo[11].strFileName);
  EXPECT_EQ(12u, manifest.m_vecFileInfo[11].ullFileSize);
}

TEST_F(VersionTpnTest, ParsingAgainAppendsRecordsAndReplacesHeader) {
  ASSERT_EQ(KALU_NO_ERR, Parse("Type=first\nPost-Script=post.sh\n"
                               "File1=a\nFile1 Hash Value=" + kHashA + "\nFile2=b.img\n",
                               "one.inf"));
  ASSERT_EQ(KALU_NO_ERR, Parse("Type=second\nFile1=a\nFile1 Hash Value=" + kHashB + "\n", "two.inf"));

  EXPECT_EQ("second", manifest.m_strType);
  EXPECT_EQ("", manifest.m_strPostScript);
  EXPECT_FALSE(manifest.m_bHasPostScript);
  EXPECT_EQ((std::vector<std::string>{"a", "b.img", "a"}), Names());
  EXPECT_EQ(3, manifest.m_nFileCount);
  EXPECT_EQ(kHashA, manifest.m_mapFileHash["a"]);
  EXPECT_EQ(1, manifest.m_nImgFileIndex);
}

TEST_F(VersionTpnTest, InvalidEntryDiscardsRecordsButKeepsIndexHeaderAndCount) {
  ASSERT_EQ(KALU_NO_ERR, Parse("Pre-Script=pre.sh\nFile1=a\nFile2=b.img\n", "good.inf"));
  ASSERT_EQ(2, manifest.m_nFileCount);
  ASSERT_TRUE(manifest.m_bHasPreScript);

  EXPECT_EQ(VER_ERR04, Parse("Version Number=9\nPre-Script=other.sh\nPost-Script=post.sh\n"
                             "File1=c\nFile1 Hash Value=" + kHashA + "\nFile2 Size=10\n",
                             "bad.inf"));
  EXPECT_TRUE(manifest.m_vecFileInfo.empty());
  EXPECT_EQ(0u, manifest.m_vecFileInfo.capacity());
  EXPECT_EQ((std::map<std::string, std::string>{{"a", ""}, {"b.img", ""}, {"c", kHashA}}),
            manifest.m_mapFileHash);
  EXPECT_EQ("9", manifest.m_strVersionNumber);
  EXPECT_EQ("other.sh", manifest.m_strPreScript);
  EXPECT_EQ(2, manifest.m_nFileCount);
  EXPECT_EQ(1, manifest.m_nImgFileIndex);
  EXPECT_FALSE(manifest.m_bHasPreScript);
  EXPECT_FALSE(manifest.m_bHasPostScript);
  EXPECT_TRUE(manifest.m_bVersionInfFound);
}

TEST_F(VersionTpnTest, UnreadablePathFailsAndLeavesObjectAsItWas) {
  std::string missing = dir.file("absent/Version.inf");
  EXPECT_EQ(VER_ERR01, manifest.KALU_Parse_INF(missing.c_str()));
  EXPECT_FALSE(manifest.m_bVersionInfFound);
  EXPECT_EQ(0, manifest.m_nFileCount);

  ASSERT_EQ(KALU_NO_ERR, Parse("Type=kept\nPre-Script=pre.sh\nFile1=a\n"));
  EXPECT_EQ(VER_ERR01, manifest.KALU_Parse_INF(missing.c_str()));
  EXPECT_TRUE(manifest.m_bVersionInfFound);
  EXPECT_FALSE(manifest.m_bHasPreScript);
  EXPECT_EQ("kept", manifest.m_strType);
  EXPECT_EQ(1u, manifest.m_vecFileInfo.size());
  EXPECT_EQ(1, manifest.m_nFileCount);
}

TEST_F(VersionTpnTest, SuccessfulParsePrintsLocationAndLogsMarks) {
  std::string path = dir.file("Version.inf");
  WriteFile(path, "File1=a\n");
  LogCapture log;
  OutputCapture out;
  EXPECT_EQ(KALU_NO_ERR, PrintKALU_VersionParse_TPN(path.c_str(), &manifest));
  EXPECT_EQ("Version_Parse_INF File Location : " + path + "\n", out.Finish());

  std::vector<testsupport::LogLine> lines = log.Lines();
  ASSERT_EQ(3u, lines.size());
  const std::string texts[] = {"+", "Version_Parse_INF File Location : " + path, "-"};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(23, lines[i].level);
    EXPECT_EQ("KALU_Parse_INF", lines[i].function);
    EXPECT_EQ(texts[i], lines[i].text);
  }
}

TEST_F(VersionTpnTest, FailuresPrintAndLogTheStatusNumber) {
  std::string missing = dir.file("missing.inf");
  std::string bad = dir.file("bad.inf");
  WriteFile(bad, "File1 Hash Value=x\n");
  LogCapture log;
  OutputCapture out;
  EXPECT_EQ(VER_ERR01, PrintKALU_VersionParse_TPN(missing.c_str(), &manifest));
  EXPECT_EQ(VER_ERR04, PrintKALU_VersionParse_TPN(bad.c_str(), &manifest));

  EXPECT_EQ("Version_Parse_INF File Location : " + missing + "\nKALU Error 19 \n" +
                "Version_Parse_INF File Location : " + bad + "\nKALU Error 22 \n",
            out.Finish());
  // The invalid-entry path has no exit mark.
  EXPECT_EQ((std::vector<std::string>{"+", "Version_Parse_INF File Location : " + missing, "-",
                                      "+", "Version_Parse_INF File Location : " + bad}),
            log.Texts("KALU_Parse_INF"));
  std::vector<testsupport::LogLine> lines = log.Lines();
  ASSERT_EQ(7u, lines.size());
  EXPECT_EQ(31, lines[3].level);
  EXPECT_EQ("PrintKALU_VersionParse_TPN", lines[3].function);
  EXPECT_EQ("KALU Error 19 \n", lines[3].text);
  EXPECT_EQ(31, lines[6].level);
  EXPECT_EQ("PrintKALU_VersionParse_TPN", lines[6].function);
  EXPECT_EQ("KALU Error 22 \n", lines[6].text);
}

}  // namespace
