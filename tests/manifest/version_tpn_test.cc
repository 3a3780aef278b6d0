#include "manifest/version_tpn.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/testsupport/capture.h"
#include "tests/testsupport/temp_dir.h"

namespace {

using testsupport::WriteFile;
using Texts = std::vector<std::string>;

const std::string kHashA(64, 'a');
const std::string kHashB(64, 'b');

class VersionTpnTest : public testing::Test {
 protected:
  // Writes `text` as a manifest in the test's directory and parses it into
  // `object` (the fixture's own by default).
  _KALU_Error Parse(const std::string& text, EV_Version_TPN* object = nullptr) {
    std::string path = dir.file("Version" + std::to_string(++m_files) + ".inf");
    WriteFile(path, text);
    return (object != nullptr ? object : &manifest)->KALU_Parse_INF(path.c_str());
  }
  Texts Names() const {
    Texts names;
    for (const auto& record : manifest.m_vecFileInfo) names.push_back(record.strFileName);
    return names;
  }
  testsupport::TempDir dir;
  EV_Version_TPN manifest;
  int m_files = 0;
};

TEST_F(VersionTpnTest, ReadsHeaderAndFilesWithoutLeakingLineEnds) {
  ASSERT_EQ(KALU_NO_ERR,
            Parse("Torvan Part Number=PN-0042\r\nVersion Number=1.2.3\r\nType=Full\r\n"
                  "VIN=WVW123\r\nESN=ESN-9\r\nStart Date=2020-01-01\r\nEnd Date=2030-12-31\r\n"
                  "Pre-Script=pre.sh\r\nSave Location=/fs/usb0\r\n"
                  "File1=boot.img\r\nFile1 Hash Value=" + kHashA + "\r\nFile1 Size=1024\r\n"
                  "File2=app/data-1.bin\r\nFile2 Hash Value=" + kHashB + "\r\nFile2 Size=2048\r\n"));
  EXPECT_EQ((Texts{"PN-0042", "1.2.3", "Full", "WVW123", "ESN-9", "2020-01-01", "2030-12-31",
                   "pre.sh", "", "/fs/usb0"}),
            (Texts{manifest.m_strPartNumber, manifest.m_strVersionNumber, manifest.m_strType,
                   manifest.m_strVIN, manifest.m_strESN, manifest.m_strStartDate,
                   manifest.m_strEndDate, manifest.m_strPreScript, manifest.m_strPostScript,
                   manifest.m_strSaveLocation}));
  EXPECT_TRUE(manifest.m_bVersionInfFound && manifest.m_bHasPreScript);
  EXPECT_FALSE(manifest.m_bHasPostScript);
  ASSERT_EQ(2, manifest.m_nFileCount);
  EXPECT_EQ((Texts{"boot.img", "app/data-1.bin"}), Names());
  EXPECT_EQ(kHashB, manifest.m_vecFileInfo[1].strHashValue);
  EXPECT_EQ(2048u, manifest.m_vecFileInfo[1].ullFileSize);
  EXPECT_EQ((std::map<std::string, std::string>{{"app/data-1.bin", kHashB}, {"boot.img", kHashA}}),
            manifest.m_mapFileHash);
  EXPECT_EQ(0, manifest.m_nImgFileIndex);
}

// A nameless entry ends the list only when its hash is empty and its size
// truncates to 0; anything else makes the manifest invalid.
TEST_F(VersionTpnTest, NamelessEntryEndsListOnlyWhenHashAndTruncatedSizeAreEmpty) {
  const std::pair<std::string, _KALU_Error> cases[] = {
      {"File3 Size=4096\n", VER_ERR04}, {"File3 Size=1\n", VER_ERR04},
      {"File3 Hash Value=" + kHashA + "\n", VER_ERR04}, {"File3 Size=0.9\n", KALU_NO_ERR},
      {"File3 Size=-7\n", KALU_NO_ERR}, {"File3 Size=many\n", KALU_NO_ERR}, {"", KALU_NO_ERR}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    EV_Version_TPN fresh;
    EXPECT_EQ(c.second, Parse("File1=a\nFile1 Hash Value=h1\nFile2=b\nFile2 Hash Value=h2\n" +
                                  c.first, &fresh));
    EXPECT_EQ(c.second == KALU_NO_ERR ? 2u : 0u, fresh.m_vecFileInfo.size());
    EXPECT_EQ(2u, fresh.m_mapFileHash.size());
  }
}

TEST_F(VersionTpnTest, SizesTruncateTowardZeroAndTheFirstListingOfANameIsIndexed) {
  ASSERT_EQ(KALU_NO_ERR, Parse("File1=a\nFile1 Size=1234.99\nFile2=b\nFile2 Size=-5\n"
                               "File3=c\nFile3 Size=0.5\nFile4=d\nFile4 Size=not a number\n"
                               "File5=e\nFile5 Size=4294967296\nFile6=f\nFile6 Size=1e30\n"
                               "File7=a\nFile7 Hash Value=" + kHashB + "\n"));
  std::vector<uint64_t> sizes;
  for (const auto& record : manifest.m_vecFileInfo) sizes.push_back(record.ullFileSize);
  EXPECT_EQ((std::vector<uint64_t>{1234, 0, 0, 0, 4294967296u, UINT64_MAX, 0}), sizes);
  EXPECT_EQ(kHashB, manifest.m_vecFileInfo[6].strHashValue);
  EXPECT_EQ("", manifest.m_mapFileHash["a"]);
}

TEST_F(VersionTpnTest, ListStopsAtAGapAndTheImgIndexIsTheLastDotImgName) {
  ASSERT_EQ(KALU_NO_ERR, Parse("File1=a\nFile2=b.img\nFile3=k.img.sig\nFile4=x.IMG\n"
                               "File6=d.img\nFile6 Hash Value=h\n"));
  EXPECT_EQ((Texts{"a", "b.img", "k.img.sig", "x.IMG"}), Names());
  EXPECT_EQ(0u, manifest.m_mapFileHash.count("d.img"));
  EXPECT_EQ(2, manifest.m_nImgFileIndex);

  EV_Version_TPN none;
  ASSERT_EQ(KALU_NO_ERR, Parse("File1=a.bin\nFile2=b.IMG\n", &none));
  EXPECT_EQ(0, none.m_nImgFileIndex);

  std::string twelve;
  for (int n = 1; n <= 12; ++n) twelve += "File" + std::to_string(n) + "=f" + std::to_string(n) + "\n";
  EV_Version_TPN many;
  ASSERT_EQ(KALU_NO_ERR, Parse(twelve + "File12 Size=12\n", &many));
  ASSERT_EQ(12, many.m_nFileCount);
  EXPECT_EQ(12u, many.m_vecFileInfo[11].ullFileSize);
}

TEST_F(VersionTpnTest, FailuresKeepWhatWasReadBefore) {
  const std::string missing = dir.file("absent/Version.inf");
  EXPECT_EQ(VER_ERR01, manifest.KALU_Parse_INF(missing.c_str()));
  EXPECT_FALSE(manifest.m_bVersionInfFound);

  ASSERT_EQ(KALU_NO_ERR, Parse("Type=kept\nPre-Script=pre.sh\nFile1=a\nFile2=b.img\n"));
  EXPECT_EQ(VER_ERR01, manifest.KALU_Parse_INF(missing.c_str()));
  EXPECT_TRUE(manifest.m_bVersionInfFound);
  EXPECT_FALSE(manifest.m_bHasPreScript);
  EXPECT_EQ("kept", manifest.m_strType);
  EXPECT_EQ(2u, manifest.m_vecFileInfo.size());

  // An invalid entry drops the records, keeps the index, header and count.
  EXPECT_EQ(VER_ERR04, Parse("Version Number=9\nPre-Script=other.sh\nPost-Script=post.sh\n"
                             "File1=c\nFile1 Hash Value=" + kHashA + "\nFile2 Size=10\n"));
  EXPECT_EQ(0u, manifest.m_vecFileInfo.capacity());
  EXPECT_EQ((std::map<std::string, std::string>{{"a", ""}, {"b.img", ""}, {"c", kHashA}}),
            manifest.m_mapFileHash);
  EXPECT_EQ("9", manifest.m_strVersionNumber);
  EXPECT_EQ("other.sh", manifest.m_strPreScript);
  EXPECT_EQ(2, manifest.m_nFileCount);
  EXPECT_EQ(1, manifest.m_nImgFileIndex);
  EXPECT_FALSE(manifest.m_bHasPreScript || manifest.m_bHasPostScript);

  // A good parse after it appends again and replaces the header.
  ASSERT_EQ(KALU_NO_ERR, Parse("Type=second\nFile1=a\n"));
  EXPECT_EQ("second", manifest.m_strType);
  EXPECT_EQ(Texts{"a"}, Names());
}

TEST_F(VersionTpnTest, ParsesPrintTheLocationAndFailuresTheStatusNumber) {
  const std::string good = dir.file("good.inf"), bad = dir.file("bad.inf");
  const std::string missing = dir.file("missing.inf");
  WriteFile(good, "File1=a\n");
  WriteFile(bad, "File1 Hash Value=x\n");
  testsupport::LogCapture log;
  testsupport::OutputCapture out;
  EXPECT_EQ(KALU_NO_ERR, PrintKALU_VersionParse_TPN(good.c_str(), &manifest));
  EXPECT_EQ(VER_ERR01, PrintKALU_VersionParse_TPN(missing.c_str(), &manifest));
  EXPECT_EQ(VER_ERR04, PrintKALU_VersionParse_TPN(bad.c_str(), &manifest));

  const std::string at = "Version_Parse_INF File Location : ";
  EXPECT_EQ(at + good + "\n" + at + missing + "\nKALU Error 19 \n" + at + bad +
                "\nKALU Error 22 \n",
            out.Finish());
  // The invalid-entry path has no exit mark.
  const std::string parse = "23:KALU_Parse_INF:", print = "31:PrintKALU_VersionParse_TPN:";
  EXPECT_EQ((Texts{parse + "+", parse + at + good, parse + "-", parse + "+", parse + at + missing,
                   parse + "-", print + "KALU Error 19 \n", parse + "+", parse + at + bad,
                   print + "KALU Error 22 \n"}),
            log.Described());
}

}  // namespace
