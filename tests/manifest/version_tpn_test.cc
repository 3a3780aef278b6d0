// The manifest parser: header and file list, the end-of-list rule, sizes,
// the image index and what a failure keeps. The texts of a parse are checked
// by the runs.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "extract_verify/manifest.h"
#include "tests/testsupport/temp_dir.h"

namespace {

using Texts = std::vector<std::string>;
using Hashes = std::map<std::string, std::string>;

const std::string kHashA(64, 'a');
const std::string kHashB(64, 'b');

class VersionTpnTest : public testing::Test {
 protected:
  // Writes `text` as a manifest and parses it into `object`.
  _KALU_Error Parse(const std::string& text, EV_Version_TPN* object) {
    const std::string path = dir.file("Version" + std::to_string(++m_files) + ".inf");
    testsupport::WriteFile(path, text);
    return object->KALU_Parse_INF(path.c_str());
  }
  static Texts Names(const EV_Version_TPN& manifest) {
    Texts names;
    for (const auto& record : manifest.m_vecFileInfo) names.push_back(record.strFileName);
    return names;
  }
  testsupport::TempDir dir;
  EV_Version_TPN manifest;
  int m_files = 0;
};

// Keys and values are trimmed, line ends dropped, comments, sections and
// lines without "=" ignored, and the first of a key wins (case matters).
// The list ends at the first number without a name (File7 is never read);
// sizes truncate toward zero; the map keeps a name's first digest; the image
// index is the place of the last name holding ".img" (in that case).
// clang-format off
TEST_F(VersionTpnTest, ReadsHeaderAndFilesWithoutLeakingLineEnds) {
  ASSERT_EQ(KALU_NO_ERR,
            Parse("# Type=commented\n  ; VIN=commented\n[Type=section]\n[Header]\nno equals\n\n"
                  "Torvan Part Number=PN-0042\r\n  Version Number \t=\t 1.2.3  \nType=Full\r\r\n"
                  "type=lower\nType=second\nVIN=WVW123\r\nESN=ESN-9\r\nStart Date=2020-01-01\r\n"
                  "End Date=2030-12-31\r\nPre-Script = pre install.sh\r\nPost-Script=\r\n"
                  "Save Location=/fs/a=b ; not a comment # either\n"
                  "File1=boot.img\r\nFile1 Hash Value=" + kHashA + "\r\nFile1 Size=1234.99\r\n"
                  "File2=b.bin\nFile2 Size=-5\nFile3=boot.img\nFile3 Size=4294967296\n"
                  "File3 Hash Value=" + kHashB + "\nFile4=k.img.sig\nFile4 Size=1e30\n"
                  "File5=x.IMG\nFile5 Size=many\nFile7=d.img\n", &manifest));
  EXPECT_EQ((Texts{"PN-0042", "1.2.3", "Full", "WVW123", "ESN-9", "2020-01-01", "2030-12-31",
                   "pre install.sh", "", "/fs/a=b ; not a comment # either"}),
            (Texts{manifest.m_strPartNumber, manifest.m_strVersionNumber, manifest.m_strType,
                   manifest.m_strVIN, manifest.m_strESN, manifest.m_strStartDate,
                   manifest.m_strEndDate, manifest.m_strPreScript, manifest.m_strPostScript,
                   manifest.m_strSaveLocation}));
  EXPECT_TRUE(manifest.m_bVersionInfFound && manifest.m_bHasPreScript);
  EXPECT_FALSE(manifest.m_bHasPostScript);
  EXPECT_EQ(manifest.m_nFileCount, 5);
  EXPECT_EQ(Names(manifest), (Texts{"boot.img", "b.bin", "boot.img", "k.img.sig", "x.IMG"}));
  std::vector<uint64_t> sizes;
  for (const auto& record : manifest.m_vecFileInfo) sizes.push_back(record.ullFileSize);
  EXPECT_EQ(sizes, (std::vector<uint64_t>{1234, 0, 4294967296u, UINT64_MAX, 0}));
  EXPECT_EQ(manifest.m_vecFileInfo[2].strHashValue, kHashB);
  EXPECT_EQ(manifest.m_mapFileHash, (Hashes{{"b.bin", ""}, {"boot.img", kHashA},
                                            {"k.img.sig", ""}, {"x.IMG", ""}}));
  EXPECT_EQ(manifest.m_nImgFileIndex, 3);
  EV_Version_TPN twelve;
  std::string text;
  for (int n = 1; n <= 12; ++n) text += "File" + std::to_string(n) + "=f.bin\n";
  ASSERT_EQ(Parse(text + "File12 Size=12\n", &twelve), KALU_NO_ERR);
  EXPECT_EQ(std::make_tuple(twelve.m_nFileCount, twelve.m_vecFileInfo[11].ullFileSize,
                            twelve.m_nImgFileIndex),
            std::make_tuple(12, uint64_t{12}, 0));
}

// A nameless entry ends the list only when its hash is empty and its size
// truncates to 0; anything else makes the manifest invalid.
TEST_F(VersionTpnTest, NamelessEntryEndsTheListOnlyWhenEmpty) {
  const std::pair<std::string, _KALU_Error> cases[] = {
      {"File3 Size=4096\n", VER_ERR04}, {"File3 Size=1\n", VER_ERR04},
      {"File3 Hash Value=" + kHashA + "\n", VER_ERR04}, {"File3 Size=0.9\n", KALU_NO_ERR},
      {"File3 Size=-7\n", KALU_NO_ERR}, {"File3 Size=many\n", KALU_NO_ERR}, {"", KALU_NO_ERR}};
  for (const auto& c : cases) {
    EV_Version_TPN fresh;
    EXPECT_EQ(Parse("File1=a\nFile1 Hash Value=h1\nFile2=b\nFile2 Hash Value=h2\n" + c.first,
                    &fresh), c.second) << c.first;
    EXPECT_EQ(fresh.m_vecFileInfo.size(), c.second == KALU_NO_ERR ? 2u : 0u) << c.first;
    EXPECT_EQ(fresh.m_mapFileHash.size(), 2u);
  }
}
// clang-format on

// A missing file keeps everything but the script flags; an invalid entry
// drops the records and keeps index, header and count; a good parse after it
// appends again.
TEST_F(VersionTpnTest, FailuresKeepWhatWasReadBefore) {
  const std::string missing = dir.file("absent/Version.inf");
  EXPECT_EQ(manifest.KALU_Parse_INF(missing.c_str()), VER_ERR01);
  EXPECT_FALSE(manifest.m_bVersionInfFound);
  ASSERT_EQ(Parse("Type=kept\nPre-Script=pre.sh\nFile1=a\nFile2=b.img\n", &manifest), KALU_NO_ERR);
  EXPECT_EQ(manifest.KALU_Parse_INF(missing.c_str()), VER_ERR01);
  EXPECT_EQ(std::make_tuple(manifest.m_bVersionInfFound, manifest.m_bHasPreScript,
                            manifest.m_strType, manifest.m_vecFileInfo.size()),
            std::make_tuple(true, false, std::string("kept"), size_t{2}));

  // clang-format off
  EXPECT_EQ(Parse("Version Number=9\nPre-Script=other.sh\nPost-Script=post.sh\n"
                  "File1=c\nFile1 Hash Value=" + kHashA + "\nFile2 Size=10\n", &manifest),
            VER_ERR04);
  // clang-format on
  EXPECT_EQ(manifest.m_vecFileInfo.capacity(), 0u);
  EXPECT_EQ(manifest.m_mapFileHash, (Hashes{{"a", ""}, {"b.img", ""}, {"c", kHashA}}));
  EXPECT_EQ(manifest.m_strVersionNumber + manifest.m_strPreScript, "9other.sh");
  EXPECT_EQ(std::make_pair(manifest.m_nFileCount, manifest.m_nImgFileIndex), std::make_pair(2, 1));
  EXPECT_FALSE(manifest.m_bHasPreScript || manifest.m_bHasPostScript);
  ASSERT_EQ(Parse("Type=second\nFile1=a\n", &manifest), KALU_NO_ERR);
  EXPECT_EQ(manifest.m_strType, "second");
  EXPECT_EQ(Names(manifest), Texts{"a"});
}

}  // namespace
